// The devserver's start-up, storage across restarts, users files, health, shut-down, start-up
// refusals with the exit status each one promises, and faults injected through its endpoint.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>

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
    auto media = http->Post(
        "/v1/organizations/acme/users/u1/sleep/" + recordID + "/media",
        httplib::MultipartFormDataItems{{"media", makePng(4, 4), "media.png", "image/png"}});
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
  EXPECT_TRUE(health["status"].GetString() == std::string("ok") && health["tcp_nodelay"].GetBool());
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
    auto health = first.client("")->Get("/health");
    EXPECT_TRUE(health && health->status == 200);
  }
}

TEST(DevServerStart, ExitStatusOfEachKindOfBadStart) {
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string out;
  } cases[] = {
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

class FaultsTest : public ::testing::Test {
 protected:
  httplib::Result postRecord(const std::string& activityID) {
    return http->Post(collectionPath("weight"), wrapped("weight", weightRecord(activityID)),
                      "application/json");
  }

  DevServer server;
  std::unique_ptr<httplib::Client> http = server.client();
  std::unique_ptr<httplib::Client> control = server.client("");
};

TEST_F(FaultsTest, StatusFaultAnswersTheNextRequestsOfItsMethodThenServes) {
  ASSERT_TRUE(server.addFault(
      R"({"status":503,"count":2,"method":"POST","body":{"errors":[{"code":503,"message":"down"}]}})"));
  EXPECT_EQ(http->Get(collectionPath("weight"))->status, 200);  // not a POST: untouched
  for (int i = 0; i < 2; ++i) {
    auto res = postRecord("A");
    EXPECT_EQ(res->status, 503);
    EXPECT_EQ(res->body, R"({"errors":[{"code":503,"message":"down"}]})");
  }
  EXPECT_EQ(server.records("weight").Size(), 0u);
  EXPECT_EQ(postRecord("B")->status, 201);
  const auto rules = parse(control->Get("/control/faults")->body);
  const auto& rule = rules["faults"][0];
  EXPECT_EQ(std::pair(rule["remaining"].GetInt(), rule["hits"].GetInt()), std::pair(0, 2));

  // Rules that make no sense are refused.
  for (const char* rule :
       {R"({"status":503,"close":true})", R"({"stauts":503})", R"({"status":503,"fraction":2})"}) {
    EXPECT_EQ(control->Post("/control/faults", rule, "application/json")->status, 400) << rule;
  }
}

TEST_F(FaultsTest, ShutDownCutsAFaultDelayShort) {
  ASSERT_TRUE(server.addFault(R"({"delay_ms":600000})"));
  std::thread caller([&] { EXPECT_FALSE(postRecord("A")); });
  // Wait until the request is being held, then stop: the server must not sit out the delay.
  for (int i = 0; i < 1000; ++i) {
    if (parse(control->Get("/control/faults")->body)["faults"][0]["hits"].GetInt() == 1) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(server.stop(), 0);
  caller.join();
}

}  // namespace
}  // namespace nyb::test
