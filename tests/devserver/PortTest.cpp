// The devserver's start-up refusals and the exit status each one promises.
#include <gtest/gtest.h>

#include "DevServer.h"
#include "support/RunProgram.h"

namespace nyb::test {
namespace {

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
