// The upload queue's storage: snapshots that share it never see a later
// change, a save joins the bytes kept for each record into the same archive,
// and the check at load rejects exactly the archives a full decode rejects.
#include <random>

#include "NymbrelCore/NYBException.h"
#include "model/ArchiveElements.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

std::shared_ptr<NYBWeight> weighing(int index) {
  return weight(("w-" + std::to_string(index)).c_str(), 60.25 + index);
}

std::vector<std::string> range(int from, int to) {
  std::vector<std::string> ids;
  for (int i = from; i < to; ++i) ids.push_back("w-" + std::to_string(i));
  return ids;
}

TEST(RecordQueue, SnapshotsKeepWhatTheyHeldWhileTheQueueChangesAcrossChunks) {
  NYBSessionData data;
  for (int i = 0; i < 600; ++i) data.addRecord(weighing(i));
  const auto before = data.snapshot();
  // Drained past two chunk boundaries, and added to a tail the snapshot shares.
  for (int i = 0; i < 530; ++i) data.removeNextRecordIfMatch(weighing(i));
  data.removeNextRecordIfMatch(weighing(0));  // not the head: nothing
  for (int i = 600; i < 700; ++i) data.addRecord(weighing(i));
  const auto middle = data.snapshot();
  for (int i = 530; i < 700; ++i) data.removeNextRecordIfMatch(weighing(i));
  data.addRecord(weighing(700));

  EXPECT_EQ(queueOf(before), range(0, 600));
  EXPECT_EQ(queueOf(middle), range(530, 700));
  EXPECT_EQ(queueOf(data.snapshot()), range(700, 701));
  EXPECT_TRUE(middle->isEqual(*middle->copy()));
}

TEST(RecordQueue, ALoadedQueueSavesAgainToTheSameArchiveAndReadsAsAFullDecodeDoes) {
  NYBSessionData data(std::make_shared<NYBUser>("u", "o", "t"));
  for (int i = 0; i < 300; ++i) data.addRecord(weighing(i));
  data.addImageFilename(weighing(5), "5.png");
  const NYBData saved = NYBKeyedArchiver::archivedDataWithRootObject(data.snapshot());
  EXPECT_EQ(NYBKeyedArchiver::archivedDataWithRootObject(data.copy()), saved);

  auto bytes = std::make_shared<const NYBData>(saved);
  archive::DeferredArchive read = archive::unarchiveDeferring(*bytes, "records");
  ASSERT_TRUE(read.deferred);
  auto loaded = read.root.objectAs<NYBSessionData>();
  loaded->setEncodedRecords(bytes, read.elements);
  EXPECT_EQ(NYBKeyedArchiver::archivedDataWithRootObject(loaded->snapshot()), saved);
  const auto full = NYBKeyedUnarchiver::unarchiveObjectWithData(saved).objectAs<NYBSessionData>();
  EXPECT_TRUE(loaded->isEqual(*full));
  EXPECT_TRUE(loaded->isEqual(data));
  EXPECT_EQ(loaded->imageFilenameForRecord(weighing(5)), "5.png");
}

// Whether the archive loads as the session does: checked whole, then, if asked,
// every deferred record decoded.
bool loadsLazily(const NYBData& bytes, bool decodeRecords) {
  try {
    archive::DeferredArchive read = archive::unarchiveDeferring(bytes, "records");
    for (std::string_view element : read.elements) {
      if (decodeRecords) archive::decodeElement(element);
    }
    return true;
  } catch (const NYBException&) {
    return false;
  }
}

bool loadsFully(const NYBData& bytes) {
  std::shared_ptr<NYBError> error;
  (void)NYBKeyedUnarchiver::unarchivedObjectWithData(bytes, &error);
  return error == nullptr;
}

TEST(RecordQueue, TheCheckAtLoadRejectsWhatAFullDecodeRejectsSoNoRecordFailsLater) {
  NYBSessionData data(std::make_shared<NYBUser>("u", "o", "t"));
  for (int i = 0; i < 3; ++i) data.addRecord(weighing(i));
  auto odd = weighing(9);
  odd->setExtras(NYBDictionary{{"n", NYBDynamicValue(std::uint64_t{7})},
                               {"d", NYBDecimal::fromString("98.6")},
                               {"u", *NYBURL::URLWithString("https://x.example/a")}});
  data.addRecord(odd);
  const NYBData archived = NYBKeyedArchiver::archivedDataWithRootObject(data.snapshot());
  const std::vector<std::uint8_t>& good = archived.vector();
  std::vector<NYBData> variants;
  for (std::size_t length = 0; length < good.size(); ++length) {
    variants.emplace_back(std::vector<std::uint8_t>(good.begin(), good.begin() + length));
  }
  std::mt19937_64 random(5);
  for (int i = 0; i < 6000; ++i) {
    std::vector<std::uint8_t> flipped = good;
    const std::size_t bit = random() % (flipped.size() * 8);
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    variants.emplace_back(std::move(flipped));
  }
  for (std::size_t i = 0; i < variants.size(); ++i) {
    const bool full = loadsFully(variants[i]);
    ASSERT_EQ(loadsLazily(variants[i], true), full) << "variant " << i;
    ASSERT_EQ(loadsLazily(variants[i], false), full) << "variant " << i;
  }
}

TEST(RecordQueue, ARecordThatFailsToDecodeLeavesTheQueueLoggedAndCounted) {
  NYBSessionData data;
  const NYBData good = archive::encodedElement(NYBDynamicValue(weighing(1)));
  // An invalid format byte, then a good record (its bytes live in `good`,
  // which outlives the queue here).
  auto bytes = std::make_shared<const NYBData>(std::vector<std::uint8_t>{0xc1});
  LogCapture log;
  data.setEncodedRecords(bytes, {bytes->view(), good.view()});
  EXPECT_TRUE(data.hasRecords());
  ASSERT_NE(data.peekNextRecord(), nullptr);
  EXPECT_EQ(data.peekNextRecord()->activityID(), "w-1");
  EXPECT_EQ(queueOf(data.snapshot()), range(1, 2));
  EXPECT_EQ(data.takeDamagedRecordCount(), 1U);
  EXPECT_EQ(data.takeDamagedRecordCount(), 0U);
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines().front().rfind("Caught decoding exception: ", 0), 0U);
}

}  // namespace
}  // namespace nyb::test
