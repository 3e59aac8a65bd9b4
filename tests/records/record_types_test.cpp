// The eight record types: their JSON documents (written by hand from the field
// tables), the factory, the unit fields, and what is particular to some types.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBDiabetes.h"
#include "NymbrelCore/NYBIntraDay.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBWeight.h"
#include "records/RecordTypeList.h"
#include "support/TimeZoneOverride.h"

namespace nyb {
namespace {

NYBDynamicValue parse(const std::string& text) {
  NYBDynamicValue value = NYBJSONSerialization::JSONObjectWithData(text);
  EXPECT_TRUE(value.isDictionary()) << text;
  return value;
}

NYBDynamicValue decimal(const char* text) { return NYBDecimal::fromString(text); }

// The common fields, and the document of them that every type but the intraday one sends.
void fillCommon(NYBRecord& r) {
  r.setTimestamp(NYBDate(1456841109));  // 2016-03-01 14:05:09 UTC
  r.setOriginalSource("Maker");
  r.setIntermediarySource("Relay");
  r.setSourcePeripheral("Model 7");
  r.setLastUpdated(NYBDate(1456905600));  // 2016-03-02 08:00:00 UTC
  r.setValidated(true);
  r.setRecordID("5f00aa");
  r.setExtras({});
  r.setComment("fasted");  // into the extras, started afresh
  r.setActivityID("A1B2");
  r.setMedia(NYBArray());
}
const std::string kCommon =
    R"({"timestamp":"2016-03-01T14:05:09+00:00","utc_offset":"+01:00","source":"nymbrelmobile",
    "source_name":"NymbrelMobile","original_source":"Maker","intermediary_source":"Relay",
    "device":"Model 7","last_updated":"2016-03-02T08:00:00+00:00","validated":true,"_id":"5f00aa",
    "extras":{"comment":"fasted"},"activity_id":"A1B2","media":[],)";

// Sets the n-th property of the type's document, by its name, to n (a number),
// "tn" (text), 07:30 in Paris (a date) or "before" (the meal relationship).
void fillOwn(NYBRecord& r) {
  std::int64_t n = 0;
  for (const auto& field : records::describeRecordType(r.recordType())->fields) {
    if (!field.isDocumentProperty()) continue;
    ++n;
    NYBDynamicValue value = n;
    if (field.kind == records::FieldKind::Text) value = "t" + std::to_string(n);
    if (field.kind == records::FieldKind::DateTime) value = NYBDate(1456813800);
    if (field.kind == records::FieldKind::MealRelationship)
      value = std::uint64_t{NYBMealRelationshipBefore};
    r.setValue(value, field.property);
  }
}

void fillIntraDay(NYBRecord& r) {
  auto& i = dynamic_cast<NYBIntraDay&>(r);
  i.setStart(NYBDate(1456790400));
  i.setEnd(NYBDate(1456876800));
  i.addValue(420, NYBDate(1456819200), NYBDate(1456820100));
  i.addValue(35.5, NYBDate(1456820100), NYBDate(1456821000));
  i.setDevice(NYBDictionary{{"id", "band-1"}, {"manufacturer", "Acme"}, {"model", "Step 2"}});
  i.setType("walking");  // type and unit keep their one value
  i.setUnit("metres");
}

// Written by hand: the keys, their order and the values' forms are the service's.
const std::pair<NYBRecordType, std::string> kDocuments[] = {
    {NYBRecordTypeBiometrics, kCommon + R"("blood_calcium":1,"blood_chromium":2,
     "blood_folic_acid":3,"blood_magnesium":4,"blood_potassium":5,"blood_sodium":6,
     "blood_vitamin_b12":7,"blood_zinc":8,"creatine_kinase":9,"crp":10,"diastolic":11,
     "ferritin":12,"hdl":13,"hscrp":14,"il6":15,"ldl":16,"resting_heartrate":17,"systolic":18,
     "testosterone":19,"total_cholesterol":20,"tsh":21,"uric_acid":22,"vitamin_d":23,
     "white_cell_count":24,"spo2":25,"temperature":26})"},
    {NYBRecordTypeDiabetes, kCommon + R"("c_peptide":1,"fasting_plasma_glucose_test":2,
     "hba1c":3,"insulin":4,"oral_glucose_tolerance_test":5,"random_plasma_glucose_test":6,
     "triglyceride":7,"blood_glucose":8,"relationship_to_meal":"before"})"},
    {NYBRecordTypeWeight, kCommon + R"("weight":1,"height":2,"free_mass":3,"fat_percent":4,
     "mass_weight":5,"bmi":6})"},
    {NYBRecordTypeRoutine, kCommon + R"("steps":1,"distance":2,"floors":3,"elevation":4,
     "calories_burned":5,"active_duration":6})"},
    {NYBRecordTypeNutrition, kCommon + R"("calories":1,"carbohydrates":2,"fat":3,"fiber":4,
     "protein":5,"sodium":6,"water":7,"meal":"t8"})"},
    // The start time in the device's zone, unlike the timestamp.
    {NYBRecordTypeFitness, kCommon + R"("type":"t1","intensity":"t2",
     "start_time":"2016-03-01T07:30:00+01:00","distance":4,"duration":5,"calories":6})"},
    {NYBRecordTypeSleep, kCommon + R"("total_sleep":1,"awake":2,"deep":3,"light":4,"rem":5,
     "times_woken":6})"},
    // The range in UTC, the data points in the device's zone.
    {NYBRecordTypeIntraDay,
     R"({"range":{"start":"2016-03-01T00:00:00+00:00","end":"2016-03-02T00:00:00+00:00"},
     "data_points":[
       {"start":"2016-03-01T09:00:00+01:00","end":"2016-03-01T09:15:00+01:00","value":420},
       {"start":"2016-03-01T09:15:00+01:00","end":"2016-03-01T09:30:00+01:00","value":35.5}],
     "source_name":"NymbrelMobile","source":"nymbrelmobile","original_source":"Maker",
     "device":{"id":"band-1","manufacturer":"Acme","model":"Step 2"},
     "timestamp":"2016-03-01T14:05:09+00:00","utc_offset":"+01:00","unit":"count","type":"steps",
     "activity_id":"A1B2","intermediary_source":"Relay","manufacturer":"Acme","model":"Step 2"})"},
};

