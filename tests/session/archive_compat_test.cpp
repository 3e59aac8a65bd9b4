// An archive written by an earlier release of the library (checked in under
// data/) still loads as the session it held: every record, the photo map and
// the user with its token.
#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBDiabetes.h"
#include "NymbrelCore/NYBIntraDay.h"
#include "NymbrelCore/NYBMedia.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

// The session data the checked-in archive was written from.
std::shared_ptr<NYBSessionData> pastSession() {
  auto data = std::make_shared<NYBSessionData>(std::make_shared<NYBUser>("u7", "acme", "tok-7"));
  auto heavy = std::make_shared<NYBWeight>();
  heavy->setActivityID("w-1");
  heavy->setTimestamp(NYBDate(1'456'841'109.25));
  heavy->setWeight(180.5, NYBWeightUnitPounds);
  heavy->setComment("after the run");
  auto fever = std::make_shared<NYBBiometrics>();
  fever->setActivityID("b-1");
  fever->setTimestamp(NYBDate(1'456'841'200));
  fever->setTemperature(101.3, NYBTemperatureUnitFahrenheit);
  fever->setMaxHeartRate(std::int64_t{142});
  auto sugar = std::make_shared<NYBDiabetes>();
  sugar->setActivityID("d-1");
  sugar->setTimestamp(NYBDate(1'456'841'300));
  sugar->setBloodGlucose(5.4, NYBGlucoseUnitMmolL);
  sugar->setRecordID("srv-9");
  auto photo = std::make_shared<NYBMedia>();
  photo->setMediaID("m-1");
  photo->setMediaURL("https://media.example/m-1.png");
  sugar->addMedia(photo);
  auto walk = std::make_shared<NYBRoutine>();
  walk->setActivityID("r-1");
  walk->setTimestamp(NYBDate(1'456'841'400));
  walk->setSteps(std::int64_t{12'034});
  auto steps = std::make_shared<NYBIntraDay>();
  steps->setActivityID("i-1");
  steps->setType("steps");
  steps->addValue(431, NYBDate(1'456'800'000), NYBDate(1'456'800'900));
  steps->addValue(12, NYBDate(1'456'800'900), NYBDate(1'456'801'800));
  data->addRecords({heavy, fever, sugar, walk, steps});
  data->addImageFilename(sugar, "7781.png");
  data->setData(NYBData(std::vector<std::uint8_t>{1, 2, 3}), 42);
  return data;
}

TEST_F(SessionTest, AnArchiveOfAnEarlierReleaseLoadsWithEveryRecordAndTheUser) {
  const auto source = fs::path(NYB_TEST_SOURCE_DIR) / "data/sessionData-v1";
  fs::copy_file(source, documents.path() / "sessionData");
  const auto loaded = makeSession()->sessionData();
  ASSERT_NE(loaded, nullptr);
  const auto expected = pastSession();
  // Model equality covers every record, the photo map and the user with its token.
  EXPECT_TRUE(loaded->isEqual(*expected)) << loaded->description();
  EXPECT_EQ(loaded->user().objectAs<NYBUser>()->accessToken().stringView(), "tok-7");
  const auto sugar = (*expected->records().array())[2].objectAs<NYBRecord>();
  EXPECT_EQ(loaded->imageFilenameForRecord(sugar), "7781.png");
  EXPECT_EQ(loaded->dataForBluetoothPeripheralID(42), NYBData(std::vector<std::uint8_t>{1, 2, 3}));
}

}  // namespace
}  // namespace nyb::test
