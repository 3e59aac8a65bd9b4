// What the archive promises when things go wrong: a save racing the end of a
// write is never lost, a failed write is reported, a damaged archive is kept
// for recovery rather than written over or deleted.

#include <random>
#include <thread>

#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

using ArchiveIntegrity = SessionTest;

// The hand-off alone, raced a million times: the "main thread" saves and runs
// the follow-ups owed to it, the "write queue" ends the writes it is given.
// Whenever both sides are idle, no request may be left standing.
TEST(ArchiveWriteHandOff, NoSaveIsLostWhenItRacesTheEndOfAWrite) {
#if defined(__SANITIZE_THREAD__)
  const int saves = 20'000;  // the race checker slows the spinning a hundredfold
#else
  const int saves = 3'000'000;
#endif
  std::atomic<bool> inProgress{false};
  std::atomic<bool> requested{false};
  std::atomic<int> writesQueued{0};
  std::atomic<int> followUpsOwed{0};
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    while (!stop.load()) {
      if (writesQueued.load() == 0) continue;
      if (session::endWrite(inProgress, requested)) followUpsOwed.fetch_add(1);
      writesQueued.fetch_sub(1);  // only now: the write has ended
    }
  });
  const auto saveOrRequest = [&] {
    if (session::beginWriteOrRequest(inProgress, requested)) writesQueued.fetch_add(1);
  };
  const auto runFollowUpOwed = [&] {
    if (followUpsOwed.load() == 0) return;
    followUpsOwed.fetch_sub(1);
    saveOrRequest();
  };
  int lost = 0;
  for (int save = 0; save < saves && lost == 0; ++save) {
    saveOrRequest();
    runFollowUpOwed();
    if (save % 64 == 0) {
      // Settle: the writer drains, owed follow-ups run; then nothing may wait.
      while (writesQueued.load() > 0 || followUpsOwed.load() > 0) runFollowUpOwed();
      if (requested.load() || inProgress.load()) ++lost;
    }
  }
  stop.store(true);
  writer.join();
  EXPECT_EQ(lost, 0) << "a save asked for a write that never came";
}

// The main thread saves in a tight loop while a write ends on the write
// queue, so that some save falls between the end of the write and its look
// for a request.
TEST_F(ArchiveIntegrity, ASaveRacingTheEndOfAWriteIsNeverLost) {
  makeSession()->startSessionWithUser(testUser());
  nyb::session::Testing::setProcessingRecord(*session,
                                             weight("busy"));  // hold the queue: nothing is sent
  for (int round = 0; round < 50; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    ASSERT_TRUE(session->waitForArchiveWrites(10s)) << "a save was never written";
    const std::string first = "r" + std::to_string(round) + "-first";
    const std::string last = "r" + std::to_string(round) + "-last";
    session->sessionData()->setRecords(NYBArray{weight(first.c_str())});
    session->saveSessionData();  // a write of the first state starts
    session->sessionData()->setRecords(NYBArray{weight(last.c_str())});
    const std::size_t writes = session->archiveWriteCount();
    while (session->archiveWriteCount() == writes) session->saveSessionData();
    ASSERT_TRUE(session->waitForArchiveWrites(10s)) << "a save was never written";
    ASSERT_EQ(queueOf(archived(documents.path())), std::vector<std::string>{last});
  }
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
}

TEST_F(ArchiveIntegrity, AFailedWriteIsReportedOncePerCauseAndTriedAgainByTheNextSave) {
  makeSession()->startSessionWithUser(testUser());
  ASSERT_TRUE(session->waitForArchiveWrites());
  EXPECT_EQ(session->lastArchiveWriteFailure(), std::nullopt);
  const fs::path archive = documents.path() / "sessionData";
  const std::string before = bytesOf(archive);

  // A directory where the archive should be: the rename is refused.
  fs::remove(archive);
  fs::create_directories(archive / "in-the-way");
  LogCapture log;
  nyb::session::Testing::setProcessingRecord(*session, weight("busy"));
  for (const char* id : {"a", "b", "c"}) {
    session->submitRecord(weight(id));
    ASSERT_TRUE(session->waitForArchiveWrites());
  }
  EXPECT_EQ(session->archiveWriteFailureCount(), 3U);
  auto failure = session->lastArchiveWriteFailure();
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->path, archive.string());
  EXPECT_EQ(failure->error, std::errc::is_a_directory);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"NYBSession: Unable to save the session to " +
                                                  archive.string() + ": Is a directory"});
  EXPECT_EQ(std::distance(fs::directory_iterator(documents.path()), {}), 3)
      << "only the archive's place, the images and the lock file";

  // The cause gone, the next save writes everything queued meanwhile.
  fs::remove_all(archive);
  session->submitRecord(weight("d"));
  ASSERT_TRUE(session->waitForArchiveWrites());
  EXPECT_EQ(session->lastArchiveWriteFailure(), std::nullopt);
  EXPECT_NE(bytesOf(archive), before);
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
  session.reset();
  makeSession();
  EXPECT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(log.lines().size(), 2U) << "no new failure: the one above and a library description";
}

TEST_F(ArchiveIntegrity, ADamagedArchiveIsMovedAsideBeforeTheFirstSaveAndNeverDeleted) {
  const fs::path archive = documents.path() / "sessionData";
  makeSession()->startSessionWithUser(testUser());
  nyb::session::Testing::setProcessingRecord(*session, weight("busy"));
  session->submitRecord(weight("precious"));
  ASSERT_TRUE(session->waitForArchiveWrites());
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
  session.reset();
  const std::string valid = bytesOf(archive);

  std::mt19937 random(7);
  std::string noise(300, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  const std::vector<std::string> damaged = {valid.substr(0, valid.size() / 2), noise, "",
                                            valid.substr(0, valid.size() - 1)};
  for (std::size_t i = 0; i < damaged.size(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    std::ofstream(archive, std::ios::binary | std::ios::trunc) << damaged[i];
    LogCapture log;
    makeSession();
    ASSERT_EQ(session->sessionData(), nullptr);
    // Ending a session that never loaded leaves the file where it is.
    session->endSession();
    ASSERT_TRUE(session->waitForArchiveWrites());
    ASSERT_EQ(bytesOf(archive), damaged[i]);

    session->startSessionWithUser(testUser());
    ASSERT_TRUE(session->waitForArchiveWrites());
    const auto kept = damagedArchivesIn(documents.path());
    ASSERT_FALSE(kept.empty());
    // The newest is the one just moved: names sort by their UTC time.
    EXPECT_EQ(bytesOf(kept.back()), damaged[i]);
    struct stat info {};
    ASSERT_EQ(::stat(kept.back().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_TRUE(log.contains("NYBSession: Kept the damaged archive as " + kept.back().string()));
    EXPECT_NE(bytesOf(archive), damaged[i]);
    session.reset();
  }
  // Only the newest three are kept.
  const auto kept = damagedArchivesIn(documents.path());
  ASSERT_EQ(kept.size(), 3U);
  EXPECT_EQ(bytesOf(kept[0]), damaged[1]);
}

}  // namespace
}  // namespace nyb::test
