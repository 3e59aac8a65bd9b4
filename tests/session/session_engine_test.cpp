// The upload engine against a real HTTP server on 127.0.0.1: which call each
// record gets, one request at a time, what each kind of answer does to the
// queue, photos after their records, ending and restarting a session, and
// the media URL with the user's token.

#include "NymbrelCore/NYBMedia.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

std::size_t filesIn(const fs::path& directory) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

using SessionEngine = SessionTest;

TEST_F(SessionEngine, SendsOneRecordAtATimeWithTheCallItsKindNeeds) {
  makeSession()->startSessionWithUser(testUser());
  auto upserted = std::make_shared<NYBRoutine>();
  upserted->setActivityID("walk.1/x");
  upserted->setRecordID("r-0");  // a routine record is upserted all the same
  auto updated = weight("w-upd");
  updated->setRecordID("w-7");
  server().enqueue(ScriptedResponse::json(200, R"({"routine":{"_id":"r-0"}})"));
  server().enqueue(acceptedWeight("w-7", "w-upd"));
  // A record beside an "errors" array still counts as accepted.
  server().enqueue(ScriptedResponse::json(
      201, R"({"weight":{"_id":"w-8"},"errors":[{"code":1,"activity_id":"w-new"}]})"));
  server().enqueue(acceptedWeight("w-9", "late"));

  session->submitRecords({upserted, updated, weight("w-new")});
  // The next request can only start on the main thread, which has not run.
  ASSERT_TRUE(server().waitForRequests(1, 5s));
  EXPECT_TRUE(session->processingRecord()->isEqual(*upserted));
  session->submitRecord(weight("late"));  // only queued while one is in flight
  EXPECT_EQ(queueOf(session->sessionData()),
            (std::vector<std::string>{"walk.1/x", "w-upd", "w-new", "late"}));
  // The host's timeout ends the request's task; the answer must not end it again.
  EXPECT_GE(tasks->expireOpenTasks(), 1U);

  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 4; }));
  settle();
  EXPECT_EQ(requestLines(),
            (std::vector<std::string>{"PUT routine/activity_id/walk%2E1/x", "PUT weight/w-7.json",
                                      "POST weight.json", "POST weight.json"}));
  // Each notification carries the service's copy, not the queued record.
  EXPECT_EQ(outcomes(notes), (std::vector<std::string>{"submitted r-0", "submitted w-7",
                                                       "submitted w-8", "submitted w-9"}));
  EXPECT_EQ(notes.posted[0].record()->className(), "NYBRoutine");
}

TEST_F(SessionEngine, OnlyTheServicesRefusalDropsARecordEverythingElseWaitsAtTheTail) {
  makeSession()->startSessionWithUser(testUser());
  for (int status : {400, 499, 500}) server().enqueue(refused(status));
  server().enqueue(ScriptedResponse::closeMidAnswer(200, R"({"weight":)", 64));
  server().enqueue(ScriptedResponse::json(200, ""));  // neither result nor error

  session->submitRecord(weight("bad-400"), photo(1));
  session->submitRecords({weight("bad-499"), weight("e500"), weight("cut"), weight("empty")});

  // 4xx drops the record with a notification; a 500 moves it to the tail and the queue rests.
  ASSERT_TRUE(runUntil([&] { return server().requests().size() == 3; }));
  settle();
  ASSERT_EQ(outcomes(notes), (std::vector<std::string>{"failed bad-400", "failed bad-499"}));
  EXPECT_EQ(notes.posted[0].error()->code(), 400);
  EXPECT_EQ(notes.posted[1].error()->code(), 499);
  EXPECT_TRUE(fs::is_empty(documents.path() / "images"));  // the photo went with its record
  EXPECT_FALSE(session->sessionData()->hasImages());
  EXPECT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"cut", "empty", "e500"}));

  // Each trigger sends the head once; a cut or an empty answer also goes back without a word.
  for (std::size_t sent : {4U, 5U}) {
    reachability->setFlags(kNYBReachabilityFlagsReachable);
    ASSERT_TRUE(runUntil([&] { return server().requests().size() == sent; }));
    settle();
  }
  EXPECT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"e500", "cut", "empty"}));
  EXPECT_EQ(notes.posted.size(), 2U);
}

