// Fault injection through the control endpoint and the command line, over real HTTP.
#include "DevServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace nyb::test {
namespace {

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
  auto rules = parse(control->Get("/control/faults")->body);
  EXPECT_EQ(rules["faults"][0]["remaining"].GetInt(), 0);
  EXPECT_EQ(rules["faults"][0]["hits"].GetInt(), 2);

  // Rules that make no sense are refused.
  for (const char* rule :
       {R"({"status":503,"close":true})", R"({"stauts":503})", R"({"status":503,"fraction":2})"}) {
    EXPECT_EQ(control->Post("/control/faults", rule, "application/json")->status, 400) << rule;
  }
}

TEST_F(FaultsTest, SeededFractionRepeatsItsChoicesAndResetClearsEveryRule) {
  auto pattern = [&] {
    std::string seen;
    for (int i = 0; i < 40; ++i)
      seen += http->Get(collectionPath("weight"))->status == 500 ? 'x' : '.';
    return seen;
  };
  ASSERT_TRUE(server.addFault(R"({"status":500,"fraction":0.5,"seed":42})"));
  auto first = pattern();
  EXPECT_NE(first.find('x'), std::string::npos);
  EXPECT_NE(first.find('.'), std::string::npos);

  auto reset = control->Delete("/control/faults");
  EXPECT_EQ(reset->status, 200);
  EXPECT_EQ(parse(reset->body)["faults"].Size(), 0u);
  EXPECT_EQ(pattern(), std::string(40, '.'));

  ASSERT_TRUE(server.addFault(R"({"status":500,"fraction":0.5,"seed":42})"));
  EXPECT_EQ(pattern(), first);
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

TEST(FaultFlagsTest, CommandLineFaultsApplyFromTheFirstRequest) {
  DevServer server(
      {"--fault", "status=500,count=1,body=plain oops", "--fault", "close,count=1,method=POST"});
  auto http = server.client();
  auto first = http->Get(collectionPath("weight"));
  EXPECT_EQ(first->status, 500);
  EXPECT_EQ(first->body, "plain oops");
  EXPECT_EQ(http->Get(collectionPath("weight"))->status, 200);
  const auto body = wrapped("weight", weightRecord("A"));
  EXPECT_FALSE(http->Post(collectionPath("weight"), body, "application/json"));
  EXPECT_EQ(http->Post(collectionPath("weight"), body, "application/json")->status, 201);
  EXPECT_THROW(DevServer({"--fault", "status=503,close"}), std::runtime_error);
}

}  // namespace
}  // namespace nyb::test
