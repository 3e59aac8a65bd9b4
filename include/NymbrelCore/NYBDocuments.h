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
// Every operation may be called from any thread.
#pragma once

#include <string>

namespace nyb {

class NYBDocuments {
 public:
  // The documents directory, made if missing.
  static std::string documentsDirectory();
  // Sets the documents directory; an empty path goes back to the default.
  static void setDocumentsDirectory(std::string path);
  // The default location for this process, from the environment as it is now.
  static std::string defaultDocumentsDirectory();
};

}  // namespace nyb
