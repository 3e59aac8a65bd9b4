// nymbrel queue [--json]
//
// Shows what the archive in the data directory holds, without starting a
// session: nothing is sent.
#include <iostream>

#include "Commands.h"
#include "Describe.h"
#include "Errors.h"
#include "Options.h"
#include "QueueView.h"

namespace nymbrel {

namespace {

class QueueCommand : public Command {
 public:
  explicit QueueCommand(CLI::App& parent) {
    app_ = parent.add_subcommand(
        "queue", "Show what the archive holds: the user, the queued records, the photos");
    app_->add_flag("--json", json_,
                   "one JSON document: archive, exists, session, user (token masked), records "
                   "(position, type, activity_id, photo, document), photos");
    addDataDirOption(*app_, options_);
    addVerboseOption(*app_, options_);
  }

  bool chosen() const override { return app_->parsed(); }

  int run() override {
    configureLibrary(options_);
    ArchiveContents archive = readArchive(documentsDirectory(options_));
    if (json_) {
      std::cout << compactJSON(queueJSON(archive)) << std::endl;
    } else {
      std::cout << queueText(archive) << std::flush;
    }
    return kExitOK;
  }

 private:
  CLI::App* app_;
  CommonOptions options_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> addQueueCommand(CLI::App& app) {
  return std::make_unique<QueueCommand>(app);
}

}  // namespace nymbrel
