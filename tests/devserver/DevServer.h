// Test support: the real nymbrel-devserver as a child process, spoken to over loopback HTTP.
//
// DevServer starts the binary with "--port 0" and two users (acme/u1 token tok1, acme/u2
// token tok2) plus any extra arguments, reads the base URL from the first line of its
// standard output (bounded wait), and stops it with SIGTERM when destroyed, expecting a
// clean exit. Helpers build the REST paths and bodies the library sends.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>
#include <png.h>
#include <rapidjson/document.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
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

inline rapidjson::Document parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(text.c_str());
  EXPECT_FALSE(document.HasParseError()) << text;
  return document;
}

// "/v1/organizations/acme/users/u1/weight.json", and ".../weight/{id}.json".
inline std::string collectionPath(const std::string& root, const std::string& user = kUser) {
  return "/v1/organizations/" + kOrg + "/users/" + user + "/" + root + ".json";
}
inline std::string itemPath(const std::string& root, const std::string& id,
                            const std::string& user = kUser) {
  return collectionPath(root + "/" + id, user);
}

class DevServer {
 public:
  explicit DevServer(const std::vector<std::string>& extraArguments = {}) {
    std::vector<std::string> arguments = {NYB_DEVSERVER_PATH, "--port", "0"};
    for (const auto& [user, token] : {std::pair(kUser, kToken), std::pair(kOtherUser, kOtherToken)})
      arguments.insert(arguments.end(), {"--user", kOrg + ":" + user + ":" + token});
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    process_ = std::make_unique<ChildProcess>(arguments);
    // The first line is the base URL; wait for it, but not forever.
    const std::string line = process_->readLine(std::chrono::seconds(30)).value_or("");
    process_->closeOutput();
    const auto colon = line.rfind(':');
    if (line.rfind("http://127.0.0.1:", 0) != 0 || colon == std::string::npos) {
      stop(SIGKILL);
      throw std::runtime_error("the devserver printed no base URL: \"" + line + "\"");
    }
    baseURL_ = line;
    port_ = std::atoi(line.c_str() + colon + 1);
  }
  ~DevServer() {
    if (process_->pid() > 0) {
      EXPECT_EQ(stop(), 0) << "the devserver did not shut down cleanly";
    }
  }
  DevServer(const DevServer&) = delete;
  DevServer& operator=(const DevServer&) = delete;

  // Sends `signal` and waits; the exit code, or -1 when the process did not exit normally.
  int stop(int signal = SIGTERM) {
    if (process_->pid() <= 0) return -1;
    process_->kill(signal);
    return process_->wait();
  }

  int port() const { return port_; }
  const std::string& baseURL() const { return baseURL_; }

  // A keep-alive client sending the token header (when `token` is not empty).
  std::unique_ptr<httplib::Client> client(const std::string& token = kToken) const {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", port_);
    client->set_keep_alive(true);
    client->set_tcp_nodelay(true);
    httplib::Headers headers = {{"Nymbrel-Version", "2015-10-01"}, {"Accept", "application/json"}};
    if (!token.empty()) headers.emplace("X-Nymbrel-Mobile-Token", token);
    client->set_default_headers(headers);
    return client;
  }
  // POSTs a rule to the fault endpoint; false unless it was taken.
  bool addFault(const std::string& json) const {
    auto res = client("")->Post("/control/faults", json, "application/json");
    return res && res->status == 201;
  }
  // The array of records the server holds for the user under `root`.
  rapidjson::Document records(const std::string& root, const std::string& user = kUser,
                              const std::string& token = kToken) const {
    auto answer = client(token)->Get(collectionPath(root, user));
    EXPECT_TRUE(answer && answer->status == 200) << collectionPath(root, user);
    rapidjson::Document all = parse(answer ? answer->body : "{}"), list(rapidjson::kArrayType);
    if (all.IsObject() && all.HasMember(root.c_str()))
      list.CopyFrom(all[root.c_str()], list.GetAllocator());
    return list;
  }

 private:
  std::unique_ptr<ChildProcess> process_;
  int port_ = 0;
  std::string baseURL_;
};

// {"<root>": <record>, "authentication_token": token}
inline std::string wrapped(const std::string& root, const std::string& recordJson,
                           const std::string& token = kToken) {
  return "{\"" + root + "\":" + recordJson + ",\"authentication_token\":\"" + token + "\"}";
}

// A weight record with a timestamp, the given activity ID and weight.
inline std::string weightRecord(const std::string& activityID, double weight = 68.0388555) {
  return "{\"timestamp\":\"2016-03-01T14:05:09+00:00\",\"utc_offset\":\"+01:00\",\"weight\":" +
         std::to_string(weight) + ",\"activity_id\":\"" + activityID +
         "\",\"source\":\"nymbrelmobile\",\"extras\":{\"mobile_os\":\"iOS\"}}";
}

// The path of a media URL, with the token as a query parameter.
inline std::string mediaPath(const std::string& url, const std::string& token = kToken) {
  return url.substr(url.find("/v1/")) + "?authentication_token=" + token;
}

// A real PNG image of width x height pixels, encoded by libpng.
inline std::string makePng(unsigned width, unsigned height) {
  std::vector<unsigned char> pixels(size_t{width} * height * 4);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i * 7);
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = width;
  image.height = height;
  image.format = PNG_FORMAT_RGBA;
  // Room enough for any image this small, however it compresses.
  std::string png(pixels.size() * 2 + 1024, '\0');
  png_alloc_size_t size = png.size();
  if (png_image_write_to_memory(&image, png.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
    throw std::runtime_error("libpng could not encode the test image");
  }
  png.resize(size);
  return png;
}

}  // namespace nyb::test
