// The record and media endpoints of the REST interface, over real HTTP.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <thread>

namespace nyb::test {
namespace {

const std::string kJson = "application/json";
const std::string kBoundary = "---------------9a87987G98797";

// The multipart body exactly as the library writes it.
std::string multipart(const std::string& png) {
  return "--" + kBoundary + "\r\n" +
         "Content-Disposition: form-data; name=\"media\"; filename=\"media.png\"\r\n" +
         "Content-Type: application/octet-stream\r\n\r\n" + png + "\r\n--" + kBoundary + "--\r\n";
}

class RecordsTest : public ::testing::Test {
 protected:
  // Posts one weight record and returns its _id.
  std::string post(const std::string& activityID, double weight = 68.0388555) {
    auto res = http->Post(collectionPath("weight"),
                          wrapped("weight", weightRecord(activityID, weight)), kJson);
    EXPECT_EQ(res->status, 201) << res->body;
    return parse(res->body)["weight"]["_id"].GetString();
  }
  rapidjson::Document all(const std::string& root = "weight") {
    auto res = http->Get(collectionPath(root));
    EXPECT_EQ(res->status, 200);
    return parse(res->body);
  }
  size_t count(const std::string& root = "weight") { return all(root)[root.c_str()].Size(); }
  httplib::Result upload(const std::string& id, const std::string& body,
                         const std::string& token = kToken,
                         const std::string& type = "multipart/form-data; boundary=" + kBoundary) {
    return http->Post(
        "/v1/organizations/acme/users/u1/weight/" + id + "/media?authentication_token=" + token,
        body, type);
  }

  DevServer server;
  std::unique_ptr<httplib::Client> http = server.client();
};

TEST_F(RecordsTest, PostStampsRecordsAndAnswersThemUnderTheirRoot) {
  auto one = http->Post(collectionPath("weight"),
                        wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00",
                          "weight":0.30000000000000004,"big":12345678901234567890,
                          "_id":"client-made","activity_id":"A-1"})"),
                        kJson);
  ASSERT_EQ(one->status, 201) << one->body;
  auto record = parse(one->body);
  const auto& weight = record["weight"];
  EXPECT_TRUE(std::regex_match(weight["_id"].GetString(), std::regex("[0-9a-f]{24}")));
  EXPECT_TRUE(std::regex_match(weight["last_updated"].GetString(),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+00:00)")));
  EXPECT_EQ(weight["weight"].GetDouble(), 0.1 + 0.2);  // reals keep their value exactly
  EXPECT_EQ(weight["big"].GetUint64(), 12345678901234567890ULL);

  auto several = http->Post(
      collectionPath("weight"),
      wrapped("weight", "[" + weightRecord("A-2") + "," + weightRecord("A-3") + "]"), kJson);
  ASSERT_EQ(several->status, 201) << several->body;
  auto list = parse(several->body);
  ASSERT_EQ(list["weight"].Size(), 2u);
  std::set<std::string> ids = {weight["_id"].GetString(), list["weight"][0]["_id"].GetString(),
                               list["weight"][1]["_id"].GetString()};
  EXPECT_EQ(ids.size(), 3u);

  // Listed in order; readable one by one; other users and roots see none of them.
  auto stored = all();
  ASSERT_EQ(stored["weight"].Size(), 3u);
  EXPECT_STREQ(stored["weight"][0]["activity_id"].GetString(), "A-1");
  EXPECT_STREQ(stored["weight"][2]["activity_id"].GetString(), "A-3");
  EXPECT_EQ(http->Get(itemPath("weight", weight["_id"].GetString()))->body, one->body);
  EXPECT_EQ(count("sleep"), 0u);
  auto other = server.client(kOtherToken)->Get(collectionPath("weight", kOtherUser));
  EXPECT_EQ(parse(other->body)["weight"].Size(), 0u);
}

TEST_F(RecordsTest, UpdateUpsertAndDeleteFindTheirRecordOrAnswer404) {
  auto id = post("A-1");
  auto updated =
      http->Put(itemPath("weight", id), wrapped("weight", weightRecord("A-1", 70.5)), kJson);
  ASSERT_EQ(updated->status, 200) << updated->body;
  EXPECT_EQ(parse(http->Get(itemPath("weight", id))->body)["weight"]["weight"].GetDouble(), 70.5);
  const std::string unknown = "0123456789abcdef01234567";
  auto missing =
      http->Put(itemPath("weight", unknown), wrapped("weight", weightRecord("A-1")), kJson);
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(parse(missing->body)["errors"][0]["code"].GetInt(), 404);
  EXPECT_EQ(http->Get(itemPath("weight", unknown))->status, 404);

  // The client sends "." as %2E and leaves "/" alone, so the slash splits the path.
  const std::string path = "/v1/organizations/acme/users/u1/weight/activity_id/a%2Eb/c";
  auto created = http->Put(path, wrapped("weight", weightRecord("a.b/c", 60)), kJson);
  ASSERT_EQ(created->status, 201) << created->body;
  auto replaced = http->Put(path, wrapped("weight", weightRecord("a.b/c", 61)), kJson);
  ASSERT_EQ(replaced->status, 200) << replaced->body;
  EXPECT_EQ(parse(created->body)["weight"]["_id"], parse(replaced->body)["weight"]["_id"]);
  auto stored = all();
  ASSERT_EQ(stored["weight"].Size(), 2u);
  EXPECT_EQ(stored["weight"][1]["weight"].GetDouble(), 61);
  EXPECT_STREQ(stored["weight"][1]["activity_id"].GetString(), "a.b/c");
  // A record without activity_id takes the path's; one with another is refused.
  auto bare = http->Put("/v1/organizations/acme/users/u1/weight/activity_id/other",
                        wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00"})"), kJson);
  EXPECT_EQ(bare->status, 201);
  EXPECT_STREQ(parse(bare->body)["weight"]["activity_id"].GetString(), "other");
  EXPECT_EQ(http->Put(path, wrapped("weight", weightRecord("elsewhere")), kJson)->status, 400);

