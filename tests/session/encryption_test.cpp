// The session's files under a key: nothing of a record, a photo or the token
// reaches the disk in the clear; a file that does not open is refused and
// kept; a plain session moves under a key; a key can be replaced.
#include <filesystem>

#include "NymbrelCore/NYBSessionKey.h"
#include "session/SessionTestSupport.h"
#include "support/LogCapture.h"

namespace nyb::test {
namespace {

namespace fs = std::filesystem;

std::vector<std::uint8_t> keyOf(std::uint8_t seed) {
  std::vector<std::uint8_t> key(NYBSessionKey::kKeySize);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(seed * 31 + i);
  return key;
}

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

bool logged(const LogCapture& log, const std::string& part) {
  for (const std::string& line : log.lines()) {
    if (line.find(part) != std::string::npos) return true;
  }
  return false;
}

class Encryption : public SessionTest {
 protected:
  void TearDown() override {
    SessionTest::TearDown();
    NYBSessionKey::clearKeys();
  }
  // A session whose one record (with a photo) stays queued: the service
  // answers 503 until told otherwise.
  void queueOneWithPhoto(const char* activity = "reading-4711") {
    server().setDefaultResponse(refused(503));
    makeSession()->startSessionWithUser(testUser());
    session->submitRecord(weight(activity), photo(5));
    settle();
    ASSERT_EQ(queueOf(session->sessionData()).size(), 1U);
  }
  void restart() {
    if (session) settle();
    session.reset();
    makeSession();
  }
  fs::path photoFile() const { return filesUnder(documents.path() / "images").at(0); }
};

TEST_F(Encryption, NothingReachesTheDiskInTheClearAndThePhotoIsUploadedAfterARestart) {
  // Asked again at every write and read, also after the test's body.
  NYBSessionKey::setKeyProvider([key = keyOf(1)](std::span<std::uint8_t, 32> out) {
    std::copy(key.begin(), key.end(), out.begin());
    return true;
  });
  queueOneWithPhoto();
  const std::string png(NYBImagePNGRepresentation(photo(5))->view());
  for (const fs::path& file : filesUnder(documents.path())) {
    const std::string bytes = bytesOf(file);
    for (const std::string& secret : {std::string("tok-1"), std::string("reading-4711"),
                                      std::string("IHDR"), png.substr(0, 16)}) {
      EXPECT_EQ(bytes.find(secret), std::string::npos) << secret << " in " << file;
    }
  }

  server().reset();
  server().enqueue(acceptedWeight("id-1", "reading-4711"));
  server().enqueue(ScriptedResponse::json(201, R"({"media":{"id":"m1","url":"http://m/1.png"}})"));
  restart();
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2; }));
  EXPECT_EQ(outcomes(notes), (std::vector<std::string>{"submitted id-1", "photo id-1"}));
  const auto requests = server().requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_NE(requests[1].body.find(png), std::string::npos) << "the photo sent is not the PNG";
}

// Each way a file can fail to open: the session starts empty, says why, and
// the next save keeps the file as it was, where the right key still opens it.
TEST_F(Encryption, AnArchiveThatDoesNotOpenIsRefusedAndKept) {
  struct Case {
    const char* name;
    std::function<void(const fs::path& archive)> spoil;
    const char* reason;
  };
  const std::vector<Case> cases = {
      {"wrong key", [](const fs::path&) { NYBSessionKey::setKey(keyOf(2)); },
       "encrypted with another key"},
      {"no key", [](const fs::path&) { NYBSessionKey::clearKeys(); }, "no key is set"},
      {"flipped byte",
       [](const fs::path& archive) {
         std::string bytes = bytesOf(archive);
         bytes[bytes.size() / 2] ^= 0x01;
         writeBytes(archive, bytes);
       },
       "fails authentication"},
      {"truncated",
       [](const fs::path& archive) {
         const std::string bytes = bytesOf(archive);
         writeBytes(archive, bytes.substr(0, bytes.size() - 7));
       },
       "fails authentication"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    const fs::path archive = documents.path() / "sessionData";
    fs::remove_all(documents.path() / "images");
    for (const fs::path& file : filesUnder(documents.path())) fs::remove(file);
    NYBSessionKey::setKey(keyOf(1));
    queueOneWithPhoto();
    each.spoil(archive);
    const std::string spoiled = bytesOf(archive);

    LogCapture log;
    restart();
    EXPECT_EQ(session->sessionData(), nullptr);
    EXPECT_TRUE(logged(log, "Caught decoding exception: ")) << each.reason;
    EXPECT_TRUE(logged(log, each.reason)) << each.reason;
    session->startSessionWithUser(testUser());
    settle();
    std::vector<fs::path> kept;
    for (const fs::path& file : filesUnder(documents.path())) {
      if (file.filename().string().rfind("sessionData.damaged-", 0) == 0) kept.push_back(file);
    }
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(bytesOf(kept[0]), spoiled);
    if (std::string(each.name).find("key") != std::string::npos) {
      NYBSessionKey::setKey(keyOf(1));
      EXPECT_EQ(NYBSessionKey::openArchive(NYBData(spoiled)).state, NYBSessionKey::State::Opened);
    }
    session.reset();
  }
}

// A photo file put in another's place is refused (each is bound to its
// name), kept aside, and reported; the genuine one still goes.
TEST_F(Encryption, APhotoInAnotherPhotosPlaceIsRefusedAndKept) {
  NYBSessionKey::setKey(keyOf(1));
  server().setDefaultResponse(refused(503));
  makeSession()->startSessionWithUser(testUser());
  session->submitRecord(weight("a"), photo(1));
  session->submitRecord(weight("b"), photo(2));
  settle();
  const auto names = filesUnder(documents.path() / "images");
  ASSERT_EQ(names.size(), 2U);
  writeBytes(names[1], bytesOf(names[0]));
  session->saveSessionData();

  server().reset();
  server().enqueue(acceptedWeight("id-1", "a"));
  server().enqueue(acceptedWeight("id-2", "b"));
  server().setDefaultResponse(
      ScriptedResponse::json(201, R"({"media":{"id":"m1","url":"http://m/1.png"}})"));
  restart();
  ASSERT_TRUE(runUntil([&] {
    return notes.named(kNYBRecordImageSubmittedNotification).size() +
               notes.named(kNYBRecordImageSubmissionFailedNotification).size() ==
           2;
  }));
  const auto failed = notes.named(kNYBRecordImageSubmissionFailedNotification);
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed[0].error()->code(), NYBSessionErrorImageUnavailable);
  EXPECT_EQ(notes.named(kNYBRecordImageSubmittedNotification).size(), 1U);
  EXPECT_TRUE(fs::exists(documents.path() / "images.damaged" / names[1].filename()));
}

TEST_F(Encryption, APlainSessionMovesUnderAKeyAndFollowsItsRotation) {
  queueOneWithPhoto();
  EXPECT_NE(bytesOf(documents.path() / "sessionData").find("tok-1"), std::string::npos);

  NYBSessionKey::setKey(keyOf(1));
  restart();
  settle();
  EXPECT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"reading-4711"}));
  EXPECT_EQ(bytesOf(documents.path() / "sessionData").find("tok-1"), std::string::npos);
  EXPECT_EQ(bytesOf(photoFile()).find("IHDR"), std::string::npos);

  const std::string underFirstKey = bytesOf(photoFile());
  ASSERT_TRUE(NYBSessionKey::rotateKey(keyOf(2)));
  EXPECT_NE(bytesOf(photoFile()), underFirstKey);
  session->saveSessionData();
  settle();

  // Only the new key from here on.
  NYBSessionKey::clearKeys();
  NYBSessionKey::setKey(keyOf(2));
  restart();
  ASSERT_EQ(queueOf(session->sessionData()), (std::vector<std::string>{"reading-4711"}));
  const auto record = session->sessionData()->peekNextRecord();
  const auto image = session->sessionData()->imageForRecord(record);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(*image, *photo(5));
}

}  // namespace
}  // namespace nyb::test
