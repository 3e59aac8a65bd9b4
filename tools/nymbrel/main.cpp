// nymbrel: a command-line host application of NymbrelCore.
//
//   nymbrel demo                       every record type and a photo, end to end
//   nymbrel submit TYPE --FIELD VALUE  one record
//   nymbrel import FILE                many readings from CSV or JSON lines
//   nymbrel queue [--json]             what the archive holds
//
// Results go to standard output; errors and refusals to standard error as
// "nymbrel: <message>"; the exit status says what happened (see Errors.h and
// the footer of --help).
#include <NymbrelCore/NYBException.h>
#include <NymbrelCore/NYBSession.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "Errors.h"

namespace {

void printError(const std::string& message) {
  std::istringstream lines(message);
  std::string line;
  while (std::getline(lines, line)) std::cerr << "nymbrel: " << line << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  using namespace nymbrel;
  CLI::App app("nymbrel: submit health records through NymbrelCore and inspect its upload queue",
               "nymbrel");
  app.set_version_flag("--version", "nymbrel " + nyb::NYBSession::libraryVersion().value_or("?"));
  app.footer(
      "Exit status: 0 everything arrived (or the queue was shown); 1 the service refused a\n"
      "record or photo (kept in rejected.jsonl in the data directory: fix the cause, then\n"
      "nymbrel import that file); 2 bad command line or input value, nothing sent; 3 something "
      "stays\n"
      "queued (service unreachable, server error, time-out); 4 import skipped bad rows;\n"
      "5 a file, the archive, the development server or the server's copy failed; 6 the\n"
      "session could not be saved (nothing of this run is on disk); 7 another process is\n"
      "using the data directory; 8 the archive is encrypted and --key-file (NYMBREL_KEY_FILE)\n"
      "is missing, unusable or holds another key. When several apply, the lowest wins, except 6.");
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(addDemoCommand(app));
  commands.push_back(addSubmitCommand(app));
  commands.push_back(addImportCommand(app));
  commands.push_back(addQueueCommand(app));
  // After the commands, which would otherwise inherit it: an unknown word is
  // then told apart from an unknown command.
  app.allow_extras();

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForVersion& version) {
    return app.exit(version);
  } catch (const CLI::ParseError& error) {
    printError(error.what());
    return kExitUsage;
  }

  try {
    for (const auto& command : commands) {
      if (command->chosen()) return command->run();
    }
    const auto& remaining = app.remaining();
    if (!remaining.empty() && !remaining.front().starts_with("-")) {
      throw usageError("\"" + remaining.front() +
                       "\" is not a command (demo, submit, import, queue; see nymbrel --help)");
    }
    throw usageError(remaining.empty()
                         ? "give a command: demo, submit, import or queue (see nymbrel --help)"
                         : remaining.front() + " is not an option of nymbrel (see nymbrel --help)");
  } catch (const CommandFailure& failure) {
    printError(failure.what());
    return failure.code();
  } catch (const nyb::NYBException& exception) {
    printError("unexpected failure in the library: " + exception.name() + ": " +
               exception.reason());
    return kExitFailure;
  } catch (const std::exception& exception) {
    printError(std::string("unexpected failure: ") + exception.what());
    return kExitFailure;
  }
}
