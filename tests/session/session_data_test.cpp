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
  fs::path imageDirectory() const { return documents.path() / "images"; }
  // The file name the photo of a record gets: its model hash, in decimal.
  static std::string fileNameOf(const std::shared_ptr<NYBRecord>& r) {
    return std::to_string(r->hash()) + ".png";
  }

  std::shared_ptr<NYBSessionData> data = std::make_shared<NYBSessionData>(testUser());
};

TEST_F(SessionData, QueueIsFirstInFirstOutAndRemovesOnlyAMatchingHead) {
  auto a = weight("a"), b = weight("b");
  data->addRecords({a, nullptr, b});
  data->addRecord(nullptr);
  data->addRecords(NYBDynamicValue(NYBArray{weight("c"), "not a record"}));
  data->addRecords(NYBDynamicValue());  // absent: ignored
  const NYBDynamicValue before = data->records();
  // Not the head: nothing happens. An equal record, not the same object, is a match.
  for (const auto& each : {b, std::shared_ptr<NYBWeight>(), weight("a")}) {
    data->removeNextRecordIfMatch(each);
  }
  EXPECT_EQ(queueOf(data), (Queue{"b", "c"}));
  // What was handed out before did not change under its holder.
  EXPECT_EQ(before.array()->size(), 3U);
  for (const auto& each : {b, weight("c"), a})
    data->removeNextRecordIfMatch(each);  // the last: empty
  EXPECT_FALSE(data->hasRecords());
}

TEST_F(SessionData, APhotoIsWrittenAsAPrivatePNGNamedAfterTheRecordOrTheRecordGoesWithout) {
  LogCapture log;
  // No image directory yet, then an image with no pixels: neither is written.
  data->addRecord(weight("early"), photo(1));
  data->verifyImageDirectory();
  struct stat status {};
  ASSERT_EQ(::stat(imageDirectory().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  auto r = weight("photo");
  data->addRecord(r, photo(10));
  data->addRecord(weight("empty"), std::make_shared<NYBImage>(0, 0));
  // Either argument absent: nothing at all.
  data->addRecord(nullptr, photo(1));
  data->addRecord(weight("third"), nullptr);
  EXPECT_EQ(queueOf(data), (Queue{"early", "photo", "empty"}));
  EXPECT_EQ(log.lines(), std::vector<std::string>(
                             2, "NYBSessionData: Error converting image to PNG representation"));
  const fs::path file = imageDirectory() / fileNameOf(r);
  EXPECT_EQ(data->imageFilepathForRecord(r), file.string());
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  // The file holds the very pixels; an equal record finds it.
  ASSERT_NE(data->imageForRecord(weight("photo")), nullptr);
  EXPECT_EQ(*data->imageForRecord(weight("photo")), *photo(10));

  // A second record with the same values shares the file: the later photo wins.
  data->addRecord(weight("photo"), photo(99));
  EXPECT_EQ(data->imageFilenames().dictionary()->size(), 1U);
  EXPECT_EQ(*data->imageForRecord(r), *photo(99));
  // Changing a record after it was queued loses its photo: the key no longer matches.
  r->setComment("changed");
  EXPECT_EQ(data->imageForRecord(r), nullptr);

  // Emptying the directory keeps it and the map.
  fs::create_directory(imageDirectory() / "leftover");
  std::ofstream(imageDirectory() / "leftover" / "x") << "x";
  data->eraseImageDirectoryContents();
  EXPECT_TRUE(fs::is_directory(imageDirectory()) && fs::is_empty(imageDirectory()));
  EXPECT_TRUE(data->hasImageForRecord(weight("photo")));

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
  auto queued = weight("walk"), other = weight("run");
  data->addRecord(other, photo(2));
  data->addRecord(queued, photo(3));
  const std::string fileName = fileNameOf(queued);
  EXPECT_EQ(data->findNextImageRecordWithRecordID(), nullptr);  // none accepted yet

  // The service's copy carries a recordID: the photo moves over, keeping the
  // file (and the name made from the old record). Nothing to move: nothing is added.
  auto accepted = weight("walk");
  accepted->setRecordID("srv-1");
  data->replaceImageRecord(queued, accepted);
  data->replaceImageRecord(weight("never queued"), weight("stray"));
  data->replaceImageRecord(nullptr, accepted);
  EXPECT_FALSE(data->hasImageForRecord(queued));
  EXPECT_EQ(data->imageFilenames().dictionary()->size(), 2U);
  EXPECT_EQ(data->imageFilenameForRecord(accepted), fileName);
  ASSERT_NE(data->findNextImageRecordWithRecordID(), nullptr);
  EXPECT_TRUE(data->findNextImageRecordWithRecordID()->isEqual(*accepted));
  EXPECT_EQ(*data->imageForRecord(accepted), *photo(3));

  // Uploaded: the mapping goes at once, the file once a save without it is on disk.
  data->removeImageForRecord(accepted);
  EXPECT_TRUE(fs::exists(imageDirectory() / fileName));
  data->eraseImageFiles(data->deferredImageDeletions());
  EXPECT_FALSE(fs::exists(imageDirectory() / fileName));
  EXPECT_TRUE(data->deferredImageDeletions().empty());

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
  auto accepted = weight("third");
  accepted->setRecordID("srv-3");
  data->addRecords({weight("first"), weight("second")});
  data->addRecord(weight("third"), photo(7));
  data->replaceImageRecord(weight("third"), accepted);
  data->setData(NYBData(std::string_view("\x01\x02")), 3);
  data->setAnchors(NYBDictionary{{"steps", 42}});
  data->setRoutineFetchTimestamp(NYBDate(1'600'000'000));

  auto restored = NYBKeyedUnarchiver::unarchiveObjectWithData(
                      NYBKeyedArchiver::archivedDataWithRootObject(data))
                      .objectAs<NYBSessionData>();
  ASSERT_NE(restored, nullptr);
  // Model equality covers every property, absent ones included.
  EXPECT_TRUE(restored->isEqual(*data));
  EXPECT_EQ(queueOf(restored), (Queue{"first", "second", "third"}));
  // The restored photo map answers for the original records and still finds the file.
  auto next = restored->findNextImageRecordWithRecordID();
  ASSERT_NE(next, nullptr);
  EXPECT_TRUE(next->isEqual(*accepted));
  EXPECT_EQ(*restored->imageForRecord(accepted), *photo(7));
}

}  // namespace
}  // namespace nyb::test
