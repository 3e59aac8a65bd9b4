// Test support: the real nymbrel-devserver as a child process, spoken to over loopback HTTP.
//
// DevServer starts the binary with "--port 0" and two users (acme/u1 token tok1, acme/u2
// token tok2) plus any extra arguments, reads the base URL from the first line of its
// standard output (bounded wait), and stops it with SIGTERM when destroyed, expecting a
// clean exit. Helpers build the REST paths and bodies the library sends.
#pragma once

#include <httplib.h>
#include <rapidjson/document.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace nyb::test {

inline const std::string kOrg = "acme";
inline const std::string kUser = "u1";
inline const std::string kToken = "tok1";
inline const std::string kOtherUser = "u2";
inline const std::string kOtherToken = "tok2";

class DevServer {
 public:
  explicit DevServer(const std::vector<std::string>& extraArguments = {});
  ~DevServer();
  DevServer(const DevServer&) = delete;
  DevServer& operator=(const DevServer&) = delete;

  // Sends `signal` and waits; the exit code, or -1 when the process did not exit normally.
  int stop(int signal = SIGTERM);

  int port() const { return port_; }
  const std::string& baseURL() const { return baseURL_; }

  // A keep-alive client sending the token header (when `token` is not empty).
  std::unique_ptr<httplib::Client> client(const std::string& token = kToken) const;
  // POSTs a rule to the fault endpoint; false unless it was taken.
  bool addFault(const std::string& json) const;
  // The array of records the server holds for the user under `root`.
  rapidjson::Document records(const std::string& root, const std::string& user = kUser,
                              const std::string& token = kToken) const;

 private:
  std::unique_ptr<ChildProcess> process_;
  int port_ = 0;
  std::string baseURL_;
};

// "/v1/organizations/acme/users/u1/weight.json", and ".../weight/{id}.json".
std::string collectionPath(const std::string& root, const std::string& user = kUser);
std::string itemPath(const std::string& root, const std::string& id,
                     const std::string& user = kUser);

// {"<root>": <record>, "authentication_token": token}
std::string wrapped(const std::string& root, const std::string& recordJson,
                    const std::string& token = kToken);
// A weight record with a timestamp, the given activity ID and weight.
std::string weightRecord(const std::string& activityID, double weight = 68.0388555);
// The path of a media URL, with the token as a query parameter.
std::string mediaPath(const std::string& url, const std::string& token = kToken);

rapidjson::Document parse(const std::string& text);

// A real PNG image of width x height pixels, encoded by libpng.
std::string makePng(unsigned width, unsigned height);

}  // namespace nyb::test
