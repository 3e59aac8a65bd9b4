// The nymbrel binary as a child process against the real nymbrel-devserver:
// every command's happy path, what stays queued when the service cannot be
// reached, bad input with its message and exit status, and the demo end to
// end. What the server stored is read back over HTTP.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "DevServer.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

class NymbrelTool : public ::testing::Test {
 protected:
  // The service options for user u1 (or another) of the devserver.
  std::vector<std::string> as(std::vector<std::string> arguments, const std::string& user = kUser,
                              const std::string& token = kToken) const {
    return withUser(std::move(arguments), server_.baseURL(), data_.path(), user, token);
  }
  ToolRun queueJSON() const {
    return runTool({"queue", "--json", "--data-dir", data_.path().string()});
  }
  // The records the server holds in a collection.
  rapidjson::Document stored(const std::string& root, const std::string& user = kUser,
                             const std::string& token = kToken) const {
    auto answer = server_.client(token)->Get(collectionPath(root, user));
    EXPECT_TRUE(answer && answer->status == 200);
    return parse(answer ? answer->body : "{}");
  }
  std::string photo() const { return writePng((data_.path() / "meal.png").string(), 8, 6); }

  DevServer server_;
  TempDir data_;
};

TEST_F(NymbrelTool, WhatCannotBeSentStaysQueuedAndGoesFirstWithTheNextRunsRecord) {
  DevServer gone;
  std::string deadURL = gone.baseURL();
  gone.stop();
  ToolRun run = runTool(withUser({"submit", "nutrition", "--meal", "dinner", "--image", photo()},
                                 deadURL, data_.path()));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_TRUE(contains(run.err, "nymbrel: 1 record and 1 photo stay queued")) << run.err;
  auto queue = parse(queueJSON().out);
  ASSERT_EQ(queue["records"].Size(), 1u);
  std::string activityID = queue["records"][0]["activity_id"].GetString();
  EXPECT_STREQ(queue["records"][0]["type"].GetString(), "nutrition");
  EXPECT_STREQ(queue["records"][0]["document"]["meal"].GetString(), "dinner");
  ASSERT_EQ(queue["photos"].Size(), 1u);
  EXPECT_STREQ(queue["photos"][0]["file"].GetString(), queue["records"][0]["photo"].GetString());
  EXPECT_EQ(queue["photos"][0]["queued_position"].GetUint(), 1u);
  run = runTool({"queue", "--data-dir", data_.path().string()});
  EXPECT_TRUE(contains(run.out, "Queued records: 1\n  1. nutrition record " + activityID))
      << run.out;
  EXPECT_TRUE(contains(run.out, "Photos waiting: 1\n")) << run.out;

  run = runTool(as({"submit", "weight", "--weight", "150", "--unit", "lb", "--timestamp",
                    "2016-03-01T14:05:09Z", "--comment", "after the run", "--image", photo()}));
  ASSERT_EQ(run.status, 0) << run.err;
  auto earlier = run.out.find("submitted nutrition record " + activityID);
  ASSERT_NE(earlier, std::string::npos) << run.out;
  EXPECT_TRUE(contains(run.out.substr(earlier), "(queued by an earlier run)\n"));
  EXPECT_LT(earlier, run.out.find("submitted weight record"));
  EXPECT_TRUE(contains(run.out, "photo sent for nutrition record " + activityID));
  EXPECT_TRUE(contains(run.out, "photo sent for weight record")) << run.out;
  EXPECT_EQ(stored("nutrition")["nutrition"][0]["media"].Size(), 1u);
  auto weights = stored("weight");
  ASSERT_EQ(weights["weight"].Size(), 1u);
  const auto& weight = weights["weight"][0];
  EXPECT_NEAR(weight["weight"].GetDouble(), 150 * 0.45359237, 1e-9);
  EXPECT_STREQ(weight["extras"]["raw_data"]["weight"]["unit"].GetString(), "lb");
  EXPECT_STREQ(weight["extras"]["comment"].GetString(), "after the run");
  EXPECT_STREQ(weight["timestamp"].GetString(), "2016-03-01T14:05:09+00:00");
  ASSERT_EQ(weight["media"].Size(), 1u);
  auto image = server_.client()->Get(mediaPath(weight["media"][0]["url"].GetString()));
  ASSERT_TRUE(image && image->status == 200);

  // No user given: the archived session goes on; the server comes from the environment.
  run = runTool({"submit", "sleep", "--deep", "80", "--data-dir", data_.path().string()},
                {{"NYMBREL_BASE_URL", server_.baseURL()}});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(stored("sleep")["sleep"][0]["deep"].GetInt(), 80);
  queue = parse(queueJSON().out);
  EXPECT_TRUE(queue["session"].GetBool());
  EXPECT_STREQ(queue["user"]["organization"].GetString(), "acme");
  EXPECT_STREQ(queue["user"]["token"].GetString(), "****");
  EXPECT_EQ(queue["records"].Size(), 0u);
  EXPECT_EQ(queue["photos"].Size(), 0u);
}

