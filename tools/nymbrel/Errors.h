// The tool's exit codes and the failures that end a command.
//
// Scripts rely on the codes, so they never change meaning. When several apply
// to one run (a rejected record and a record left queued), the lowest non-zero
// code is the one returned; kExitStorage alone overrides the others, because
// no outcome that the run reports is on disk then.
#pragma once

#include <stdexcept>
#include <string>

namespace nymbrel {

enum ExitCode : int {
  // Everything was done: every record and photo arrived, or the queue was shown.
  kExitOK = 0,
  // The service refused a record or a photo (a 4xx answer), this run's or one
  // an earlier run queued, or a queued photo could not be read back; those
  // items are gone from the queue, the refused ones kept in rejected.jsonl.
  kExitRejected = 1,
  // A bad command line, record type, field, unit or value. Nothing was sent.
  kExitUsage = 2,
  // Something stays queued: the service could not be reached, answered with a
  // server error, or the time ran out. A later run sends it.
  kExitPending = 3,
  // import: some rows were bad and skipped; the others were sent.
  kExitBadRows = 4,
  // A file could not be read, the archive is damaged, the development server
  // did not start, or the server does not hold what was sent.
  kExitFailure = 5,
  // The session could not be saved in the data directory (the path and the
  // system's reason are printed): what this run queued is not on disk, and a
  // later run will not send it.
  kExitStorage = 6,
  // Another process is using the data directory; nothing was read or written.
  kExitBusy = 7,
  // The archive is encrypted and no key was given, or the key given does not
  // open it (or the key file is unusable); nothing was read or written.
  kExitKey = 8,
};

// The lower of two non-zero codes; zero only when both are zero.
inline int combineExitCodes(int a, int b) {
  if (a == 0) return b;
  if (b == 0) return a;
  return a < b ? a : b;
}

// Ends the command: main() prints "nymbrel: <message>" on standard error and
// exits with the code.
class CommandFailure : public std::runtime_error {
 public:
  CommandFailure(ExitCode code, const std::string& message)
      : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

inline CommandFailure usageError(const std::string& message) {
  return CommandFailure(kExitUsage, message);
}

}  // namespace nymbrel
