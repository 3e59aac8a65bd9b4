// The options that several commands share, and how they configure the
// library before its first use.
//
//   --data-dir DIR   where the archive and the photos live (NYMBREL_DATA_DIR;
//                    default: the library's, $XDG_DATA_HOME/nymbrel)
//   --key-file FILE  the key that keeps them encrypted (NYMBREL_KEY_FILE): 32
//                    bytes, raw or as 64 hexadecimal digits
//   --server URL     the service's base URL (NYMBREL_BASE_URL; default: the
//                    URL the library was built with)
//   --org, --user, --token   the user (NYMBREL_ORG, NYMBREL_USER, NYMBREL_TOKEN)
//   --timeout S      how long to wait for the service
//   --discard-queue  start a session for another user even when the data
//                    directory still holds records of the earlier one
//   --verbose        show the library's own log on standard error
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace nymbrel {

struct CommonOptions {
  std::string dataDir;
  std::string keyFile;
  std::string server;
  std::string org;
  std::string user;
  std::string token;
  double timeoutSeconds = 60;
  bool discardQueue = false;
  bool verbose = false;
};

struct UserCredentials {
  std::string org;
  std::string user;
  std::string token;
  friend bool operator==(const UserCredentials&, const UserCredentials&) = default;
};

// --data-dir and --key-file.
void addDataDirOption(CLI::App& command, CommonOptions& options);
// --server, --org, --user, --token, --timeout, --discard-queue.
void addServiceOptions(CLI::App& command, CommonOptions& options);
void addVerboseOption(CLI::App& command, CommonOptions& options);

// The documents directory the library will use, without making it.
std::string documentsDirectory(const CommonOptions& options);
// The user given on the command line or in the environment; absent when none
// of the three is given. Some but not all of them is a usage error.
std::optional<UserCredentials> givenCredentials(const CommonOptions& options);

// Points the library at the data directory, its key and the server and routes
// its log; must run before anything else touches the library. A --server that
// is no http(s) URL is a usage error; a key file that cannot be read or holds
// no key ends the run with kExitKey.
void configureLibrary(const CommonOptions& options);

// The service's base URL as the library will use it.
std::string baseURL();

}  // namespace nymbrel
