#include "DevServer.h"

#include <gtest/gtest.h>
#include <png.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace nyb::test {

DevServer::DevServer(const std::vector<std::string>& extraArguments) {
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

DevServer::~DevServer() {
  if (process_->pid() > 0) {
    EXPECT_EQ(stop(), 0) << "the devserver did not shut down cleanly";
  }
}

int DevServer::stop(int signal) {
  if (process_->pid() <= 0) return -1;
  process_->kill(signal);
  return process_->wait();
}

std::unique_ptr<httplib::Client> DevServer::client(const std::string& token) const {
  auto client = std::make_unique<httplib::Client>("127.0.0.1", port_);
  client->set_keep_alive(true);
  client->set_tcp_nodelay(true);
  httplib::Headers headers = {{"Nymbrel-Version", "2015-10-01"}, {"Accept", "application/json"}};
  if (!token.empty()) headers.emplace("X-Nymbrel-Mobile-Token", token);
  client->set_default_headers(headers);
  return client;
}

bool DevServer::addFault(const std::string& json) const {
  auto res = client("")->Post("/control/faults", json, "application/json");
  return res && res->status == 201;
}

rapidjson::Document DevServer::records(const std::string& root, const std::string& user,
                                       const std::string& token) const {
  auto answer = client(token)->Get(collectionPath(root, user));
  EXPECT_TRUE(answer && answer->status == 200) << collectionPath(root, user);
  rapidjson::Document all = parse(answer ? answer->body : "{}"), list(rapidjson::kArrayType);
  if (all.IsObject() && all.HasMember(root.c_str()))
    list.CopyFrom(all[root.c_str()], list.GetAllocator());
  return list;
}

std::string mediaPath(const std::string& url, const std::string& token) {
  return url.substr(url.find("/v1/")) + "?authentication_token=" + token;
}

std::string collectionPath(const std::string& root, const std::string& user) {
  return "/v1/organizations/" + kOrg + "/users/" + user + "/" + root + ".json";
}

std::string itemPath(const std::string& root, const std::string& id, const std::string& user) {
  return collectionPath(root + "/" + id, user);
}

std::string wrapped(const std::string& root, const std::string& recordJson,
                    const std::string& token) {
  return "{\"" + root + "\":" + recordJson + ",\"authentication_token\":\"" + token + "\"}";
}

std::string weightRecord(const std::string& activityID, double weight) {
  return "{\"timestamp\":\"2016-03-01T14:05:09+00:00\",\"utc_offset\":\"+01:00\",\"weight\":" +
         std::to_string(weight) + ",\"activity_id\":\"" + activityID +
         "\",\"source\":\"nymbrelmobile\",\"extras\":{\"mobile_os\":\"iOS\"}}";
}

rapidjson::Document parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(text.c_str());
  EXPECT_FALSE(document.HasParseError()) << text;
  return document;
}

std::string makePng(unsigned width, unsigned height) {
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
