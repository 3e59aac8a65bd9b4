// The tool's commands. Each registers itself as a subcommand of the
// application; after parsing, main() runs the one the command line chose.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>

namespace nymbrel {

class Command {
 public:
  virtual ~Command() = default;
  // Whether the command line chose this command.
  virtual bool chosen() const = 0;
  // Runs it; gives the exit code (see Errors.h). May throw CommandFailure.
  virtual int run() = 0;
};

std::unique_ptr<Command> addDemoCommand(CLI::App& app);
std::unique_ptr<Command> addSubmitCommand(CLI::App& app);
std::unique_ptr<Command> addImportCommand(CLI::App& app);
std::unique_ptr<Command> addQueueCommand(CLI::App& app);

}  // namespace nymbrel
