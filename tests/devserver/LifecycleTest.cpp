// Start-up, storage across restarts, users files, health and shut-down of the devserver, and
// its start-up refusals with the exit status each one promises.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/RunProgram.h"

namespace nyb::test {
namespace {

TEST(LifecycleTest, FileDatabaseKeepsRecordsAndMediaAcrossRestarts) {
  TempDir dir;
  const std::string db = (dir.path() / "records.sqlite").string();
  std::string recordID, url;
  {
    DevServer server({"--db", db});
    auto http = server.client();
    auto res =
        http->Post(collectionPath("sleep"),
                   wrapped("sleep", R"({"timestamp":"2016-03-01T14:05:09+00:00","times_woken":2})"),
                   "application/json");
    ASSERT_EQ(res->status, 201);
    recordID = parse(res->body)["sleep"]["_id"].GetString();
    auto png = makePng(4, 4);
    auto media =
        http->Post("/v1/organizations/acme/users/u1/sleep/" + recordID + "/media",
                   httplib::MultipartFormDataItems{{"media", png, "media.png", "image/png"}});
    ASSERT_EQ(media->status, 201) << media->body;
    url = parse(media->body)["media"]["url"].GetString();
    EXPECT_EQ(server.stop(), 0);
  }
  DevServer restarted({"--db", db});
  auto all = restarted.records("sleep");
  ASSERT_EQ(all.Size(), 1u);
  EXPECT_STREQ(all[0]["_id"].GetString(), recordID.c_str());
  EXPECT_EQ(all[0]["times_woken"].GetInt(), 2);
  EXPECT_EQ(restarted.client()->Get(mediaPath(url))->body, makePng(4, 4));
}

TEST(LifecycleTest, UsersFileDefinesWhoMayCallHealthAnswersAndBadStartsFail) {
  TempDir dir;
  auto file = dir.path() / "users.json";
  std::ofstream(file)
      << R"({"users":[{"organization":"acme","user_id":"filed","token":"s3cret"}]})";
  DevServer server({"--users", file.string()});
  EXPECT_EQ(server.client("s3cret")->Get(collectionPath("routine", "filed"))->status, 200);
  EXPECT_EQ(server.client("s3cret")->Get(collectionPath("routine", kUser))->status, 401);
  EXPECT_EQ(server.client()->Get(collectionPath("routine", kUser))->status, 200);
  auto http = server.client("");
  auto health = parse(http->Get("/health")->body);
  EXPECT_STREQ(health["status"].GetString(), "ok");
  EXPECT_TRUE(health["tcp_nodelay"].GetBool());
  auto unknown = http->Get("/v1/nowhere");
  EXPECT_EQ(unknown->status, 404);
  EXPECT_TRUE(parse(unknown->body)["errors"].IsArray());
  // An idle keep-alive connection does not hold up shut-down; SIGINT stops as SIGTERM does.
  EXPECT_EQ(server.stop(SIGINT), 0);

  auto broken = dir.path() / "broken.json";
  std::ofstream(broken) << R"({"users":[{"organization":"acme","user_id":"x"}]})";
  EXPECT_THROW(DevServer({"--users", broken.string()}), std::runtime_error);
  EXPECT_THROW(DevServer({"--user", "acme:" + kUser + ":again"}), std::runtime_error);
}

ProgramRun runDevServer(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), NYB_DEVSERVER_PATH);
  // A server that should have refused to start is killed at the time-out.
  return runProgram(arguments, std::nullopt, std::chrono::seconds(20));
}

TEST(DevServerStart, ATakenPortIsRefusedAndTheFirstServerKeepsEveryConnection) {
  DevServer first;
  ProgramRun second = runDevServer({"--port", std::to_string(first.port())});
  EXPECT_EQ(second.status, 3) << second.err;
  EXPECT_EQ(second.out, "");
  EXPECT_NE(
      second.err.find("port " + std::to_string(first.port()) + ": the port is already in use"),
      std::string::npos)
      << second.err;
  // Had the second bound the port too, the kernel would hand it some of these connections.
  for (int i = 0; i < 8; ++i) {
    auto http = first.client("");
    auto health = http->Get("/health");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 200);
  }
}

TEST(DevServerStart, ExitStatusOfEachKindOfBadStart) {
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string out;
  };
  const std::vector<Case> cases = {
      {{"--version"}, 0, "nymbrel-devserver "},
      {{"--help"}, 0, "Exit status: 0 stopped"},
      {{"--port", "70000"}, 2, ""},
      {{"--bogus"}, 2, ""},
      {{"--users", "/nonexistent/users.json"}, 2, ""},
      {{"--port", "0", "--fault", "status=banana"}, 2, ""},
      {{"--port", "0", "--host", "192.0.2.1"}, 3, ""},  // not this machine's address
  };
  for (const auto& c : cases) {
    ProgramRun run = runDevServer(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments.front() << "\n" << run.err;
    EXPECT_NE(run.out.find(c.out), std::string::npos) << run.out;
  }
}

}  // namespace
}  // namespace nyb::test
