// nymbrel submit TYPE --FIELD VALUE ... [--unit U] [--image FILE.png]
//
// Builds one record of the type from its fields, queues it (with the photo)
// in the session and drives the run loop until it was sent, refused, or left
// queued for a later run.
#include <NymbrelCore/NYBImage.h>

#include <iostream>
#include <list>

#include "Commands.h"
#include "Describe.h"
#include "Errors.h"
#include "Options.h"
#include "RecordBuilder.h"
#include "SessionHost.h"

namespace nymbrel {

namespace {

struct TypeCommand {
  const RecordTypeSpec* type;
  CLI::App* app;
  std::vector<std::pair<const FieldSpec*, CLI::Option*>> options;
  // Stable storage for the options' values.
  std::list<std::string> texts;
  std::list<std::vector<std::string>> values;
};

class SubmitCommand : public Command {
 public:
  explicit SubmitCommand(CLI::App& parent) {
    app_ = parent.add_subcommand("submit", "Submit one record of any type");
    app_->footer("Record types: " + recordTypeNames() +
                 "\nRun 'nymbrel submit TYPE --help' for the fields of a type.");
    app_->allow_extras();
    for (const auto& type : recordTypes()) addType(type);
  }

  bool chosen() const override { return app_->parsed(); }

  int run() override {
    TypeCommand* command = chosenType();
    if (!command->app->remaining().empty()) {
      std::string token = command->app->remaining().front();
      if (token.starts_with("-")) {
        throw usageError(token.substr(0, token.find('=')) + " is not a field of a " +
                         std::string(command->type->name) + " record (see 'nymbrel submit " +
                         std::string(command->type->name) + " --help')");
      }
      throw usageError("unexpected \"" + token + "\" (fields are given as --FIELD VALUE)");
    }

    RecordInput input;
    input.type = command->type;
    for (const auto& [field, option] : command->options) {
      for (const auto& text : option->results()) {
        input.fields.push_back({"--" + std::string(field->name), field, text});
      }
    }
    if (!unit_.empty()) input.unit = unit_;
    configureLibrary(options_);
    BuildResult built = buildRecord(input);
    if (!built.errors.empty()) {
      std::string message;
      for (const auto& error : built.errors) message += (message.empty() ? "" : "\n") + error;
      throw usageError(message);
    }
    std::shared_ptr<nyb::NYBImage> photo;
    if (!image_.empty()) {
      std::string why;
      photo = loadPhoto(image_, &why);
      if (!photo) throw usageError("--image: \"" + image_ + "\"" + why);
    }

    SessionHost host([](const SessionHost::Event& event) { printEvent(event); });
    openSession(host, options_);
    auto user = host.user();
    std::cout << "sending " << recordLabel(*built.record) << (photo ? " with a photo" : "")
              << " to " << baseURL() << " as " << user->organizationID().stringView() << "/"
              << user->nymbrelUserID().stringView() << std::endl;
    if (photo) {
      host.submit(built.record, photo);
    } else {
      host.submit({built.record});
    }
    bool finished = host.runUntilIdle(timeout());
    return reportOutcome(host, finished, options_);
  }

 private:
  void addType(const RecordTypeSpec& type) {
    TypeCommand& command = types_.emplace_back();
    command.type = &type;
    command.app = app_->add_subcommand(std::string(type.name), std::string(type.summary));
    command.app->allow_extras();
    for (const auto& field : type.fields) {
      std::string name = "--" + std::string(field.name);
      std::string help(field.help);
      CLI::Option* option;
      if (field.kind == ValueKind::DataPoint) {  // repeatable, one value each time
        option = command.app->add_option(name, command.values.emplace_back(), help)
                     ->allow_extra_args(false);
      } else {
        option = command.app->add_option(name, command.texts.emplace_back(), help);
      }
      option->type_name(std::string(valuePlaceholder(field.kind)))->group("Fields");
      command.options.emplace_back(&field, option);
    }
    command.app->footer("");
    if (const FieldSpec* unitField = type.unitField()) {
      command.app->footer("A value given in another unit is stored in " +
                          std::string(standardUnitText(unitField->unit)) +
                          " and also kept as entered (the record's raw data).");
      command.app
          ->add_option("--unit", unit_,
                       "the unit of --" + std::string(unitField->name) + ": " +
                           unitChoices(unitField->unit) + " (default " +
                           std::string(standardUnitText(unitField->unit)) + ")")
          ->type_name("UNIT");
    } else {
      // Accepted so that the error can say why it does not apply.
      command.app->add_option("--unit", unit_, "no field of this type has a unit")
          ->type_name("UNIT");
    }
    command.app->add_option("--image", image_, "a PNG photo to upload after the record")
        ->type_name("FILE.png");
    addDataDirOption(*command.app, options_);
    addServiceOptions(*command.app, options_);
    addVerboseOption(*command.app, options_);
  }

  TypeCommand* chosenType() {
    for (auto& command : types_) {
      if (command.app->parsed()) return &command;
    }
    const auto& remaining = app_->remaining();
    if (!remaining.empty() && !remaining.front().starts_with("-")) {
      throw usageError("\"" + remaining.front() + "\" is not a record type (" + recordTypeNames() +
                       ")");
    }
    throw usageError("give a record type: nymbrel submit TYPE --FIELD VALUE ... (types: " +
                     recordTypeNames() + ")");
  }

  std::chrono::milliseconds timeout() const {
    return std::chrono::milliseconds(static_cast<long long>(options_.timeoutSeconds * 1000));
  }

  CLI::App* app_;
  std::list<TypeCommand> types_;
  CommonOptions options_;
  std::string unit_;
  std::string image_;
};

}  // namespace

std::unique_ptr<Command> addSubmitCommand(CLI::App& app) {
  return std::make_unique<SubmitCommand>(app);
}

}  // namespace nymbrel
