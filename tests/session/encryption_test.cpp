// The session's files under a key: nothing of a record, a photo or the token
// reaches the disk in the clear; a file that does not open is refused and
// kept; a plain session moves under a key; a key can be replaced.

#include "NymbrelCore/NYBSessionKey.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

std::vector<std::uint8_t> keyOf(std::uint8_t seed) { return std::vector<std::uint8_t>(32, seed); }

void writeBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::vector<fs::path> filesUnder(const fs::path& directory) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  return files;
}

class Encryption : public SessionTest {
 protected:
  void TearDown() override {
    SessionTest::TearDown();
    NYBSessionKey::clearKeys();
  }
  // Records stay queued: the service answers 503 until told otherwise.
  void queueWithPhotos(std::vector<const char*> activities = {"reading-4711"}) {
    server().setDefaultResponse(refused(503));
    makeSession()->startSessionWithUser(testUser());
    for (const char* activity : activities) session->submitRecord(weight(activity), photo(5));
    settle();
  }
  void restart() {
    settle();
    session.reset();
    makeSession();
  }
  fs::path photoFile() const { return filesUnder(documents.path() / "images").at(0); }
  fs::path archive() const { return documents.path() / "sessionData"; }
};

TEST_F(Encryption, NothingReachesTheDiskInTheClearAndThePhotoIsUploadedAfterARestart) {
  // Asked again at every write and read, also after the test's body.
  NYBSessionKey::setKeyProvider([key = keyOf(1)](std::span<std::uint8_t, 32> out) {
    std::copy(key.begin(), key.end(), out.begin());
    return true;
  });
  queueWithPhotos();
  const std::string png(NYBImagePNGRepresentation(photo(5))->view());
  for (const fs::path& file : filesUnder(documents.path())) {
    for (const std::string& secret : {std::string("tok-1"), std::string("reading-4711"),
                                      std::string("IHDR"), png.substr(0, 16)}) {
      EXPECT_EQ(bytesOf(file).find(secret), std::string::npos) << secret << " in " << file;
    }
  }
  server().reset();
  server().enqueue(acceptedWeight("id-1", "reading-4711"));
  server().enqueue(acceptedPhoto());
  restart();
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2; }));
  EXPECT_EQ(outcomes(notes), (std::vector<std::string>{"submitted id-1", "photo id-1"}));
  ASSERT_EQ(server().requests().size(), 2U);
  EXPECT_NE(server().requests()[1].body.find(png), std::string::npos) << "not the photo's PNG";
}

// Each way the archive can fail to open: the session starts empty and says
// why, and the next save keeps the file as it was, for the right key to open.
TEST_F(Encryption, AnArchiveThatDoesNotOpenIsRefusedAndKept) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"wrong key", "encrypted with another key"},
      {"no key", "no key is set"},
      {"flipped byte", "fails authentication"},
      {"truncated", "fails authentication"}};
  for (const auto& [spoil, reason] : cases) {
    SCOPED_TRACE(spoil);
    for (const fs::path& file : filesUnder(documents.path())) fs::remove(file);
    NYBSessionKey::setKey(keyOf(1));
    queueWithPhotos();
    std::string bytes = bytesOf(archive());
    if (spoil == "wrong key") NYBSessionKey::setKey(keyOf(2));
    if (spoil == "no key") NYBSessionKey::clearKeys();
    if (spoil == "flipped byte") bytes[bytes.size() / 2] ^= 0x01;
    if (spoil == "truncated") bytes.resize(bytes.size() - 7);
    writeBytes(archive(), bytes);

    LogCapture log;
    restart();
    EXPECT_EQ(session->sessionData(), nullptr);
    const auto lines = log.lines();
    // A copy: Clang 14 cannot capture a structured binding.
    const std::string because = reason;
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.rfind("Caught decoding exception: ", 0) == 0 &&
             line.find(because) != std::string::npos;
    }));
    session->startSessionWithUser(testUser());
    settle();
    const auto kept = damagedArchivesIn(documents.path());
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(bytesOf(kept[0]), bytes);
    NYBSessionKey::setKey(keyOf(1));
    EXPECT_EQ(NYBSessionKey::openArchive(NYBData(bytes)).state == NYBSessionKey::State::Opened,
              spoil.find("key") != std::string::npos);
    session.reset();
  }
}

// Each photo is bound to its name: one put in another's place is refused,
// kept aside and reported, and the genuine one still goes.
TEST_F(Encryption, APhotoInAnotherPhotosPlaceIsRefusedAndKept) {
  NYBSessionKey::setKey(keyOf(1));
  queueWithPhotos({"a", "b"});
  const auto names = filesUnder(documents.path() / "images");
  ASSERT_EQ(names.size(), 2U);
  writeBytes(names[1], bytesOf(names[0]));
  server().reset();
  server().enqueue(acceptedWeight("id-1", "a"));
  server().enqueue(acceptedWeight("id-2", "b"));
  server().setDefaultResponse(acceptedPhoto());
  restart();
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 4; }));
  const auto failed = notes.named(kNYBRecordImageSubmissionFailedNotification);
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed[0].error()->code(), NYBSessionErrorImageUnavailable);
  EXPECT_EQ(notes.named(kNYBRecordImageSubmittedNotification).size(), 1U);
  EXPECT_TRUE(fs::exists(documents.path() / "images.damaged" / names[1].filename()));
}

TEST_F(Encryption, APlainSessionMovesUnderAKeyAndFollowsItsRotation) {
  queueWithPhotos();
  EXPECT_NE(bytesOf(archive()).find("tok-1"), std::string::npos);
  NYBSessionKey::setKey(keyOf(1));
  restart();
  settle();
  EXPECT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"reading-4711"}));
  EXPECT_EQ(bytesOf(archive()).find("tok-1"), std::string::npos);
  EXPECT_EQ(bytesOf(photoFile()).find("IHDR"), std::string::npos);

  const std::string underFirstKey = bytesOf(photoFile());
  ASSERT_TRUE(NYBSessionKey::rotateKey(keyOf(2)));
  EXPECT_NE(bytesOf(photoFile()), underFirstKey);
  session->saveSessionData();
  settle();
  NYBSessionKey::clearKeys();  // only the new key from here on
  NYBSessionKey::setKey(keyOf(2));
  restart();
  ASSERT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"reading-4711"}));
  const auto image =
      session->sessionData()->imageForRecord(session->sessionData()->peekNextRecord());
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(*image, *photo(5));
}

}  // namespace
}  // namespace nyb::test
