// NYBDocuments: the application's documents directory, where the library
// keeps the session archive ("sessionData") and the photos waiting to be
// uploaded ("images").
//
// The host names the directory with setDocumentsDirectory() before the
// library first uses it; without that, it is $XDG_DATA_HOME/<program name>
// when XDG_DATA_HOME is an absolute path, else ~/.local/share/<program name>.
// documentsDirectory() makes the directory (and any missing parent) with mode
// 0700 the first time it hands out a path, because what is kept there holds an
// access token and health data; failure to make it is left to the first write
// to report.
//
// One process at a time uses a documents directory: holdDocumentsDirectory()
// takes an advisory lock (flock) on "sessionData.lock" in it, which every
// session takes when it starts and keeps while it lives, so that a second
// process fails before it reads or writes any of the first one's files. The
// lock belongs to the process: sessions of one process share it, and the
// system lets go of it when the process ends, however it ends.
//
// Every operation may be called from any thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <string>

namespace nyb {

class NYB_EXPORT NYBDocuments {
 public:
  // The documents directory, made if missing.
  static std::string documentsDirectory();
  // Sets the documents directory; an empty path goes back to the default.
  static void setDocumentsDirectory(std::string path);
  // The default location for this process, from the environment as it is now.
  static std::string defaultDocumentsDirectory();

  // This process's hold on the documents directory as it is now; the lock is
  // kept while any hold on that directory lives. Raises
  // NYBDocumentsDirectoryInUseException (NYBException.h) when another process
  // holds it. When the lock file cannot be made at all (a read-only
  // directory), the hold is empty and the reason is logged: the session's
  // writes then report their own failures.
  static std::shared_ptr<const void> holdDocumentsDirectory();
};

}  // namespace nyb