  auto deleted = http->Delete(itemPath("weight", id), "{\"authentication_token\":\"tok1\"}", kJson);
  ASSERT_EQ(deleted->status, 200) << deleted->body;
  auto answer = parse(deleted->body);
  EXPECT_EQ(answer["code"].GetInt(), 200);
  EXPECT_TRUE(answer["message"].IsString());
  EXPECT_STREQ(answer["activity_id"].GetString(), "A-1");
  EXPECT_EQ(http->Delete(itemPath("weight", id))->status, 404);
  EXPECT_EQ(count(), 2u);
}

TEST_F(RecordsTest, EveryTokenMustBeThePathUsers) {
  auto body = wrapped("weight", weightRecord("A-1"));
  auto anonymous = server.client("");
  auto wrongHeader = server.client("nope")->Post(collectionPath("weight"), body, kJson);
  EXPECT_EQ(wrongHeader->status, 401);
  EXPECT_EQ(parse(wrongHeader->body)["errors"][0]["code"].GetInt(), 401);
  const int refused[] = {
      http->Post(collectionPath("weight"), wrapped("weight", weightRecord("A-1"), "nope"), kJson)
          ->status,
      http->Get(collectionPath("weight") + "?authentication_token=nope")->status,
      server.client(kOtherToken)->Get(collectionPath("weight"))->status,
      http->Get(collectionPath("weight", "stranger"))->status,
      anonymous->Get(collectionPath("weight"))->status,
      anonymous->Post(collectionPath("weight"), R"({"weight":{}})", kJson)->status};
  for (int status : refused) EXPECT_EQ(status, 401);
  EXPECT_EQ(count(), 0u);

  // One right token is enough, wherever it is.
  EXPECT_EQ(anonymous->Post(collectionPath("weight"), body, kJson)->status, 201);
  EXPECT_EQ(anonymous->Get(collectionPath("weight") + "?authentication_token=tok1")->status, 200);
}

