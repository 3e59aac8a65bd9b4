// The engine when things go wrong around it: the session changes while a
// request is in flight, a record cannot be written as JSON, reachability is
// announced from another thread, an observer changes what it was handed, and
// the program ends while the archive is being written.
#include <cmath>
#include <cstdlib>
#include <thread>

#include "session/SessionTestSupport.h"
#include "support/RunProgram.h"

extern char** environ;

namespace nyb::test {
namespace {

using SessionFaults = SessionTest;

TEST_F(SessionFaults, WhatIsInFlightWhenTheSessionChangesNeverReachesTheNextSession) {
  struct Case {
    const char* name;
    bool photoInFlight;  // else the record itself is in flight
    ScriptedResponse answer;
    bool sameUser;
    std::vector<std::string> firstSessionOutcomes;
  };
  const Case cases[] = {
      {"accepted", false, acceptedWeight("a-1", "r"), true, {"submitted a-1"}},
      {"refused", false, refused(422), false, {"failed r"}},
      {"server error", false, ScriptedResponse::json(500, "{}"), true, {}},
      {"cut", false, ScriptedResponse::closeMidAnswer(200, R"({"weight":)", 64), false, {}},
      {"photo accepted", true, acceptedPhoto(), false, {"submitted a-1", "photo a-1"}},
      {"photo refused", true, refused(422), true, {"submitted a-1", "photo failed a-1"}},
      {"photo error", true, ScriptedResponse::json(503, "{}"), false, {"submitted a-1"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (session) settle();
    server().reset();
    notes.posted.clear();
    makeSession()->startSessionWithUser(testUser());
    if (c.photoInFlight) server().enqueue(acceptedWeight("a-1", "r"));
    server().enqueue(c.answer);
    server().enqueue(acceptedWeight("b-1", "r"));
    server().enqueue(acceptedWeight("b-2", "s"));
    server().enqueue(acceptedPhoto());

    session->submitRecord(weight("r"), photo(1));
    if (c.photoInFlight) {
      ASSERT_TRUE(runUntil([&] {
        return session->processingRecord() && session->processingRecord()->recordID().isPresent();
      }));
    }
    const std::size_t before = c.photoInFlight ? 2 : 1;
    ASSERT_TRUE(server().waitForRequests(before, 5s));

    // The answer is handled only once the main loop runs, after the change.
    auto next = c.sameUser ? testUser() : std::make_shared<NYBUser>("u2", "acme", "tok-2");
    session->startSessionWithUser(next);
    session->submitRecord(weight("r"), photo(2));  // equal to the record in flight
    session->submitRecord(weight("s"));
    ASSERT_TRUE(runUntil([&] { return !session->processingRecord(); }));
    reachability->setFlags(kNYBReachabilityFlagsReachable);
    runUntil([&] { return server().requests().size() == before + 3; });
    settle();

    const std::string path = "/v1/organizations/acme/users/" + next->nymbrelUserID().description();
    const std::string token = next->accessToken().description();
    const auto requests = server().requests();
    std::vector<std::string> sent;
    for (std::size_t i = before; i < requests.size(); ++i) {
      sent.push_back(requests[i].method + " " + requests[i].target + " " +
                     (i < before + 2 ? activityIn(requests[i].body) : "") + " " +
                     *requests[i].header(kNYBNymbrelAuthV2));
    }
    EXPECT_EQ(
        sent,
        (std::vector<std::string>{
            "POST " + path + "/weight.json r " + token, "POST " + path + "/weight.json s " + token,
            "POST " + path + "/weight/b-1/media?authentication_token=" + token + "  " + token}));
    std::vector<std::string> expected = c.firstSessionOutcomes;
    expected.insert(expected.end(), {"submitted b-1", "submitted b-2", "photo b-1"});
    EXPECT_EQ(outcomes(notes), expected);
  }
}

TEST_F(SessionFaults, ARecordWhoseJSONCannotBeMadeFailsWithItsKeyAndTheNextOneGoes) {
  auto textDate = weight("text-date");
  textDate->setTimestamp(NYBDynamicValue("2016-03-01"));
  auto nanDate = weight("nan-date");
  nanDate->setTimestamp(NYBDate(std::nan("")));
  nanDate->setRecordID("w-9");  // updated, not posted
  auto routine = std::make_shared<NYBRoutine>();
  routine->setActivityID("walk");
  routine->setTimestamp(NYBDynamicValue("today"));
  auto nanWeight = weight("nan-weight", std::nan(""));
  server().setDefaultResponse(acceptedWeight("ok", "good"));
  makeSession()->startSessionWithUser(testUser());

  EXPECT_NO_THROW(session->submitRecords({textDate, nanDate, routine, nanWeight, weight("good")}));
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 5; }));
  settle();
  EXPECT_EQ(outcomes(notes),
            (std::vector<std::string>{"failed text-date", "failed w-9", "failed walk",
                                      "failed nan-weight", "submitted ok"}));
  const char* keys[] = {"timestamp", "timestamp", "timestamp", "weight"};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto error = notes.posted[i].error();
    EXPECT_EQ(error->domain(), kNYBAPIErrorDomain);
    EXPECT_EQ(error->code(), NYBAPIErrorUnencodableRecord);
    EXPECT_NE(error->localizedDescription().find(keys[i]), std::string::npos)
        << error->localizedDescription();
  }
  EXPECT_EQ(requestLines(), (std::vector<std::string>{"POST weight.json"}));
  EXPECT_TRUE(queueOf(session->sessionData()).empty());

