// The upload engine over a transport that fails once the request went out: a
// kept-alive connection that dies before the answer, a redirect to another
// origin. The record or photo stays queued, nothing is posted, and the
// service holds at most one copy.
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

using SessionOverFaults = SessionTest;

TEST_F(SessionOverFaults, ADyingConnectionLeavesTheRecordOrPhotoQueuedWithOneCopySent) {
  makeSession()->startSessionWithUser(testUser());
  server().enqueue(acceptedWeight("id-1", "first"));
  server().enqueue(ScriptedResponse::closeWithoutAnswer());  // "second", on the same connection
  server().enqueue(acceptedWeight("id-2", "second"));
  server().enqueue(ScriptedResponse::closeWithoutAnswer());  // the photo of "first"
  session->submitRecord(weight("first"), photo(5));
  session->submitRecord(weight("second"));
  ASSERT_TRUE(runUntil([&] { return server().requests().size() >= 2; }));
  settle();
  EXPECT_EQ(server().requests().size(), 2U);
  EXPECT_EQ(notes.posted.size(), 1U);
  EXPECT_EQ(queueOf(session->sessionData()), std::vector<std::string>{"second"});

  reachability->setFlags(kNYBReachabilityFlagsReachable);
  ASSERT_TRUE(runUntil([&] { return server().requests().size() >= 4; }));
  settle();
  EXPECT_EQ(requestLines(),
            (std::vector<std::string>{"POST weight.json", "POST weight.json", "POST weight.json",
                                      "POST weight/id-1/media?authentication_token=tok-1"}));
  EXPECT_EQ(notes.named(kNYBRecordSubmittedNotification).size(), 2U);
  EXPECT_EQ(notes.posted.size(), 2U);
  EXPECT_TRUE(session->sessionData()->hasImages());
  EXPECT_TRUE(queueOf(session->sessionData()).empty());
}

TEST_F(SessionOverFaults, ARedirectElsewhereLeavesTheRecordQueuedAndTheTokenHome) {
  LoopbackServer elsewhere("127.0.0.2");
  makeSession()->startSessionWithUser(testUser());
  ScriptedResponse moved = ScriptedResponse::json(307, "{}");
  moved.headers.emplace_back("Location", elsewhere.baseURL() + kUserPath + "weight.json");
  server().enqueue(moved);
  session->submitRecord(weight("moved"));
  ASSERT_TRUE(runUntil([&] { return server().requests().size() >= 1; }));
  settle();
  EXPECT_EQ(elsewhere.connectionCount(), 0U);
  EXPECT_TRUE(notes.posted.empty());
  EXPECT_EQ(queueOf(session->sessionData()), std::vector<std::string>{"moved"});
}

}  // namespace
}  // namespace nyb::test