TEST_F(NymbrelTool, ARecordWithoutAnAnswerInTimeStaysQueued) {
  // The answer comes after the tool has given up, with the request in flight.
  ASSERT_TRUE(server_.addFault(R"({"delay_ms": 5000, "count": 1})"));
  ToolRun run = runTool(as({"submit", "sleep", "--deep", "80", "--timeout", "1"}));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_TRUE(contains(run.err, "nymbrel: 1 record stays queued: no answer within 1 s")) << run.err;
  EXPECT_EQ(parse(queueJSON().out)["records"].Size(), 1u);
}

TEST_F(NymbrelTool, AnotherUserMayNotDropAQueueUnasked) {
  ASSERT_TRUE(server_.addFault(R"({"status": 503, "count": 1})"));
  ToolRun run = runTool(as({"submit", "weight", "--weight", "71"}));
  EXPECT_EQ(run.status, 3) << run.err;
  run = runTool(as({"submit", "weight", "--weight", "72"}, kOtherUser, kOtherToken));
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err,
                       "nymbrel: the data directory holds 1 record and 0 photos queued "
                       "for acme/u1; a session for another user (or token) would drop "
                       "them. Use --discard-queue"))
      << run.err;
  run = runTool(
      as({"submit", "weight", "--weight", "72", "--discard-queue"}, kOtherUser, kOtherToken));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(stored("weight", kOtherUser, kOtherToken)["weight"].Size(), 1u);
  EXPECT_EQ(stored("weight")["weight"].Size(), 0u);
}