TEST(RecordTypes, EachTypeWritesItsDocumentAndReadsItBack) {
  test::TimeZoneOverride paris("Europe/Paris");
  ASSERT_EQ(std::size(kDocuments), records::kRecordTypes.size());
  for (const auto& [type, document] : kDocuments) {
    SCOPED_TRACE(NYBRecord::nameForRecordType(type));
    std::shared_ptr<NYBRecord> record = NYBRecord::newRecordWithType(type);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->recordType(), type);
    fillCommon(*record);  // intraday too: common fields outside its key map never travel
    type == NYBRecordTypeIntraDay ? fillIntraDay(*record) : fillOwn(*record);
    NYBDynamicValue expected = parse(document);
    NYBDictionary json = record->JSONObject();
    EXPECT_EQ(NYBDynamicValue(json), expected) << NYBDynamicValue(json).description();
    EXPECT_EQ(json.stringKeys(), expected.dictionary()->stringKeys());

    // Read back, the record writes the same document again.
    EXPECT_EQ(NYBDynamicValue(record->classObject().modelFromJSONObject(expected)->JSONObject()),
              expected);
  }
  EXPECT_FALSE(NYBRecord::newRecordWithType(NYBRecordTypeNone));
  EXPECT_FALSE(NYBRecord::newRecordWithType(NYBRecordType(9)));
}

// The record builder's tests show values stored converted and kept as entered; here what a
// later value does, and what the unit accessors give back.
TEST(RecordTypes, UnitFieldsGiveBackWhatWasEnteredExactly) {
  NYBWeight weight;
  weight.setWeight(150, NYBWeightUnitPounds);
  EXPECT_EQ(weight.weightWithUnit(NYBWeightUnitKilograms), NYBDynamicValue(150 * 0.45359237));
  weight.setWeight(70, NYBWeightUnitKilograms);  // replaces the field, not what was entered
  EXPECT_EQ(weight.weight(), NYBDynamicValue(70.0));
  EXPECT_EQ(weight.weightWithUnit(NYBWeightUnitPounds), decimal("150"));
  weight.setMeasurementValue(31, NYBWeightUnitPounds, "bmi");
  EXPECT_TRUE(weight.bmi().isAbsent());

  NYBBiometrics bio;
  bio.setTemperature(98.6, NYBTemperatureUnitFahrenheit);
  EXPECT_EQ(bio.temperatureWithUnit(NYBTemperatureUnitFahrenheit), decimal("98.6"));

  // Kept under the JSON key, but set through the property name only.
  NYBDiabetes diabetes;
  diabetes.setBloodGlucose(5.5, NYBGlucoseUnitMmolL);
  EXPECT_EQ(diabetes.bloodGlucoseWithUnit(NYBGlucoseUnitMmolL), decimal("5.5"));
  diabetes.setMeasurementValue(7, NYBGlucoseUnitMmolL, "blood_glucose");
  EXPECT_EQ(diabetes.bloodGlucose(), NYBDynamicValue(5.5 * 18.0));
  diabetes.setMeasurementValue(90, NYBGlucoseUnitMgdL, "bloodGlucose");
  EXPECT_EQ(diabetes.bloodGlucose(), NYBDynamicValue(90.0));
}

