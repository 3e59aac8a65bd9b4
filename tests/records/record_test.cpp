// The record base: defaults, timestamps and offsets, extras, media, raw
// measurements, its log lines, and its trip through JSON, the archive and copies.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "NYBBundleInfo.h"
#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBRecord.h"
#include "support/LogCapture.h"
#include "support/TimeZoneOverride.h"

namespace nyb {
namespace {

// A record type made as the real ones are: the common key map, plus a scalar
// that is in no key map.
class TestRecord : public NYBRecord {
  NYB_DECLARE_MODEL(TestRecord, NYBRecordClass)
 public:
  std::uint64_t steps = 0;
};

const NYBRecordClass& TestRecord::staticClass() {
  static const NYBRecordClass cls(
      {"TestRecord",
       &NYBRecord::staticClass(),
       [] { return std::make_shared<TestRecord>(); },
       NYBPropertyTable::of<TestRecord>().unsignedScalar("steps", &TestRecord::steps),
       NYBRecord::commonKeyPaths(),
       {}});
  return cls;
}

const NYBDate kMarchFirst(1456841109);  // 2016-03-01 14:05:09 UTC
const NYBDate kJulyFirst(1467374400);   // 2016-07-01 12:00:00 UTC, northern summer time

std::shared_ptr<NYBMedia> media(const char* id) {
  auto m = std::make_shared<NYBMedia>();
  m->setMediaID(id);
  m->setMediaURL(std::string("https://media.example/") + id);
  return m;
}

TEST(Record, PlainInitialiserDescribesTheDeviceInTheExtras) {
  utsname name{};
  ASSERT_EQ(::uname(&name), 0);
  TestRecord record;
  EXPECT_EQ(record.extras(), NYBDynamicValue(NYBDictionary{
                                 {"mobile_device_manufacturer", "Apple"},
                                 {"mobile_device_model_number", name.machine},
                                 {"mobile_os", "iOS"},
                                 {"mobile_os_version", name.release},
                                 {"nymbrel_library_version", bundle::kShortVersionString}}));
  EXPECT_EQ(record.recordType(), NYBRecordTypeNone);
  EXPECT_EQ(NYBRecord::nameForRecordType(NYBRecordType(9)), "Unknown");
}

TEST(Record, TimestampTakesTheDeviceOffsetAtThatInstant) {
  test::TimeZoneOverride fiveHoursBehind("America/New_York");
  TestRecord record;
  record.setMeasurementValue(NYBDynamicValue(kMarchFirst), "timestamp");  // runs the setter
  EXPECT_EQ(record.utcOffset(), NYBDynamicValue("-05:00"));
  record.setTimestamp(kJulyFirst);  // the zone's offset at that instant, not today's
  EXPECT_EQ(record.utcOffset(), NYBDynamicValue("-04:00"));
  record.setTimestamp({});
  EXPECT_TRUE(record.utcOffset().isAbsent());

  // A date read with another offset still takes the device's own, unless the document brings one.
  auto parsed = TestRecord::modelFromJSONObject(
      NYBDictionary{{"timestamp", "2016-03-01T15:05:09+01:00"}, {"last_updated", "2016-03"}});
  EXPECT_EQ(parsed->timestamp(), NYBDynamicValue(kMarchFirst));
  EXPECT_EQ(parsed->utcOffset(), NYBDynamicValue("-05:00"));
  EXPECT_TRUE(parsed->lastUpdated().isAbsent());
  parsed = TestRecord::modelFromJSONObject(
      NYBDictionary{{"timestamp", "2016-03-01T15:05:09+01:00"}, {"utc_offset", "+01:00"}});
  EXPECT_EQ(parsed->utcOffset(), NYBDynamicValue("+01:00"));
}

TEST(Record, ExtrasKeepRawMeasurementsAndDropWhenEmptyAndSetMeasurementValueLogsFailures) {
  TestRecord record;
  record.setExtras(NYBDictionary{{"a", 1}});
  record.setExtraValue(NYBDynamicValue::null(), "b");  // the null marker is a value
  record.setComment("Felt fine");
  EXPECT_EQ(record.extras(),
            NYBDynamicValue(
                NYBDictionary{{"a", 1}, {"b", NYBDynamicValue::null()}, {"comment", "Felt fine"}}));
  for (const char* key : {"a", "b", "comment"}) record.setExtraValue({}, key);
  EXPECT_TRUE(record.extras().isAbsent());
  EXPECT_FALSE(record.JSONObject().contains("extras"));

  // Raw measurements: only complete ones are kept, in the order first set.
  EXPECT_TRUE(record.rawMeasurementForField("weight")->isEqual(NYBMeasurement({}, {})));
  record.setRawMeasurement(std::make_shared<NYBMeasurement>("150", NYBDynamicValue()), "weight");
  record.setRawMeasurement(nullptr, "weight");
  EXPECT_TRUE(record.extras().isAbsent());
  record.setRawMeasurement(std::make_shared<NYBMeasurement>("150", "lb"), "weight");
  record.setRawMeasurement(std::make_shared<NYBMeasurement>("98.6", "F"), "temperature");
  record.setRawMeasurement(std::make_shared<NYBMeasurement>("151", "lb"), "weight");
  // Their place in the extras is the record builder's test.
  EXPECT_EQ(record.rawData(),
            (NYBDictionary{{"weight", NYBDictionary{{"value", "151"}, {"unit", "lb"}}},
                           {"temperature", NYBDictionary{{"value", "98.6"}, {"unit", "F"}}}}));
  EXPECT_TRUE(record.rawMeasurementForField("temperature")->isEqual(NYBMeasurement("98.6", "F")));

  // setMeasurementValue runs setters, ignores units on the base, and logs what it catches.
  test::LogCapture log;
  record.setMeasurementValue(7, "steps");
  record.setMeasurementValue(75.5, NYBWeightUnitPounds, "steps");
  EXPECT_EQ(record.steps, 7u);
  NYBDictionary before = record.dictionaryValue();

  // The failures' own texts, from the generic setter, go into the log lines.
  auto lineFor = [&](const NYBDynamicValue& value, const char* key) {
    try {
      record.setValue(value, key);
    } catch (const NYBException& failure) {
      return "Exception setting value for key: " + std::string(key) +
             ". Exception: " + failure.description() + ".";
    }
    return std::string("no failure");
  };
  const std::vector<std::string> expected = {lineFor(1, "bogus"), lineFor({}, "steps")};
  record.setMeasurementValue(1, "bogus");
  record.setMeasurementValue({}, "steps");
  EXPECT_EQ(record.dictionaryValue(), before);
  EXPECT_EQ(log.lines(), expected);
}

// The record-type documents prove the JSON keys, and the archive of an earlier release shows
// records with media, raw measurements and extras coming back whole.
TEST(Record, MediaAreKeptInOrderAndReadFromDictionariesOnlyAndExtrasComeBackAsDefaults) {
  auto record = std::make_shared<TestRecord>();
  auto first = media("m1");
  for (const auto& each : {first, media("m2"), first})
    record->addMedia(each);  // no duplicate check
  EXPECT_EQ(record->media(), NYBDynamicValue(NYBArray{first, media("m2"), first}));
  EXPECT_EQ(record->JSONObject()["media"], NYBDynamicValue(NYBArray()));
  EXPECT_THROW(record->addMedia(nullptr), NYBInvalidArgumentException);

  // Reading: a missing "media" gives an empty array; dictionaries become
  // media and anything else is skipped.
  EXPECT_EQ(TestRecord::modelFromJSONObject(NYBDictionary{})->media(), NYBDynamicValue(NYBArray()));
  auto parsed = TestRecord::modelFromJSONObject(NYBDictionary{
      {"media", NYBArray{NYBDictionary{{"id", "m1"}, {"url", "https://media.example/m1"}}, 5,
                         NYBDictionary{{"id", "m2"}, {"url", "https://media.example/m2"}}}}});
  EXPECT_EQ(parsed->media(), NYBDynamicValue(NYBArray{first, media("m2")}));

  // Absent extras stay absent in a copy, but the archive and a JSON document,
  // which leave them out, bring this device's defaults back.
  auto bare = std::make_shared<TestRecord>();
  bare->setExtras({});
  EXPECT_TRUE(bare->copyAs<TestRecord>()->extras().isAbsent());
  auto unarchived = NYBKeyedUnarchiver::unarchiveObjectWithData(
                        NYBKeyedArchiver::archivedDataWithRootObject(bare))
                        .objectAs<TestRecord>();
  auto fromJSON = TestRecord::modelFromJSONObject(bare->JSONObject());
  EXPECT_EQ(unarchived->extras(), TestRecord().extras());
  EXPECT_EQ(fromJSON->extras(), TestRecord().extras());
}

}  // namespace
}  // namespace nyb