TEST_F(NymbrelTool, BadInputIsNamedAndNothingIsSent) {
  const std::string csv = (data_.path() / "readings.csv").string();
  const std::string dir = data_.path().string();
  std::ofstream(csv) << "weight\n70\n";
  // Arguments split at blanks; the user's options are added when withUser is set. (The
  // builder's own messages are tested in process.)
  const struct {
    std::string arguments;
    bool withUser;
    int status;
    std::string message;  // a line of standard error
  } cases[] = {
      {"", false, 2, "give a command: demo, submit, import or queue (see nymbrel --help)"},
      {"frobnicate", false, 2,
       "\"frobnicate\" is not a command (demo, submit, import, queue; see nymbrel --help)"},
      {"submit", true, 2, "give a record type: nymbrel submit TYPE --FIELD VALUE ..."},
      {"submit weigth --weight 70", true, 2,
       "\"weigth\" is not a record type (biometrics, diabetes, weight, routine, nutrition, "
       "fitness, sleep, intraday)"},
      {"submit weight --wieght 70", true, 2,
       "--wieght is not a field of a weight record (see 'nymbrel submit weight --help')"},
      {"submit weight --weight 70 --image /nonexistent/meal.png", true, 2,
       "--image: \"/nonexistent/meal.png\": no such file"},
      {"submit weight --weight 70 --image " + csv, true, 2,
       "--image: \"" + csv + "\" is not a PNG image"},
      {"submit weight --weight 70 --utc-offset banana", true, 2,
       "--utc-offset: \"banana\" is not a UTC offset such as +01:00 or -05:30"},
      {"submit weight --weight 70 --utc-offset +25:00", true, 2,
       "--utc-offset: \"+25:00\" is not a UTC offset"},
      {"submit intraday --start 2016-03-02", true, 2,
       "an intraday record needs both --start and --end"},
      {"submit weight --weight 70 --org acme --user u1 --data-dir " + dir, false, 2,
       "give --org, --user and --token together (missing --token)"},
      {"submit weight --weight 70 --data-dir " + dir, false, 2,
       "no user: give --org, --user and --token"},
      {"submit weight --weight 70 --server ftp://example.com", false, 2,
       "--server: \"ftp://example.com\" is not an http or https URL"},
      {"import " + csv + " --type walking", true, 2, "--type: \"walking\" is not a record type"},
      {"import " + dir + "/missing.csv", true, 5, "cannot read "},
      {"queue --bogus", false, 2, "The following argument was not expected: --bogus"},
      {"import " + csv + " --timeout 0", true, 2,
       "--timeout: must be a positive number of seconds, not 0"},
      {"import " + csv + " --timeout nan", true, 2, "--timeout: must be a positive"},
      {"import " + csv + " --timeout 1e300", true, 2, "--timeout: at most"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments;
    std::istringstream words(c.arguments);
    for (std::string word; words >> word;) arguments.push_back(word);
    ToolRun run = runTool(c.withUser ? as(arguments) : arguments);
    EXPECT_EQ(run.status, c.status) << c.message << "\n" << run.err;
    EXPECT_TRUE(contains(run.err, "nymbrel: " + c.message)) << c.message << "\ngot: " << run.err;
  }
  auto health = server_.client()->Get("/health");
  ASSERT_TRUE(health);
  EXPECT_EQ(parse(health->body)["records"].GetInt(), 0);
}

TEST_F(NymbrelTool, ImportSendsTheGoodRowsInOrderAndReportsTheBadOnesByLine) {
  photo();
  std::string csv = (data_.path() / "readings.csv").string();
  std::ofstream(csv) << "record_type,timestamp,weight,unit,steps,meal,image\n"
                        "weight,2016-03-01T08:00:00+01:00,150,lb,,,\n"
                        "weight,2016-03-02T08:00:00+01:00,heavy,,,,\n"
                        "routine,2016-03-02T23:00:00+01:00,,,9000,,\n"
                        "nutrition,2016-03-02T12:30:00+01:00,,,,lunch,meal.png\n"
                        "sleep,2016-03-03T07:00:00+01:00,80,,,,\n"
                        "weight,2016-03-04T08:00:00+01:00,71.5,kg,,,\n";
  ToolRun run = runTool(as({"import", csv}));
  EXPECT_EQ(run.status, 4) << run.err;
  EXPECT_TRUE(contains(run.err,
                       "nymbrel: line 3: weight: \"heavy\" is not a number\n"
                       "nymbrel: line 6: unknown field \"weight\" for a sleep record\n"))
      << run.err;
  EXPECT_TRUE(contains(run.out, "4 of 4 records sent, 1 of 1 photos; 2 bad rows skipped"))
      << run.out;
  auto weights = stored("weight");
  ASSERT_EQ(weights["weight"].Size(), 2u);
  EXPECT_NEAR(weights["weight"][0]["weight"].GetDouble(), 68.0388555, 1e-9);
  EXPECT_EQ(weights["weight"][1]["weight"].GetDouble(), 71.5);
  EXPECT_STREQ(weights["weight"][1]["timestamp"].GetString(), "2016-03-04T07:00:00+00:00");
  EXPECT_EQ(stored("routine")["routine"][0]["steps"].GetInt(), 9000);
  EXPECT_EQ(stored("nutrition")["nutrition"][0]["media"].Size(), 1u);
  EXPECT_EQ(stored("sleep")["sleep"].Size(), 0u);
}

TEST_F(NymbrelTool, DemoSendsEveryTypeAndAPhotoToAGivenServer) {
  ToolRun run = runTool(as({"demo"}));
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  for (const char* root : {"biometrics", "diabetes", "weight", "routine", "nutrition", "fitness",
                           "sleep", "intraday"}) {
    EXPECT_EQ(stored(root)[root].Size(), 1u) << root;
  }
  EXPECT_EQ(stored("nutrition")["nutrition"][0]["media"].Size(), 1u);
  EXPECT_STREQ(stored("weight")["weight"][0]["extras"]["raw_data"]["weight"]["unit"].GetString(),
               "lb");
  EXPECT_EQ(stored("intraday")["intraday"][0]["data_points"].Size(), 4u);
}

}  // namespace
}  // namespace nyb::test