// The heart rates' places in the extras are the record builder's test.
TEST(RecordTypes, BiometricsAndDiabetesReadTheirOwnFields) {
  NYBBiometrics bio;
  bio.setArterialPressure(93);
  for (const std::string& key : bio.JSONObject().stringKeys())
    EXPECT_EQ(key.find("arterial"), key.npos);
  auto parsed = NYBBiometrics::modelFromJSONObject(
      parse(R"({"arterialPressure":93,"arterial_pressure":93,"extras":{"median_heartrate":72}})"));
  EXPECT_TRUE(parsed->arterialPressure().isAbsent());
  EXPECT_EQ(parsed->medianHeartRate(), NYBDynamicValue(72));
  parsed->setMinHeartRate(60);
  parsed->setMedianHeartRate({});
  EXPECT_EQ(parsed->extras(), NYBDynamicValue(NYBDictionary{{"min_heartrate", 60}}));
  EXPECT_TRUE(parsed->maxHeartRate().isAbsent());

  // Diabetes strings follow their tables.
  EXPECT_EQ(NYBDiabetes::modelFromJSONObject(parse(R"({"relationship_to_meal":"Before"})"))
                ->relationshipToMeal(),
            NYBMealRelationshipNone);
  NYBDiabetes d;
  EXPECT_EQ(d.JSONObject()["relationship_to_meal"], NYBDynamicValue(""));
  d.setRelationshipToMeal(NYBMealRelationship(9));
  EXPECT_TRUE(d.JSONObject()["relationship_to_meal"].isNull());

  // Their places in the extras are the record builder's test.
  d.setExtras({});
  d.setDiabetesEvent(NYBDiabetesEventMedication);
  d.setOutOfRange(NYBDiabetesOutOfRangeLow);
  EXPECT_EQ(d.diabetesEvent(), NYBDiabetesEventMedication);
  EXPECT_EQ(d.outOfRange(), NYBDiabetesOutOfRangeLow);
  d.setDiabetesEvent(NYBDiabetesEvent(2));  // has no string: removes the tag
  d.setOutOfRange(NYBDiabetesOutOfRangeNone);
  EXPECT_TRUE(d.extras().isAbsent());
  d.setExtraValue("Exercise", "glucose_event_tag");
  EXPECT_EQ(d.diabetesEvent(), NYBDiabetesEventNone);
  d.setExtraValue("high", "out_of_range");
  EXPECT_EQ(d.outOfRange(), NYBDiabetesOutOfRangeNone);
}

TEST(RecordTypes, IntraDayComputesItsFieldsAndSendsOnlyItsOwnKeys) {
  test::TimeZoneOverride zone("America/New_York");
  NYBIntraDay first;
  NYBIntraDay second;
  EXPECT_NE(first.activityID(), second.activityID());

  NYBDictionary json = first.JSONObject();
  json.remove("activity_id");
  EXPECT_EQ(NYBDynamicValue(json), parse(R"({"data_points":[],"source_name":"NymbrelMobile",
      "source":"nymbrelmobile","device":{"id":"","manufacturer":"","model":""},"unit":"count",
      "type":"steps","manufacturer":"","model":""})"));

  // Unparsable text in the range leaves a date absent.
  first.setRange(NYBDictionary{{"start", "yesterday"}, {"end", "2016-03-01T23:59:59+00:00"}});
  EXPECT_TRUE(first.start().isAbsent());
  EXPECT_EQ(first.end(), NYBDynamicValue(NYBDate(1456876799)));

  // Copies keep dates exactly, although the range holds whole seconds only.
  second.setStart(NYBDate(1456790400.25));
  second.setEnd(NYBDate(1456790400.75));
  EXPECT_TRUE(second.copyAs<NYBIntraDay>()->isEqual(second));
}

}  // namespace
}  // namespace nyb