TEST_F(RecordsTest, MalformedBodiesAre400AndRecordsWithoutTimestampAre422) {
  auto status = [&](const std::string& path, const std::string& body,
                    const std::string& type = kJson) {
    auto res = http->Post(path, body, type);
    EXPECT_TRUE(parse(res->body)["errors"].IsArray()) << res->body;
    return res->status;
  };
  auto weights = collectionPath("weight");
  EXPECT_EQ(status(collectionPath("weights"), wrapped("weights", weightRecord("A"))), 404);
  EXPECT_EQ(status(weights, "{\"weight\": "), 400);
  EXPECT_EQ(status(weights, wrapped("weight", weightRecord("A")), "text/plain"), 400);
  EXPECT_EQ(status(weights, "[1, 2]"), 400);
  EXPECT_EQ(status(weights, wrapped("sleep", weightRecord("A"))), 400);
  EXPECT_EQ(status(weights, wrapped("weight", "\"heavy\"")), 400);
  EXPECT_EQ(status(weights, wrapped("weight", "[]")), 400);
  EXPECT_EQ(
      status(weights,
             wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00","activity_id":7})")),
      400);
  EXPECT_EQ(status(weights,
                   wrapped("weight", R"({"timestamp":"2016-03-01 14:05:09","activity_id":"T"})")),
            422);

  // One bad record fails the whole batch; each entry names its record's activity ID.
  auto batch =
      http->Post(weights,
                 wrapped("weight", "[" + weightRecord("good") +
                                       R"(,{"activity_id":"late","weight":1},{"weight":2}])"),
                 kJson);
  ASSERT_EQ(batch->status, 422);
  auto answer = parse(batch->body);
  auto errors = answer["errors"].GetArray();
  ASSERT_EQ(errors.Size(), 2u);
  EXPECT_EQ(errors[0]["code"].GetInt(), 422);
  EXPECT_STREQ(errors[0]["activity_id"].GetString(), "late");
  EXPECT_FALSE(errors[1].HasMember("activity_id"));
  EXPECT_EQ(count(), 0u);
}

TEST_F(RecordsTest, OnlyAWholePngForAKnownRecordOfTheUserBecomesItsMedia) {
  auto id = post("A-1");
  auto png = makePng(64, 48);
  EXPECT_EQ(upload(id, multipart(png), "tok2")->status, 401);
  EXPECT_EQ(upload("0123456789abcdef01234567", multipart(png))->status, 404);
  // Without an image the client sends its token as a JSON body instead.
  EXPECT_EQ(upload(id, R"({"authentication_token":"tok1"})", kToken, kJson)->status, 400);
  auto damaged = png;
  damaged[damaged.size() / 2] ^= 0x55;  // breaks a CRC or the compressed data
  for (const auto& bad :
       {std::string("GIF89a not a png"), png.substr(0, png.size() - 20), damaged}) {
    auto res = upload(id, multipart(bad));
    EXPECT_EQ(res->status, 400);
    EXPECT_TRUE(parse(res->body)["errors"].IsArray());
  }
  EXPECT_FALSE(parse(http->Get(itemPath("weight", id))->body)["weight"].HasMember("media"));

  auto res = upload(id, multipart(png));
  ASSERT_EQ(res->status, 201) << res->body;
  auto media = parse(res->body);
  std::string url = media["media"]["url"].GetString();
  EXPECT_EQ(std::string(media["media"]["id"].GetString()).size(), 24u);
  ASSERT_EQ(url.rfind(server.baseURL() + "/", 0), 0u) << url;
  auto image = http->Get(mediaPath(url));
  EXPECT_EQ(image->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(image->body, png);
  auto anonymous = server.client("");
  EXPECT_EQ(anonymous->Get(url.substr(url.find("/v1/")))->status, 401);
  EXPECT_EQ(anonymous->Get(mediaPath(url, kOtherToken))->status, 401);
  EXPECT_EQ(anonymous->Get("/v1/media/0123456789abcdef01234567.png")->status, 404);

  // An update from a client (which sends "media": []) keeps the record's media.
  auto updated = http->Put(
      itemPath("weight", id),
      wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00","media":[]})"), kJson);
  ASSERT_EQ(updated->status, 200);
  auto answer = parse(updated->body);
  ASSERT_EQ(answer["weight"]["media"].Size(), 1u);
  EXPECT_EQ(answer["weight"]["media"][0]["url"].GetString(), url);
}

TEST_F(RecordsTest, ConcurrentClientsAreAllAnsweredAndEachRecordIsStoredOnce) {
  constexpr int kClients = 4, kPerClient = 1000;
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&, c] {
      auto mine = server.client();
      for (int i = 0; i < kPerClient; ++i) {
        auto res =
            mine->Post(collectionPath("weight"),
                       wrapped("weight", weightRecord(std::to_string(c * kPerClient + i))), kJson);
        EXPECT_TRUE(res && res->status == 201);
      }
    });
  }
  for (auto& client : clients) client.join();
  auto stored = all();
  std::set<std::string> ids, activities;
  for (const auto& each : stored["weight"].GetArray()) {
    ids.insert(each["_id"].GetString());
    activities.insert(each["activity_id"].GetString());
  }
  EXPECT_EQ(stored["weight"].Size(), size_t{kClients * kPerClient});
  EXPECT_EQ(ids.size(), size_t{kClients * kPerClient});
  EXPECT_EQ(activities.size(), size_t{kClients * kPerClient});
}

}  // namespace
}  // namespace nyb::test
