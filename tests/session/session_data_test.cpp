// The session data store: the upload queue, the photo map and its files in a
// real documents directory. Its archive is proven by the queue and archive tests.

#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

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
  data->addRecords({weight("a"), nullptr});
  data->addRecord(nullptr);
  data->addRecords(NYBDynamicValue(NYBArray{weight("b"), "not a record"}));
  const NYBDynamicValue before = data->records();
  // Not the head: nothing happens. An equal record, not the same object, is a match.
  data->removeNextRecordIfMatch(weight("b"));
  data->removeNextRecordIfMatch(weight("a"));
  EXPECT_EQ(queueOf(data), (Queue{"b"}));
  EXPECT_EQ(before.array()->size(), 2U) << "changed under its holder";
}

TEST_F(SessionData, APhotoIsAPrivateFileNamedAfterTheRecordAndEachFailureIsLogged) {
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

  // Nothing to move: nothing is added. The hand-over itself is proven through the session.
  EXPECT_EQ(data->findNextImageRecordWithRecordID(), nullptr);
  data->replaceImageRecord(weight("never queued"), weight("stray"));
  data->replaceImageRecord(nullptr, r);
  EXPECT_EQ(data->imageFilenames().dictionary()->size(), 1U);

  // A photo file gone from disk: no image, and the mapping still goes, logged once.
  fs::remove(file);
  EXPECT_EQ(data->imageForRecord(weight("photo")), nullptr);
  log.clear();
  data->removeImageForRecord(weight("photo"));
  data->removeImageForRecord(weight("photo"));  // no mapping any more: no file to delete, no log
  data->eraseImageFiles(data->deferredImageDeletions());
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "NYBSessionData: Unable to erase image file. Detail: No such file "
                             "or directory"}));
  EXPECT_FALSE(data->hasImages());
}

TEST_F(SessionData, FileNamesNeverLeaveTheImageDirectory) {
  auto r = weight("hostile");
  EXPECT_EQ(data->pathForImageName("12.png"), (imageDirectory() / "12.png").string());
  for (const char* name : {"../sessionData", "a/b.png", "..", ".", ""}) {
    EXPECT_EQ(data->pathForImageName(std::string(name)), std::nullopt) << name;
  }

  // A damaged map that names a file outside the directory deletes nothing.
  const fs::path outside = documents.path() / "keep";
  std::ofstream(outside) << "keep";
  data->setImageFilenames(NYBDictionary{{r, "../keep"}});
  data->removeImageForRecord(r);
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_FALSE(data->hasImages());
}

}  // namespace
}  // namespace nyb::test
