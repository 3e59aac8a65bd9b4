// The nymbrel binary as a child process against the real nymbrel-devserver:
// every command's happy path, what stays queued when the service cannot be
// reached, what it refuses, bad input with its message and exit status, and
// the demo end to end. What the server stored is read back over HTTP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "DevServer.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> linesOf(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

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
  std::string photo() const { return writePng((data_.path() / "meal.png").string(), 8, 6); }
  // Nothing listens on port 1 of the loopback: nothing is sent.
  const std::string nowhere_ = "http://127.0.0.1:1/v1";

  DevServer server_;
  TempDir data_;
};

TEST_F(NymbrelTool, WhatCannotBeSentStaysQueuedAndGoesFirstWithTheNextRunsRecord) {
  ToolRun run = runTool(withUser({"submit", "nutrition", "--meal", "dinner", "--image", photo()},
                                 nowhere_, data_.path()));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.err, HasSubstr("nymbrel: 1 record and 1 photo stay queued"));
  auto queue = parse(queueJSON().out);
  ASSERT_TRUE(queue["records"].Size() == 1 && queue["photos"].Size() == 1);
  const auto& queued = queue["records"][0];
  std::string activityID = queued["activity_id"].GetString();
  EXPECT_STREQ(queued["type"].GetString(), "nutrition");
  EXPECT_STREQ(queued["document"]["meal"].GetString(), "dinner");
  EXPECT_STREQ(queue["photos"][0]["file"].GetString(), queued["photo"].GetString());
  EXPECT_EQ(queue["photos"][0]["queued_position"].GetUint(), 1u);
  run = runTool({"queue", "--data-dir", data_.path().string()});
  EXPECT_THAT(run.out, AllOf(HasSubstr("Queued records: 1\n  1. nutrition record " + activityID),
                             HasSubstr("Photos waiting: 1\n")));

  run = runTool(as(
      {"submit", "weight", "--weight", "150", "--comment", "after the run", "--image", photo()}));
  ASSERT_EQ(run.status, 0) << run.err;
  auto earlier = run.out.find("submitted nutrition record " + activityID);
  ASSERT_NE(earlier, std::string::npos) << run.out;
  EXPECT_THAT(run.out.substr(earlier), HasSubstr("(queued by an earlier run)\n"));
  EXPECT_LT(earlier, run.out.find("submitted weight record"));
  EXPECT_EQ(server_.records("nutrition")[0]["media"].Size(), 1u);
  auto weights = server_.records("weight");
  ASSERT_EQ(weights.Size(), 1u);
  EXPECT_STREQ(weights[0]["extras"]["comment"].GetString(), "after the run");
  EXPECT_EQ(weights[0]["media"].Size(), 1u);

  // No user given: the archived session goes on; the server comes from the environment.
  run = runTool({"submit", "sleep", "--deep", "80", "--data-dir", data_.path().string()},
                {{"NYMBREL_BASE_URL", server_.baseURL()}});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(server_.records("sleep")[0]["deep"].GetInt(), 80);
  queue = parse(queueJSON().out);
  EXPECT_TRUE(queue["session"].GetBool());
  EXPECT_STREQ(queue["user"]["organization"].GetString(), "acme");
  EXPECT_STREQ(queue["user"]["token"].GetString(), "****");
  EXPECT_EQ(queue["records"].Size() + queue["photos"].Size(), 0u);
}

TEST_F(NymbrelTool, ARecordWithoutAnAnswerInTimeStaysQueued) {
  // The answer comes after the tool has given up, with the request in flight.
  ASSERT_TRUE(server_.addFault(R"({"delay_ms": 5000, "count": 1})"));
  ToolRun run = runTool(as({"submit", "sleep", "--deep", "80", "--timeout", "1"}));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.err, HasSubstr("nymbrel: 1 record stays queued: no answer within 1 s"));
  EXPECT_EQ(parse(queueJSON().out)["records"].Size(), 1u);
}

TEST_F(NymbrelTool, AnotherUserMayNotDropAQueueUnasked) {
  ASSERT_TRUE(server_.addFault(R"({"status": 503, "count": 1})"));
  ToolRun run = runTool(as({"submit", "weight", "--weight", "71"}));
  EXPECT_EQ(run.status, 3) << run.err;
  run = runTool(as({"submit", "weight", "--weight", "72"}, kOtherUser, kOtherToken));
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, AllOf(HasSubstr("acme/u1"), HasSubstr("--discard-queue")));
  run = runTool(
      as({"submit", "weight", "--weight", "72", "--discard-queue"}, kOtherUser, kOtherToken));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(server_.records("weight", kOtherUser, kOtherToken).Size(), 1u);
  EXPECT_EQ(server_.records("weight").Size(), 0u);
}

