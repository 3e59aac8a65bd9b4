// Image uploads and the media they make, over real HTTP.
#include "DevServer.h"

#include <gtest/gtest.h>

namespace nyb::test {
namespace {

const std::string kBoundary = "---------------9a87987G98797";

// The multipart body exactly as the library writes it.
std::string multipart(const std::string& png) {
  return "--" + kBoundary + "\r\n" +
         "Content-Disposition: form-data; name=\"media\"; filename=\"media.png\"\r\n" +
         "Content-Type: application/octet-stream\r\n\r\n" + png + "\r\n--" + kBoundary + "--\r\n";
}

class MediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto res = http->Post(collectionPath("weight"), wrapped("weight", weightRecord("A-1")),
                          "application/json");
    ASSERT_EQ(res->status, 201);
    recordID = parse(res->body)["weight"]["_id"].GetString();
  }
  httplib::Result upload(const std::string& body, const std::string& token = kToken,
                         const std::string& id = "") {
    return http->Post("/v1/organizations/acme/users/u1/weight/" + (id.empty() ? recordID : id) +
                          "/media?authentication_token=" + token,
                      body, "multipart/form-data; boundary=" + kBoundary);
  }

  DevServer server;
  std::unique_ptr<httplib::Client> http = server.client();
  std::string recordID;
};

TEST_F(MediaTest, UploadedPngIsServedToItsOwnerAndKeptOnTheRecord) {
  auto png = makePng(64, 48);
  auto res = upload(multipart(png));
  ASSERT_EQ(res->status, 201) << res->body;
  auto media = parse(res->body);
  std::string url = media["media"]["url"].GetString();
  std::string id = media["media"]["id"].GetString();
  EXPECT_EQ(id.size(), 24u);
  ASSERT_EQ(url.rfind(server.baseURL() + "/", 0), 0u) << url;
  auto path = url.substr(url.find("/v1/"));

  auto image = http->Get(path + "?authentication_token=tok1");
  ASSERT_EQ(image->status, 200);
  EXPECT_EQ(image->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(image->body, png);
  auto anonymous = server.client("");
  EXPECT_EQ(anonymous->Get(path)->status, 401);
  EXPECT_EQ(anonymous->Get(path + "?authentication_token=tok2")->status, 401);
  EXPECT_EQ(anonymous->Get(path + "?authentication_token=tok1")->status, 200);
  EXPECT_EQ(anonymous->Get("/v1/media/0123456789abcdef01234567.png")->status, 404);

  // The record lists its media, and an update from a client (which sends "media": []) keeps them.
  auto updated =
      http->Put(itemPath("weight", recordID),
                wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00","media":[]})"),
                "application/json");
  ASSERT_EQ(updated->status, 200);
  auto answer = parse(updated->body);
  const auto& list = answer["weight"]["media"];
  ASSERT_EQ(list.Size(), 1u);
  EXPECT_EQ(list[0]["id"].GetString(), id);
  EXPECT_EQ(list[0]["url"].GetString(), url);
}

TEST_F(MediaTest, RefusesAnythingButAPngForAKnownRecordOfTheUser) {
  auto png = makePng(8, 8);
  EXPECT_EQ(upload(multipart(png), "tok2")->status, 401);
  EXPECT_EQ(upload(multipart(png), kToken, "0123456789abcdef01234567")->status, 404);
  // Without an image the client sends its token as a JSON body instead.
  auto json = http->Post(
      "/v1/organizations/acme/users/u1/weight/" + recordID + "/media?authentication_token=tok1",
      R"({"authentication_token":"tok1"})", "application/json");
  EXPECT_EQ(json->status, 400);
  EXPECT_EQ(upload(multipart("GIF89a not a png"))->status, 400);
  auto truncated = upload(multipart(png.substr(0, png.size() - 20)));
  EXPECT_EQ(truncated->status, 400);
  EXPECT_TRUE(parse(truncated->body)["errors"].IsArray());
  auto damaged = png;
  damaged[damaged.size() / 2] ^= 0x55;  // breaks a CRC or the compressed data
  EXPECT_EQ(upload(multipart(damaged))->status, 400);
  auto record = parse(http->Get(itemPath("weight", recordID))->body);
  EXPECT_FALSE(record["weight"].HasMember("media"));
}

}  // namespace
}  // namespace nyb::test
