// The session data store: the upload queue, the photo map and its files in a
// real documents directory, and the archive round trip.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "session/SessionTestSupport.h"
#include "support/LogCapture.h"

namespace nyb::test {
namespace {

namespace fs = std::filesystem;
using Queue = std::vector<std::string>;

class SessionData : public SessionFixture {
 protected:
  void SetUp() override {
    SessionFixture::SetUp();
    data = std::make_shared<NYBSessionData>(user);
  }

  fs::path imageDirectory() const { return documents.path() / "images"; }
  // The file name the photo of a record gets: its model hash, in decimal.
  static std::string fileNameOf(const std::shared_ptr<NYBRecord>& r) {
    return std::to_string(r->hash()) + ".png";
  }

  std::shared_ptr<NYBUser> user = std::make_shared<NYBUser>("u-1", "org-9", "token-abc");
  std::shared_ptr<NYBSessionData> data;
};

TEST_F(SessionData, QueueIsFirstInFirstOutAndRemovesOnlyAMatchingHead) {
  auto a = weight("a"), b = weight("b"), c = weight("c");
  data->addRecord(a);
  data->addRecord(nullptr);
  data->addRecords({b, nullptr, c});
  data->addRecords(NYBDynamicValue());  // absent: ignored
  const NYBDynamicValue before = data->records();
  EXPECT_EQ(queueOf(data), (Queue{"a", "b", "c"}));

  // Not the head: nothing happens. An equal record, not the same object, is a match.
  data->removeNextRecordIfMatch(b);
  data->removeNextRecordIfMatch(nullptr);
  data->removeNextRecordIfMatch(weight("a"));
  EXPECT_EQ(queueOf(data), (Queue{"b", "c"}));
  // What was handed out before did not change under its holder.
  EXPECT_EQ(before.array()->size(), 3U);

  data->addRecords(NYBDynamicValue(NYBArray{a, "not a record"}));
  EXPECT_EQ(queueOf(data), (Queue{"b", "c", "a"}));
  for (const auto& each : {b, c, a, a}) data->removeNextRecordIfMatch(each);  // the last: empty
  EXPECT_FALSE(data->hasRecords());
}

TEST_F(SessionData, APhotoIsWrittenAsAPrivatePNGNamedAfterTheRecord) {
  data->verifyImageDirectory();
  struct stat status {};
  ASSERT_EQ(::stat(imageDirectory().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);

  auto r = weight("photo");
  data->addRecord(r, photo(10));
  EXPECT_EQ(data->peekNextRecord(), r);
  const fs::path file = imageDirectory() / fileNameOf(r);
  EXPECT_EQ(data->imageFilepathForRecord(r), file.string());
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);

  // The file holds the very pixels; an equal record finds it.
  ASSERT_NE(data->imageForRecord(weight("photo")), nullptr);
  EXPECT_EQ(*data->imageForRecord(weight("photo")), *photo(10));

  // A second record with the same values shares the file: the later photo wins.
  data->addRecord(weight("photo"), photo(99));
  EXPECT_EQ(queueOf(data).size(), 2U);
  EXPECT_EQ(data->imageFilenames().dictionary()->size(), 1U);
  EXPECT_EQ(*data->imageForRecord(r), *photo(99));

  // Changing a record after it was queued loses its photo: the key no longer matches.
  r->setComment("changed");
  EXPECT_EQ(data->imageForRecord(r), nullptr);

  // Verifying an existing directory changes nothing; emptying it keeps it and the map.
  fs::create_directory(imageDirectory() / "leftover");
  std::ofstream(imageDirectory() / "leftover" / "x") << "x";
  data->verifyImageDirectory();
  EXPECT_TRUE(fs::exists(file));
  data->eraseImageDirectoryContents();
  EXPECT_TRUE(fs::is_directory(imageDirectory()) && fs::is_empty(imageDirectory()));
  EXPECT_TRUE(data->hasImageForRecord(weight("photo")));
}

TEST_F(SessionData, AFailedPhotoWriteQueuesTheRecordWithoutItsPhoto) {
  LogCapture log;
  // No image directory yet, then an image with no pixels: neither is written.
  auto first = weight("first"), second = weight("second");
  data->addRecord(first, photo(1));
  data->verifyImageDirectory();
  data->addRecord(second, std::make_shared<NYBImage>(0, 0));
  // Either argument absent: nothing at all.
  data->addRecord(nullptr, photo(1));
  data->addRecord(weight("third"), nullptr);

  EXPECT_EQ(queueOf(data), (Queue{"first", "second"}));
  EXPECT_FALSE(data->hasImages());
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "NYBSessionData: Error converting image to PNG representation",
                             "NYBSessionData: Error converting image to PNG representation"}));
  EXPECT_TRUE(fs::is_empty(imageDirectory()));

  // A file where the documents directory should be: the directory cannot be made.
  fs::remove_all(imageDirectory());
  std::ofstream(documents.path() / "blocked") << "file";
  NYBDocuments::setDocumentsDirectory((documents.path() / "blocked" / "Documents").string());
  log.clear();
  data->verifyImageDirectory();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "NYBSessionData: Unable to create directory for images to upload. "
                             "Detail: Not a directory"}));
  data->eraseImageDirectoryContents();  // nothing to list: nothing happens
}