TEST_F(NymbrelTool, BadInputIsNamedAndNothingIsSent) {
  const std::string csv = (data_.path() / "readings.csv").string();
  const std::string dir = data_.path().string();
  std::ofstream(csv) << "weight\n70\n";
  // Arguments split at blanks; the user's options are added when withUser is set. Each error
  // names what was wrong with it. (The builder's own messages are tested in process.)
  const struct {
    std::string arguments;
    bool withUser;
    int status;
    std::string named;  // in the error line
  } cases[] = {
      {"", false, 2, "give a command"},
      {"frobnicate", false, 2, "\"frobnicate\""},
      {"submit", true, 2, "give a record type"},
      {"submit weigth --weight 70", true, 2, "\"weigth\" is not a record type"},
      {"submit weight --wieght 70", true, 2, "--wieght"},
      {"submit weight --weight 70 --image /nonexistent/meal.png", true, 2,
       "--image: \"/nonexistent/meal.png\""},
      {"submit weight --weight 70 --image " + csv, true, 2, "--image: \"" + csv + "\""},
      {"submit weight --weight 70 --utc-offset banana", true, 2, "--utc-offset: \"banana\""},
      {"submit weight --weight 70 --utc-offset +25:00", true, 2, "--utc-offset: \"+25:00\""},
      {"submit intraday --start 2016-03-02", true, 2, "--end"},
      {"submit weight --weight 70 --org acme --user u1 --data-dir " + dir, false, 2, "--token"},
      {"submit weight --weight 70 --data-dir " + dir, false, 2, "no user"},
      {"submit weight --weight 70 --server ftp://example.com", false, 2,
       "--server: \"ftp://example.com\""},
      {"import " + csv + " --type walking", true, 2, "--type: \"walking\""},
      {"import " + dir + "/missing.csv", true, 5, dir + "/missing.csv"},
      {"queue --bogus", false, 2, "--bogus"},
      {"import " + csv + " --timeout 0", true, 2, "--timeout"},
      {"import " + csv + " --timeout nan", true, 2, "--timeout"},
      {"import " + csv + " --timeout 1e300", true, 2, "--timeout"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments;
    std::istringstream words(c.arguments);
    for (std::string word; words >> word;) arguments.push_back(word);
    ToolRun run = runTool(c.withUser ? as(arguments) : arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_THAT(run.err, AllOf(HasSubstr("nymbrel: "), HasSubstr(c.named))) << c.arguments;
  }
  EXPECT_EQ(parse(server_.client()->Get("/health")->body)["records"].GetInt(), 0);
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
  EXPECT_THAT(run.err, HasSubstr("nymbrel: line 3: weight: \"heavy\" is not a number\n"
                                 "nymbrel: line 6: unknown field \"weight\" for a sleep record\n"));
  EXPECT_THAT(run.out, HasSubstr("4 of 4 records sent, 1 of 1 photos; 2 bad rows skipped"));
  auto weights = server_.records("weight");
  ASSERT_EQ(weights.Size(), 2u);
  EXPECT_NEAR(weights[0]["weight"].GetDouble(), 68.0388555, 1e-9);
  EXPECT_EQ(weights[1]["weight"].GetDouble(), 71.5);
  EXPECT_STREQ(weights[1]["timestamp"].GetString(), "2016-03-04T07:00:00+00:00");
  EXPECT_EQ(server_.records("routine")[0]["steps"].GetInt(), 9000);
  EXPECT_EQ(server_.records("nutrition")[0]["media"].Size(), 1u);
  EXPECT_EQ(server_.records("sleep").Size(), 0u);
}

// What the service refuses, record or photo, is kept in rejected.jsonl, counted in the exit status
// (also when an earlier run queued it), and sent again by importing that file.
TEST_F(NymbrelTool, RejectedRecordsAreKeptWithTheAnswerAndImportSendsThemAgain) {
  const auto rejected = data_.path() / "rejected.jsonl";

  // A meal with its photo waits offline; the next run sends it first and the
  // service refuses it, while that run's own record arrives.
  ToolRun run = runTool(withUser({"submit", "nutrition", "--meal", "dinner", "--image", photo()},
                                 nowhere_, data_.path()));
  ASSERT_EQ(run.status, 3) << run.err;
  ASSERT_TRUE(server_.addFault(R"({"status": 422, "count": 1})"));
  run = runTool(as({"submit", "sleep", "--deep", "80"}));
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_THAT(run.err,
              AllOf(HasSubstr("nymbrel: rejected nutrition record"), HasSubstr("HTTP 422")));
  EXPECT_THAT(run.out, AllOf(Not(HasSubstr("rejected")), HasSubstr("submitted sleep record")));

  // An expired token: the real service answer, 401, kept beside the record.
  run = runTool(as({"submit", "weight", "--weight", "150", "--unit", "lb"}, kUser, "expired"));
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_THAT(run.err, AllOf(HasSubstr("1 refused record kept in " + rejected.string()),
                             HasSubstr("nymbrel import " + rejected.string())));

  // The record arrives but its photo is refused: kept with the stored record.
  ASSERT_TRUE(server_.addFault(R"([{"delay_ms": 1, "count": 1}, {"status": 422, "count": 1}])"));
  run = runTool(as({"submit", "fitness", "--type", "run", "--image", photo()}));
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_THAT(run.err, HasSubstr("1 refused photo kept in"));

  struct stat info {};
  ASSERT_EQ(stat(rejected.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  auto lines = linesOf(rejected);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_STREQ(parse(lines[2])["refused"].GetString(), "photo");
  run = runTool({"queue", "--data-dir", data_.path().string()});
  EXPECT_THAT(run.out, HasSubstr("Refused and kept: 3 in " + rejected.string()));
  auto meal = parse(lines[0]);
  EXPECT_EQ(meal["status"].GetInt(), 422);
  EXPECT_STREQ(meal["record_type"].GetString(), "nutrition");
  EXPECT_STREQ(meal["record"]["meal"].GetString(), "dinner");
  EXPECT_TRUE(std::filesystem::exists(data_.path() / meal["image"].GetString()));
  auto weight = parse(lines[1]);
  EXPECT_EQ(weight["status"].GetInt(), 401);
  EXPECT_EQ(weight["answer"]["errors"][0]["code"].GetInt(), 401);
  std::string weightID = weight["record"]["activity_id"].GetString();

  // With a good token both go again, as they were: same activity, unit as
  // entered, the photo; what was sent leaves the file.
  run = runTool(as({"import", rejected.string()}));
  EXPECT_EQ(run.status, 0) << run.err;
  auto weights = server_.records("weight");
  ASSERT_EQ(weights.Size(), 1u);
  EXPECT_EQ(weights[0]["activity_id"].GetString(), weightID);
  EXPECT_STREQ(weights[0]["extras"]["raw_data"]["weight"]["unit"].GetString(), "lb");
  for (const char* root : {"nutrition", "fitness"}) {  // the run updated, not sent twice
    auto kept = server_.records(root);
    ASSERT_EQ(kept.Size(), 1u) << root;
    EXPECT_EQ(kept[0]["media"].Size(), 1u) << root;
  }
  EXPECT_TRUE(linesOf(rejected).empty());
  EXPECT_FALSE(std::filesystem::exists(data_.path() / meal["image"].GetString()));
}

// Where an installed nymbrel finds nymbrel-devserver: beside itself or on PATH, never where this
// build happened to make it.
TEST(DevServerLookup, BesideTheProgramOrOnPathOnly) {
  TempDir installed;
  auto bin = installed.path() / "bin";
  std::filesystem::create_directory(bin);
  std::filesystem::copy_file(NYB_NYMBREL_PATH, bin / "nymbrel");
  auto demo = [&](const std::string& path) {
    return runProgram({(bin / "nymbrel").string(), "demo"},
                      std::vector<std::string>{"PATH=" + path});
  };

  ProgramRun alone = demo("/nonexistent");
  EXPECT_EQ(alone.status, 5) << alone.out;
  EXPECT_THAT(alone.err, HasSubstr("cannot find nymbrel-devserver next to nymbrel or on PATH"));
  // Named, it is found anywhere.
  ProgramRun named =
      runProgram({(bin / "nymbrel").string(), "demo", "--devserver", NYB_DEVSERVER_PATH},
                 std::vector<std::string>{"PATH=/nonexistent"});
  EXPECT_EQ(named.status, 0) << named.err;
  // The demo reads back what the server stored: every type and the photo.
  EXPECT_THAT(named.out, AllOf(HasSubstr("started nymbrel-devserver at http://127.0.0.1:"),
                               HasSubstr("\neverything arrived: 8 records and 1 photo\n")));

  auto onPath = std::filesystem::path(NYB_DEVSERVER_PATH).parent_path().string();
  EXPECT_EQ(demo("/nonexistent:" + onPath).status, 0);

  std::filesystem::copy_file(NYB_DEVSERVER_PATH, bin / "nymbrel-devserver");
  EXPECT_EQ(demo("/nonexistent").status, 0);
}

}  // namespace
}  // namespace nyb::test