  // An archive that holds such a record starts up all the same.
  session.reset();
  auto archived = std::make_shared<NYBSessionData>(testUser());
  archived->addRecords({textDate, weight("good")});
  const NYBData bytes = NYBKeyedArchiver::archivedDataWithRootObject(NYBDynamicValue(archived));
  std::ofstream(documents.path() / "sessionData", std::ios::binary) << bytes.view();
  notes.posted.clear();
  EXPECT_NO_THROW(makeSession());
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2; }));
  EXPECT_EQ(outcomes(notes), (std::vector<std::string>{"failed text-date", "submitted ok"}));
}

TEST_F(SessionFaults, AReachabilityChangeFromAnotherThreadIsHandledOnTheMainThread) {
  makeSession()->startSessionWithUser(testUser());
  server().enqueue(ScriptedResponse::json(500, "{}"));
  session->submitRecord(weight("w"));
  settle();  // back at the tail, waiting for a trigger
  server().setDefaultResponse(acceptedWeight("w-1", "w"));

  std::thread([] {
    NYBNotificationCenter::defaultCenter().postNotificationName(
        std::string(kReachabilityChangedNotification));
  }).join();
  EXPECT_EQ(session->processingRecord(), nullptr);  // the queue was not touched there
  ASSERT_TRUE(runUntil([&] { return !notes.posted.empty(); }));
  EXPECT_EQ(outcomes(notes), (std::vector<std::string>{"submitted w-1"}));
}

TEST_F(SessionFaults, AnObserverThatChangesItsRecordChangesNothingTheSessionKeeps) {
  makeSession()->startSessionWithUser(testUser());
  notes.onPost = [&](const Posted& posted) {
    if (posted.name != kNYBRecordImageSubmittedNotification) {
      EXPECT_NE(posted.record(), session->processingRecord()) << posted.name;
    }
    posted.record()->setRecordID("hijack");
    posted.record()->setActivityID("changed");
  };
  server().enqueue(acceptedWeight("id-1", "p"));
  server().enqueue(refused(422));
  server().enqueue(refused(422));  // the photo
  session->submitRecord(weight("p"), photo(1));
  session->submitRecord(weight("r"));
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 3; }));
  settle();
  // The photo still goes to the identifier the service gave.
  EXPECT_EQ(requestLines().back(), "POST weight/id-1/media?authentication_token=tok-1");
  EXPECT_FALSE(session->sessionData()->hasImages());
}

// A program whose main returns while a write runs: the write is finished before
// the library's objects go, so the archive holds what was being written.
TEST_F(SessionFaults, AWriteUnderWayWhenTheProgramEndsIsFinished) {
  constexpr std::size_t kRecords = 5000;
  if (const char* directory = std::getenv("NYB_EXIT_DURING_WRITE")) {
    NYBDocuments::setDocumentsDirectory(directory);
    makeSession()->startSessionWithUser(nullptr);  // no user: nothing is sent
    session->waitForArchiveWrites();
    session->submitRecords(std::vector<std::shared_ptr<NYBRecord>>(kRecords, weight("x")));
    fs::remove_all(documents.path());  // the child's own, unused
    std::exit(session->writeInProgress() ? 0 : 3);
  }
  std::vector<std::string> environment{"NYB_EXIT_DURING_WRITE=" + documents.path().string()};
  for (char** each = environ; *each != nullptr; ++each) environment.emplace_back(*each);
  const ProgramRun child = runProgram(
      {"/proc/self/exe", "--gtest_filter=SessionFaults.AWriteUnderWayWhenTheProgramEndsIsFinished"},
      environment);
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(makeSession()->sessionData()->records().array()->size(), kRecords);
  // No user: the head was marked in flight.
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
}

}  // namespace
}  // namespace nyb::test
