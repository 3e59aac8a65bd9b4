// The archive: saves during a write fold into one more write, what is written
// is the state at the moment of the save (never read from the live objects by
// the write queue), the file's permissions, and an archive of no session.

#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

using SessionPersistence = SessionTest;

TEST_F(SessionPersistence, SavesDuringAWriteCostOneMoreWriteHoldingTheLatestState) {
  makeSession();
  EXPECT_EQ(session->archiveWriteCount(), 0U);  // no archive, nothing to save at start-up
  {
    WriteQueueGate gate;
    session->startSessionWithUser(testUser());  // the first write waits behind the gate
    EXPECT_TRUE(session->writeInProgress());
    for (int i = 0; i < 10; ++i) {
      session->sessionData()->addRecord(weight(("r" + std::to_string(i)).c_str()));
      session->saveSessionData();
      EXPECT_TRUE(session->writeRequested());
    }
    EXPECT_EQ(session->archiveWriteCount(), 0U);
  }
  ASSERT_TRUE(session->waitForArchiveWrites());
  EXPECT_EQ(session->archiveWriteCount(), 2U);
  EXPECT_FALSE(session->writeInProgress() || session->writeRequested());
  auto onDisk = archived(documents.path());
  ASSERT_EQ(queueOf(onDisk).size(), 10U);
  EXPECT_TRUE(onDisk->user().objectAs<NYBUser>()->isEqual(*testUser()));
  // A save with no write running starts one of its own at once.
  session->saveSessionData();
  ASSERT_TRUE(session->waitForArchiveWrites());
  EXPECT_EQ(session->archiveWriteCount(), 3U);
}

TEST_F(SessionPersistence, TheWriteArchivesTheStateOfTheSaveAndTheQueueKeepsItsOwnRecords) {
  makeSession()->startSessionWithUser(testUser());
  nyb::session::Testing::setProcessingRecord(*session,
                                             weight("busy"));  // hold the queue: nothing is sent
  auto mine = weight("mine", 70.0);
  session->submitRecord(mine);
  ASSERT_TRUE(session->waitForArchiveWrites());
  {
    WriteQueueGate gate;
    session->submitRecord(weight("second"));  // its write waits behind the gate
    session->sessionData()->addRecord(weight("unsaved"));
    gate.release();
    // The caller goes on changing its own record while the write runs.
    for (int i = 0; i < 100; ++i) mine->setWeight(80.0 + i);
    ASSERT_TRUE(session->waitForArchiveWrites());
  }
  EXPECT_EQ(session->sessionData()->peekNextRecord()->valueForKey("weight").doubleValue(), 70.0);
  auto onDisk = archived(documents.path());
  ASSERT_EQ(queueOf(onDisk), (std::vector<std::string>{"mine", "second"}));
  EXPECT_EQ(onDisk->records().array()->elements()[0].objectAs<NYBRecord>()->valueForKey("weight"),
            NYBDynamicValue(70.0));
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
}

// Under ThreadSanitizer: the media of an uploaded photo are added while a
// write that holds the photo's record in its snapshot is running.
TEST_F(SessionPersistence, MediaOfAnUploadedPhotoNeverChangeWhatAWriteIsReading) {
  makeSession()->startSessionWithUser(testUser());
  server().enqueue(acceptedWeight("id-1", "pic"));
  server().enqueue(acceptedPhoto());
  session->submitRecord(weight("pic"), photo(5));
  ASSERT_TRUE(runUntil([&] { return !notes.posted.empty(); }));
  // The upload is in flight; its answer waits for the main thread.
  ASSERT_TRUE(server().waitForRequests(2, 5s));
  auto key = session->processingRecord();
  ASSERT_EQ(key->recordID().description(), "id-1");
  {
    WriteQueueGate gate;
    session->saveSessionData();  // this write, or the one running, holds the photo's record
    gate.release();
    ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2; }));
  }
  settle();
  const Posted& uploaded = notes.posted[1];
  EXPECT_EQ(uploaded.name, kNYBRecordImageSubmittedNotification);
  EXPECT_EQ(uploaded.record()->media().array()->size(), 1U);
  EXPECT_TRUE(key->media().isAbsent() || key->media().array()->empty());
}

TEST_F(SessionPersistence, AnArchiveOfNoSessionLoadsAsNoSession) {
  makeSession()->startSessionWithUser(testUser());
  session->endSession();
  EXPECT_FALSE(fs::exists(documents.path() / "sessionData"));
  session->saveSessionData();
  ASSERT_TRUE(session->waitForArchiveWrites());
  ASSERT_TRUE(fs::exists(documents.path() / "sessionData"));

  LogCapture log;
  auto next = NYBSession::sessionWithConfiguration({reachability});
  EXPECT_EQ(next->sessionData(), nullptr);
  EXPECT_EQ(log.lines(), std::vector<std::string>{NYBSession::libraryDescription()});
  // An archive whose root is some other object, or whose queue holds
  // something else than records, is damage, not a session.
  auto strange = std::make_shared<NYBSessionData>(testUser());
  strange->setRecords(NYBArray{weight("fine"), testUser()});
  for (const NYBDynamicValue& root : {NYBDynamicValue(testUser()), NYBDynamicValue(strange)}) {
    std::ofstream(documents.path() / "sessionData", std::ios::binary | std::ios::trunc)
        << NYBKeyedArchiver::archivedDataWithRootObject(root).view();
    log.clear();
    EXPECT_EQ(NYBSession::sessionWithConfiguration({reachability})->sessionData(), nullptr);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1].rfind("Caught decoding exception: ", 0), 0U);
  }

  // The write queue hands its hold on the session back to the main thread; a
  // session released with a write and a deletion pending goes there once they are done.
  session->startSessionWithUser(testUser());
  session->endSession();
  std::weak_ptr<NYBSession> released = session;
  session.reset();
  ASSERT_TRUE(runUntil([&] { return released.expired(); }));
  EXPECT_FALSE(fs::exists(documents.path() / "sessionData"));
}

}  // namespace
}  // namespace nyb::test
