// The REST interface's record and media endpoints and how answers are encoded, over real HTTP.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

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
  const auto record = parse(one->body);
  const auto& weight = record["weight"];
  EXPECT_TRUE(std::regex_match(weight["_id"].GetString(), std::regex("[0-9a-f]{24}")));
  EXPECT_TRUE(std::regex_match(weight["last_updated"].GetString(),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+00:00)")));
  EXPECT_EQ(weight["weight"].GetDouble(), 0.1 + 0.2);  // reals keep their value exactly
  EXPECT_EQ(weight["big"].GetUint64(), 12345678901234567890ULL);
  const std::string several = "[" + weightRecord("A-2") + "," + weightRecord("A-3") + "]";
  auto both = http->Post(collectionPath("weight"), wrapped("weight", several), kJson);
  ASSERT_EQ(parse(both->body)["weight"].Size(), 2u);

  // Listed in order under ids of their own; readable one by one; other users and roots see none.
  std::set<std::string> ids;
  std::string activities;
  const auto stored = server.records("weight");  // the loop must not outlive the document
  for (const auto& each : stored.GetArray()) {
    ids.insert(each["_id"].GetString());
    activities += each["activity_id"].GetString();
  }
  EXPECT_EQ(activities, "A-1A-2A-3");
  EXPECT_EQ(ids.size(), 3u);
  EXPECT_EQ(http->Get(itemPath("weight", weight["_id"].GetString()))->body, one->body);
  EXPECT_EQ(server.records("sleep").Size(), 0u);
  EXPECT_EQ(server.records("weight", kOtherUser, kOtherToken).Size(), 0u);
}

TEST_F(RecordsTest, UpdateUpsertAndDeleteFindTheirRecordOrAnswer404) {
  auto id = post("A-1");
  auto put = [&](const std::string& path, const std::string& record) {
    return http->Put(path, wrapped("weight", record), kJson);
  };
  ASSERT_EQ(put(itemPath("weight", id), weightRecord("A-1", 70.5))->status, 200);
  EXPECT_EQ(parse(http->Get(itemPath("weight", id))->body)["weight"]["weight"].GetDouble(), 70.5);
  const std::string unknown = itemPath("weight", "0123456789abcdef01234567");
  auto missing = put(unknown, weightRecord("A-1"));
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(parse(missing->body)["errors"][0]["code"].GetInt(), 404);
  EXPECT_EQ(http->Get(unknown)->status, 404);

  // The client sends "." as %2E and leaves "/" alone, so the slash splits the path.
  const std::string byActivity = "/v1/organizations/acme/users/u1/weight/activity_id/";
  auto created = put(byActivity + "a%2Eb/c", weightRecord("a.b/c", 60));
  ASSERT_EQ(created->status, 201) << created->body;
  auto replaced = put(byActivity + "a%2Eb/c", weightRecord("a.b/c", 61));
  ASSERT_EQ(replaced->status, 200) << replaced->body;
  EXPECT_EQ(parse(created->body)["weight"]["_id"], parse(replaced->body)["weight"]["_id"]);
  auto stored = server.records("weight");
  ASSERT_EQ(stored.Size(), 2u);
  EXPECT_EQ(stored[1]["weight"].GetDouble(), 61);
  EXPECT_STREQ(stored[1]["activity_id"].GetString(), "a.b/c");
  // A record without activity_id takes the path's; one with another is refused.
  auto bare = put(byActivity + "other", R"({"timestamp":"2016-03-01T14:05:09+00:00"})");
  EXPECT_EQ(bare->status, 201);
  EXPECT_STREQ(parse(bare->body)["weight"]["activity_id"].GetString(), "other");
  EXPECT_EQ(put(byActivity + "a%2Eb/c", weightRecord("elsewhere"))->status, 400);

  auto deleted = http->Delete(itemPath("weight", id), "{\"authentication_token\":\"tok1\"}", kJson);
  ASSERT_EQ(deleted->status, 200) << deleted->body;
  auto answer = parse(deleted->body);
  EXPECT_TRUE(answer["code"].GetInt() == 200 && answer["message"].IsString()) << deleted->body;
  EXPECT_STREQ(answer["activity_id"].GetString(), "A-1");
  EXPECT_EQ(http->Delete(itemPath("weight", id))->status, 404);
  EXPECT_EQ(server.records("weight").Size(), 2u);
}

