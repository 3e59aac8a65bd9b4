// The record endpoints of the REST interface, over real HTTP.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace nyb::test {
namespace {

const std::string kJson = "application/json";

class RecordsTest : public ::testing::Test {
 protected:
  // Posts one weight record and returns its _id.
  std::string post(const std::string& activityID, double weight = 68.0388555) {
    auto res = http->Post(collectionPath("weight"),
                          wrapped("weight", weightRecord(activityID, weight)), kJson);
    EXPECT_EQ(res->status, 201) << res->body;
    return parse(res->body)["weight"]["_id"].GetString();
  }
  size_t count(const std::string& root = "weight") {
    auto res = http->Get(collectionPath(root));
    EXPECT_EQ(res->status, 200);
    return parse(res->body)[root.c_str()].Size();
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
  EXPECT_STREQ(weight["activity_id"].GetString(), "A-1");

  auto several = http->Post(
      collectionPath("weight"),
      wrapped("weight", "[" + weightRecord("A-2") + "," + weightRecord("A-3") + "]"), kJson);
  ASSERT_EQ(several->status, 201) << several->body;
  auto list = parse(several->body);
  ASSERT_EQ(list["weight"].Size(), 2u);
  EXPECT_STREQ(list["weight"][1]["activity_id"].GetString(), "A-3");
  std::set<std::string> ids = {weight["_id"].GetString(), list["weight"][0]["_id"].GetString(),
                               list["weight"][1]["_id"].GetString()};
  EXPECT_EQ(ids.size(), 3u);

  // Listed in order; readable one by one; other users and roots see none of them.
  auto all = parse(http->Get(collectionPath("weight"))->body);
  ASSERT_EQ(all["weight"].Size(), 3u);
  EXPECT_STREQ(all["weight"][0]["activity_id"].GetString(), "A-1");
  auto read = http->Get(itemPath("weight", weight["_id"].GetString()));
  EXPECT_EQ(read->status, 200);
  EXPECT_EQ(read->body, one->body);
  EXPECT_EQ(count("sleep"), 0u);
  auto other = server.client(kOtherToken)->Get(collectionPath("weight", kOtherUser));
  EXPECT_EQ(parse(other->body)["weight"].Size(), 0u);
}

TEST_F(RecordsTest, UpdateReplacesByIdAndUnknownIdsAre404) {
  auto id = post("A-1");
  auto updated =
      http->Put(itemPath("weight", id), wrapped("weight", weightRecord("A-1", 70.5)), kJson);
  ASSERT_EQ(updated->status, 200) << updated->body;
  EXPECT_STREQ(parse(updated->body)["weight"]["_id"].GetString(), id.c_str());
  auto stored = parse(http->Get(itemPath("weight", id))->body);
  EXPECT_EQ(stored["weight"]["weight"].GetDouble(), 70.5);
  EXPECT_EQ(count(), 1u);

  const std::string unknown = "0123456789abcdef01234567";
  auto missing =
      http->Put(itemPath("weight", unknown), wrapped("weight", weightRecord("A-1")), kJson);
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(parse(missing->body)["errors"][0]["code"].GetInt(), 404);
  EXPECT_EQ(http->Get(itemPath("weight", unknown))->status, 404);
  EXPECT_EQ(count(), 1u);
}

TEST_F(RecordsTest, UpsertCreatesThenReplacesTheRecordOfAnActivity) {
  // The client sends "." as %2E and leaves "/" alone, so the slash splits the path.
  const std::string path = "/v1/organizations/acme/users/u1/weight/activity_id/a%2Eb/c";
  auto created = http->Put(path, wrapped("weight", weightRecord("a.b/c", 60)), kJson);
  ASSERT_EQ(created->status, 201) << created->body;
  auto replaced = http->Put(path, wrapped("weight", weightRecord("a.b/c", 61)), kJson);
  ASSERT_EQ(replaced->status, 200) << replaced->body;
  auto first = parse(created->body);
  auto second = parse(replaced->body);
  EXPECT_STREQ(first["weight"]["_id"].GetString(), second["weight"]["_id"].GetString());
  auto all = parse(http->Get(collectionPath("weight"))->body);
  ASSERT_EQ(all["weight"].Size(), 1u);
  EXPECT_EQ(all["weight"][0]["weight"].GetDouble(), 61);
  EXPECT_STREQ(all["weight"][0]["activity_id"].GetString(), "a.b/c");

  // A record without activity_id takes the path's; one with another is refused.
  auto bare = http->Put("/v1/organizations/acme/users/u1/weight/activity_id/other",
                        wrapped("weight", R"({"timestamp":"2016-03-01T14:05:09+00:00"})"), kJson);
  EXPECT_EQ(bare->status, 201);
  EXPECT_STREQ(parse(bare->body)["weight"]["activity_id"].GetString(), "other");
  auto mismatch = http->Put(path, wrapped("weight", weightRecord("elsewhere")), kJson);
  EXPECT_EQ(mismatch->status, 400);
  EXPECT_EQ(count(), 2u);
}

TEST_F(RecordsTest, DeleteAnswersAServerResponseAndForgetsTheRecord) {
  auto id = post("A-9");
  auto deleted = http->Delete(itemPath("weight", id), "{\"authentication_token\":\"tok1\"}", kJson);
  ASSERT_EQ(deleted->status, 200) << deleted->body;
  auto answer = parse(deleted->body);
  EXPECT_EQ(answer["code"].GetInt(), 200);
  EXPECT_TRUE(answer["message"].IsString());
  EXPECT_STREQ(answer["activity_id"].GetString(), "A-9");
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(http->Delete(itemPath("weight", id))->status, 404);
}

TEST_F(RecordsTest, EveryTokenMustBeThePathUsers) {
  auto body = wrapped("weight", weightRecord("A-1"));
  auto wrongHeader = server.client("nope")->Post(collectionPath("weight"), body, kJson);
  EXPECT_EQ(wrongHeader->status, 401);
  EXPECT_EQ(parse(wrongHeader->body)["errors"][0]["code"].GetInt(), 401);
  auto wrongBody =
      http->Post(collectionPath("weight"), wrapped("weight", weightRecord("A-1"), "nope"), kJson);
  EXPECT_EQ(wrongBody->status, 401);
  EXPECT_EQ(http->Get(collectionPath("weight") + "?authentication_token=nope")->status, 401);
  EXPECT_EQ(server.client(kOtherToken)->Get(collectionPath("weight"))->status, 401);
  EXPECT_EQ(http->Get(collectionPath("weight", "stranger"))->status, 401);
  auto anonymous = server.client("");
  EXPECT_EQ(anonymous->Get(collectionPath("weight"))->status, 401);
  EXPECT_EQ(anonymous->Post(collectionPath("weight"), R"({"weight":{}})", kJson)->status, 401);
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

}  // namespace
}  // namespace nyb::test