// Photos after records, under the service's identifiers, refused or failed, are proven end to
// end and over a failing transport; here what the photo store does on the way.
TEST_F(SessionEngine, PhotosFollowTheRecordsAndAnUnreadableOneIsDropped) {
  makeSession()->startSessionWithUser(testUser());
  for (const char* id : {"p1", "plain", "gone", "later"}) {
    server().enqueue(acceptedWeight(std::string("id-") + id, id));
  }
  server().setDefaultResponse(acceptedPhoto());
  session->submitRecord(weight("p1"), photo(10));
  session->submitRecord(weight("plain"));
  auto gone = weight("gone");
  session->submitRecord(gone, photo(2));
  fs::remove(session->sessionData()->imageFilepathForRecord(gone).value());
  session->submitRecord(weight("later"), photo(3));
  const fs::path images = documents.path() / "images";
  // A sent photo's file stays until the archive no longer names it.
  ASSERT_TRUE(runUntil([&] { return !notes.named(kNYBRecordImageSubmittedNotification).empty(); }));
  EXPECT_EQ(filesIn(images), 2U);
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 7; }));
  settle();
  std::vector<std::string> sent(4, "POST weight.json");
  for (const char* id : {"p1", "later"}) {
    sent.push_back(std::string("POST weight/id-") + id + "/media?authentication_token=tok-1");
  }
  EXPECT_EQ(requestLines(), sent);
  ASSERT_EQ(outcomes(notes),
            (std::vector<std::string>{"submitted id-p1", "submitted id-plain", "submitted id-gone",
                                      "submitted id-later", "photo id-p1", "photo failed id-gone",
                                      "photo id-later"}));
  // The unreadable photo is the session's own error 0.
  EXPECT_EQ(notes.posted[5].error()->domain(), kNYBSessionErrorDomain);
  EXPECT_EQ(notes.posted[5].error()->code(), 0);
  EXPECT_EQ(notes.posted[5].error()->localizedDescription(),
            "NYBSession unable to load image for activityID: gone");
  // After the last photo the directory is emptied, and nothing is re-queued.
  EXPECT_EQ(filesIn(images), 0U);
  EXPECT_FALSE(session->sessionData()->hasImages());
  EXPECT_TRUE(queueOf(session->sessionData()).empty());
}

TEST_F(SessionEngine, EndingOrRestartingASessionDiscardsItsQueueAndArchive) {
  int hookCalls = 0;
  NYBSession::staticClass().setEndHealthKitSessionOperation([&](NYBSession&) { ++hookCalls; });
  makeSession()->startSessionWithUser(testUser());
  const fs::path archive = documents.path() / "sessionData";
  server().setDefaultResponse(refused(503));
  session->submitRecords({weight("a"), weight("b")});
  settle();
  ASSERT_EQ(queueOf(session->sessionData()).size(), 2U);

  // The same user again: a fresh, empty session, saved as such.
  session->startSessionWithUser(testUser());
  EXPECT_EQ(hookCalls, 1);
  settle();
  EXPECT_TRUE(queueOf(NYBSession::sessionWithConfiguration({reachability})->sessionData()).empty());

  // A write still under way when the session ends does not bring it back.
  nyb::session::Testing::setProcessingRecord(*session, weight("busy"));
  {
    WriteQueueGate gate;
    session->submitRecord(weight("x"));
    session->endSession();
    EXPECT_EQ(hookCalls, 2);
    EXPECT_FALSE(fs::exists(archive));
  }
  EXPECT_TRUE(session->waitForArchiveWrites());
  EXPECT_FALSE(fs::exists(archive));
  nyb::session::Testing::setProcessingRecord(*session, nullptr);

  NYBSession::staticClass().setEndHealthKitSessionOperation(nullptr);
  EXPECT_FALSE(session->respondsToEndHealthKitSession());
}

TEST_F(SessionEngine, TheMediaURLCarriesTheSharedSessionUsersTokenAsItsOnlyQuery) {
  NYBReachabilitySource::setDefaultSource(reachability);
  auto shared = NYBSession::sharedInstance();
  NYBReachabilitySource::setDefaultSource(nullptr);
  NYBMedia media;
  media.setMediaURL("https://media.example/v1/m/7.png?size=large&authentication_token=old#top");
  EXPECT_FALSE(media.authenticatedURL().has_value());  // no session user yet

  shared->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "a b&c=d+e"));
  EXPECT_EQ(media.authenticatedURL().value().absoluteString(),
            "https://media.example/v1/m/7.png?authentication_token=a%20b%26c%3Dd+e#top");
  EXPECT_FALSE(NYBMedia().authenticatedURL().has_value());
  media.setMediaURL("not a url");
  EXPECT_FALSE(media.authenticatedURL().has_value());

  shared->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", NYBDynamicValue()));
  media.setMediaURL("https://media.example/x.png");
  EXPECT_FALSE(media.authenticatedURL().has_value());
  shared->endSession();
  EXPECT_TRUE(shared->waitForArchiveWrites());
}

}  // namespace
}  // namespace nyb::test
