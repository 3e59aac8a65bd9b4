// What the service refuses, record or photo, is kept by the tool in
// rejected.jsonl, counted in the exit status (also when an earlier run queued
// it), and sent again by importing that file once the cause is fixed: the real
// tool against the real devserver.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "DevServer.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

std::vector<std::string> linesOf(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(RejectedRecords, AreKeptWithTheAnswerAndImportSendsThemAgain) {
  DevServer server;
  TempDir data;
  const std::string dir = data.path().string();
  const auto rejected = data.path() / "rejected.jsonl";
  auto as = [&](std::vector<std::string> arguments, const std::string& token,
                const std::string& url) {
    return runTool(withUser(std::move(arguments), url, data.path(), kUser, token));
  };
  auto stored = [&](const std::string& root) {
    return parse(server.client()->Get(collectionPath(root))->body);
  };

  // A meal with its photo waits offline; the next run sends it first and the
  // service refuses it, while that run's own record arrives.
  DevServer gone;
  std::string deadURL = gone.baseURL();
  gone.stop();
  std::string photo = writePng((data.path() / "meal.png").string(), 8, 6);
  ToolRun run = as({"submit", "nutrition", "--meal", "dinner", "--image", photo}, kToken, deadURL);
  ASSERT_EQ(run.status, 3) << run.err;
  ASSERT_TRUE(server.addFault(R"({"status": 422, "count": 1})"));
  run = as({"submit", "sleep", "--deep", "80"}, kToken, server.baseURL());
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.err, "nymbrel: rejected nutrition record")) << run.err;
  EXPECT_TRUE(contains(run.err, "HTTP 422")) << run.err;
  EXPECT_FALSE(contains(run.out, "rejected")) << run.out;
  EXPECT_TRUE(contains(run.out, "submitted sleep record")) << run.out;

  // An expired token: the real service answer, 401, kept beside the record.
  run = as({"submit", "weight", "--weight", "150", "--unit", "lb"}, "expired", server.baseURL());
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.err, "nymbrel: 1 refused record kept in " + rejected.string() +
                                    "; when the cause is fixed, send it again with: nymbrel "
                                    "import " +
                                    rejected.string()))
      << run.err;

  // The record arrives but its photo is refused: kept with the stored record.
  ASSERT_TRUE(server.addFault(R"([{"delay_ms": 1, "count": 1}, {"status": 422, "count": 1}])"));
  run = as({"submit", "fitness", "--type", "run", "--image", photo}, kToken, server.baseURL());
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.err, "1 refused photo kept in")) << run.err;

  struct stat info {};
  ASSERT_EQ(stat(rejected.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  auto lines = linesOf(rejected);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_STREQ(parse(lines[2])["refused"].GetString(), "photo");
  run = runTool({"queue", "--data-dir", dir});
  EXPECT_TRUE(contains(run.out, "Refused and kept: 3 in " + rejected.string())) << run.out;
  auto meal = parse(lines[0]);
  EXPECT_EQ(meal["status"].GetInt(), 422);
  EXPECT_STREQ(meal["record_type"].GetString(), "nutrition");
  EXPECT_STREQ(meal["record"]["meal"].GetString(), "dinner");
  EXPECT_TRUE(std::filesystem::exists(data.path() / meal["image"].GetString()));
  auto weight = parse(lines[1]);
  EXPECT_EQ(weight["status"].GetInt(), 401);
  EXPECT_EQ(weight["answer"]["errors"][0]["code"].GetInt(), 401);
  std::string weightID = weight["record"]["activity_id"].GetString();

  // With a good token both go again, as they were: same activity, unit as
  // entered, the photo; what was sent leaves the file.
  run = as({"import", rejected.string()}, kToken, server.baseURL());
  EXPECT_EQ(run.status, 0) << run.err;
  auto weights = stored("weight");
  ASSERT_EQ(weights["weight"].Size(), 1u);
  EXPECT_EQ(weights["weight"][0]["activity_id"].GetString(), weightID);
  EXPECT_STREQ(weights["weight"][0]["extras"]["raw_data"]["weight"]["unit"].GetString(), "lb");
  auto meals = stored("nutrition");
  ASSERT_EQ(meals["nutrition"].Size(), 1u);
  EXPECT_EQ(meals["nutrition"][0]["media"].Size(), 1u);
  auto runs = stored("fitness");  // updated, not sent twice
  ASSERT_EQ(runs["fitness"].Size(), 1u);
  EXPECT_EQ(runs["fitness"][0]["media"].Size(), 1u);
  EXPECT_TRUE(linesOf(rejected).empty());
  EXPECT_FALSE(std::filesystem::exists(data.path() / meal["image"].GetString()));
}

}  // namespace
}  // namespace nyb::test
