// nymbrel queue [--json]
//
// Shows what the archive in the data directory holds, without starting a
// session: nothing is sent.
#include <filesystem>
#include <iostream>

#include "Commands.h"
#include "Describe.h"
#include "Errors.h"
#include "Options.h"
#include "QueueView.h"
#include "Refusals.h"

namespace nymbrel {

namespace {

class QueueCommand : public Command {
 public:
  explicit QueueCommand(CLI::App& parent) {
    app_ = parent.add_subcommand(
        "queue", "Show what the archive holds: the user, the queued records, the photos");
    app_->add_flag("--json", json_,
                   "one JSON document: archive, exists, session, user (token masked), records "
                   "(position, type, activity_id, photo, document), photos, rejected (path, "
                   "records: the refused records kept)");
    addDataDirOption(*app_, options_);
    addVerboseOption(*app_, options_);
  }

  bool chosen() const override { return app_->parsed(); }

  int run() override {
    configureLibrary(options_);
    std::string directory = documentsDirectory(options_);
    ArchiveContents archive = readArchive(directory);
    std::size_t refused = keptRefusalCount(directory);
    std::string rejected = (std::filesystem::path(directory) / kRejectedFileName).string();
    if (json_) {
      nyb::NYBDictionary document = queueJSON(archive);
      document.set("rejected", nyb::NYBDictionary{{"path", rejected}, {"records", refused}});
      std::cout << compactJSON(document) << std::endl;
    } else {
      std::cout << queueText(archive);
      if (refused > 0) {
        std::cout << "Refused and kept: " << refused << " in " << rejected
                  << " (send again with: nymbrel import " << rejected << ")\n";
      }
      std::cout << std::flush;
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