// Every token must be the path user's; malformed bodies are 400, records without a timestamp 422.
TEST_F(RecordsTest, RefusalsAnswerAnErrorsBodyAndStoreNothing) {
  const auto weights = collectionPath("weight");
  const auto body = wrapped("weight", weightRecord("A-1"));
  const struct {
    std::string token, path, body, type = kJson;  // no body: a GET
    int status;
  } cases[] = {
      {"nope", weights, body, kJson, 401},
      {kToken, weights, wrapped("weight", weightRecord("A-1"), "nope"), kJson, 401},
      {kToken, weights + "?authentication_token=nope", "", "", 401},
      {kOtherToken, weights, "", "", 401},
      {kToken, collectionPath("weight", "stranger"), "", "", 401},
      {"", weights, "", "", 401},
      {"", weights, R"({"weight":{}})", kJson, 401},
      {kToken, collectionPath("weights"), wrapped("weights", weightRecord("A")), kJson, 404},
      {kToken, weights, "{\"weight\": ", kJson, 400},
      {kToken, weights, body, "text/plain", 400},
      {kToken, weights, "[1, 2]", kJson, 400},
      {kToken, weights, wrapped("sleep", weightRecord("A")), kJson, 400},
      {kToken, weights, wrapped("weight", "\"heavy\""), kJson, 400},
      {kToken, weights, wrapped("weight", "[]"), kJson, 400},
      {kToken, weights,
       wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00","activity_id":7})"), kJson,
       400},
      {kToken, weights,
       wrapped("weight", R"({"timestamp":"2016-03-01 14:05:09","activity_id":"T"})"), kJson, 422},
  };
  for (const auto& c : cases) {
    auto client = server.client(c.token);
    auto res = c.body.empty() ? client->Get(c.path) : client->Post(c.path, c.body, c.type);
    EXPECT_EQ(res->status, c.status) << c.token << " " << c.path << " " << c.body;
    EXPECT_EQ(parse(res->body)["errors"][0]["code"].GetInt(), c.status) << res->body;
  }
  // One bad record fails the whole batch; each entry names its record's activity ID.
  const std::string batch =
      "[" + weightRecord("good") + R"(,{"activity_id":"late","weight":1},{"weight":2}])";
  auto answer = parse(http->Post(weights, wrapped("weight", batch), kJson)->body);
  const auto& errors = answer["errors"];
  ASSERT_EQ(errors.Size(), 2u);
  EXPECT_EQ(errors[0]["code"].GetInt(), 422);
  EXPECT_STREQ(errors[0]["activity_id"].GetString(), "late");
  EXPECT_FALSE(errors[1].HasMember("activity_id"));
  EXPECT_EQ(server.records("weight").Size(), 0u);

  // One right token is enough, wherever it is.
  auto anonymous = server.client("");
  EXPECT_EQ(anonymous->Post(weights, body, kJson)->status, 201);
  EXPECT_EQ(anonymous->Get(weights + "?authentication_token=tok1")->status, 200);
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
  EXPECT_EQ(media["media"]["id"].GetStringLength(), 24u);
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

// Small answers go as they are, large ones with gzip when the client takes it, never brotli.
TEST_F(RecordsTest, OnlyLargeAnswersAreCompressedAndOnlyWithGzip) {
  http->set_decompress(false);
  const httplib::Headers offered{{"Accept-Encoding", "br, gzip"}};
  for (int i = 0; i < 10; ++i) {
    auto created =
        http->Post(collectionPath("weight"), offered,
                   wrapped("weight", weightRecord("a" + std::to_string(i))), "application/json");
    ASSERT_TRUE(created);
    EXPECT_EQ(created->status, 201);
    EXPECT_FALSE(created->has_header("Content-Encoding"));
  }
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"br, gzip", "gzip"}, {"br", ""}, {"gzip;q=0, br", ""}, {"identity", ""}};
  for (const auto& [accepted, coding] : cases) {
    SCOPED_TRACE(accepted);
    auto listed = http->Get(collectionPath("weight"), {{"Accept-Encoding", accepted}});
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->status, 200);
    EXPECT_EQ(listed->get_header_value("Content-Encoding"), coding);
    if (coding.empty()) {
      EXPECT_EQ(parse(listed->body)["weight"].Size(), 10u);
    } else {
      EXPECT_EQ(listed->body.substr(0, 2), "\x1f\x8b");
    }
  }
}

}  // namespace
}  // namespace nyb::test