TEST_F(SessionData, PhotosWaitForTheServiceIdentifierAndMoveToTheAcceptedRecord) {
  data->verifyImageDirectory();
  auto queued = weight("walk");
  auto other = weight("run");
  data->addRecord(other, photo(2));
  data->addRecord(queued, photo(3));
  const std::string fileName = fileNameOf(queued);

  // Photos exist, but no record has been accepted yet.
  EXPECT_EQ(data->findNextImageRecordWithRecordID(), nullptr);

  // The service's copy carries a recordID: the photo moves over, keeping the
  // file (and the name made from the old record).
  auto accepted = weight("walk");
  accepted->setRecordID("srv-1");
  data->replaceImageRecord(queued, accepted);
  EXPECT_FALSE(data->hasImageForRecord(queued));
  EXPECT_EQ(data->imageFilenameForRecord(accepted), fileName);
  auto next = data->findNextImageRecordWithRecordID();
  ASSERT_NE(next, nullptr);
  EXPECT_TRUE(next->isEqual(*accepted));
  EXPECT_EQ(*data->imageForRecord(accepted), *photo(3));

  // Nothing to move: nothing is added.
  data->replaceImageRecord(weight("never queued"), weight("stray"));
  data->replaceImageRecord(nullptr, accepted);
  EXPECT_EQ(data->imageFilenames().dictionary()->size(), 2U);

  // Uploaded: the mapping goes at once, the file once a save without it is on disk.
  data->removeImageForRecord(accepted);
  EXPECT_TRUE(fs::exists(imageDirectory() / fileName));
  data->eraseImageFiles(data->deferredImageDeletions());
  EXPECT_FALSE(fs::exists(imageDirectory() / fileName));
  EXPECT_TRUE(data->deferredImageDeletions().empty());
  EXPECT_EQ(data->findNextImageRecordWithRecordID(), nullptr);

  // A photo file gone from disk: no image, and the mapping still goes, logged once.
  fs::remove(imageDirectory() / fileNameOf(other));
  EXPECT_EQ(data->imageForRecord(other), nullptr);
  LogCapture log;
  data->removeImageForRecord(other);
  data->removeImageForRecord(other);  // no mapping any more: no file to delete, no log
  data->eraseImageFiles(data->deferredImageDeletions());
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "NYBSessionData: Unable to erase image file. Detail: No such file "
                             "or directory"}));
  EXPECT_FALSE(data->hasImages());
}

TEST_F(SessionData, FileNamesNeverLeaveTheImageDirectory) {
  auto r = weight("hostile");
  EXPECT_EQ(data->pathForImageName(std::nullopt), std::nullopt);
  EXPECT_EQ(data->pathForImageName("12.png"), (imageDirectory() / "12.png").string());
  for (const char* name : {"../sessionData", "a/b.png", "..", ".", ""}) {
    EXPECT_EQ(data->pathForImageName(std::string(name)), std::nullopt) << name;
  }

  // A damaged map that names a file outside the directory deletes nothing.
  const fs::path outside = documents.path() / "keep";
  std::ofstream(outside) << "keep";
  data->setImageFilenames(NYBDictionary{{r, "../keep"}});
  LogCapture log;
  data->removeImageForRecord(r);
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_FALSE(data->hasImages());
}

TEST_F(SessionData, TheArchiveKeepsQueueOrderPhotoMapAndAddOnState) {
  data->verifyImageDirectory();
  auto first = weight("first"), second = weight("second"), third = weight("third");
  data->addRecord(first);
  data->addRecord(second, photo(6));
  data->addRecord(third, photo(7));
  auto accepted = weight("second");
  accepted->setRecordID("srv-2");
  data->replaceImageRecord(second, accepted);
  data->setData(NYBData(std::string_view("\x01\x02")), 3);
  data->setAnchors(NYBDictionary{{"steps", 42}});
  data->setRoutineFetchTimestamp(NYBDate(1'600'000'000));

  const NYBData archive = NYBKeyedArchiver::archivedDataWithRootObject(data);
  auto restored = NYBKeyedUnarchiver::unarchiveObjectWithData(archive).objectAs<NYBSessionData>();
  ASSERT_NE(restored, nullptr);
  EXPECT_TRUE(restored->isEqual(*data));

  EXPECT_EQ(queueOf(restored), (Queue{"first", "second", "third"}));
  EXPECT_EQ(restored->user().objectAs<NYBUser>()->accessToken(), "token-abc");

  // The photo map answers for the restored records and for the originals,
  // in its order, and still finds the files.
  EXPECT_EQ(restored->imageFilenameForRecord(third), fileNameOf(third));
  EXPECT_FALSE(restored->hasImageForRecord(first));
  auto next = restored->findNextImageRecordWithRecordID();
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(next->recordID(), "srv-2");
  EXPECT_EQ(*restored->imageForRecord(next), *photo(6));
  EXPECT_EQ(restored->dataForBluetoothPeripheralID(3), NYBData(std::string_view("\x01\x02")));

  // Absent properties stay absent.
  EXPECT_TRUE(restored->passivePeripheralIDs().isAbsent());
  EXPECT_TRUE(restored->routineQueryTimestamp().isAbsent());
  EXPECT_TRUE(restored->routineFetchTimestamp().date().has_value());
}

}  // namespace
}  // namespace nyb::test
