// The eight record types: their JSON documents (written by hand from the field
// tables), the factory, the unit fields, and what is particular to some types.
#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBDiabetes.h"
#include "NymbrelCore/NYBFitness.h"
#include "NymbrelCore/NYBIntraDay.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBNutrition.h"
#include "NymbrelCore/NYBRoutine.h"
#include "NymbrelCore/NYBSleep.h"
#include "NymbrelCore/NYBWeight.h"
#include "support/TimeZoneOverride.h"

namespace nyb {
namespace {

const NYBDate kMidnight(1456790400);  // 2016-03-01 00:00:00 UTC

NYBDynamicValue parse(const std::string& text) {
  NYBDynamicValue value = NYBJSONSerialization::JSONObjectWithData(text);
  EXPECT_TRUE(value.isDictionary()) << text;
  return value;
}

NYBDynamicValue decimal(const char* text) { return NYBDecimal::fromString(text); }

template <typename T>
T& as(NYBRecord& record) {
  return dynamic_cast<T&>(record);
}

// The fields every record type but the intraday one sends, and their document.
void fillCommon(NYBRecord& r) {
  r.setTimestamp(NYBDate(1456841109));  // 2016-03-01 14:05:09 UTC
  r.setOriginalSource("Maker");
  r.setIntermediarySource("Relay");
  r.setSourcePeripheral("Model 7");
  r.setLastUpdated(NYBDate(1456905600));  // 2016-03-02 08:00:00 UTC
  r.setValidated(true);
  r.setRecordID("5f00aa");
  r.setExtras(NYBDictionary{{"comment", "fasted"}});
  r.setActivityID("A1B2");
  r.setMedia(NYBArray());
}
const std::string kCommon =
    R"("timestamp":"2016-03-01T14:05:09+00:00","utc_offset":"+01:00","source":"nymbrelmobile",
    "source_name":"NymbrelMobile","original_source":"Maker","intermediary_source":"Relay",
    "device":"Model 7","last_updated":"2016-03-02T08:00:00+00:00","validated":true,"_id":"5f00aa",
    "extras":{"comment":"fasted"},"activity_id":"A1B2","media":[])";

struct TypeCase {
  NYBRecordType type;
  const char* className;
  std::function<void(NYBRecord&)> fill;
  std::string document;
};

const TypeCase kTypes[] = {
    {NYBRecordTypeBiometrics, "NYBBiometrics",
     [](NYBRecord& r) {
       auto& b = as<NYBBiometrics>(r);
       b.setBloodCalcium(1), b.setBloodChromium(2), b.setBloodFolicAcid(3);
       b.setBloodMagnesium(4), b.setBloodPotassium(5), b.setBloodSodium(6);
       b.setBloodVitaminB12(7), b.setBloodZinc(8), b.setCreatineKinase(9), b.setCrp(10);
       b.setDiastolic(11), b.setFerritin(12), b.setHdl(13), b.setHscrp(14), b.setIl6(15);
       b.setLdl(16), b.setRestingHeartrate(17), b.setSystolic(18), b.setTestosterone(19);
       b.setTotalCholesterol(20), b.setTsh(21), b.setUricAcid(22), b.setVitaminD(23);
       b.setWhiteCellCount(24), b.setSpo2(25), b.setTemperature(36.6);
     },
     "{" + kCommon + R"(,"blood_calcium":1,"blood_chromium":2,"blood_folic_acid":3,
     "blood_magnesium":4,"blood_potassium":5,"blood_sodium":6,"blood_vitamin_b12":7,"blood_zinc":8,
     "creatine_kinase":9,"crp":10,"diastolic":11,"ferritin":12,"hdl":13,"hscrp":14,"il6":15,
     "ldl":16,"resting_heartrate":17,"systolic":18,"testosterone":19,"total_cholesterol":20,
     "tsh":21,"uric_acid":22,"vitamin_d":23,"white_cell_count":24,"spo2":25,"temperature":36.6})"},
    {NYBRecordTypeDiabetes, "NYBDiabetes",
     [](NYBRecord& r) {
       auto& d = as<NYBDiabetes>(r);
       d.setCPeptide(1.5), d.setFastingPlasmaGlucoseTest(95), d.setHba1c(5.7), d.setInsulin(12);
       d.setOralGlucoseToleranceTest(140), d.setRandomPlasmaGlucoseTest(110);
       d.setTriglyceride(150), d.setBloodGlucose(99),
           d.setRelationshipToMeal(NYBMealRelationshipBefore);
     },
     "{" + kCommon + R"(,"c_peptide":1.5,"fasting_plasma_glucose_test":95,"hba1c":5.7,
     "insulin":12,"oral_glucose_tolerance_test":140,"random_plasma_glucose_test":110,
     "triglyceride":150,"blood_glucose":99,"relationship_to_meal":"before"})"},
    {NYBRecordTypeWeight, "NYBWeight",
     [](NYBRecord& r) {
       auto& w = as<NYBWeight>(r);
       w.setWeight(82.5), w.setHeight(1.82), w.setFreeMass(61), w.setFatPercent(21.4);
       w.setMassWeight(34), w.setBmi(24.9);
     },
     "{" + kCommon + R"(,"weight":82.5,"height":1.82,"free_mass":61,"fat_percent":21.4,
     "mass_weight":34,"bmi":24.9})"},
    {NYBRecordTypeRoutine, "NYBRoutine",
     [](NYBRecord& r) {
       auto& o = as<NYBRoutine>(r);
       o.setSteps(10432), o.setDistance(7.9), o.setFloors(12), o.setElevation(36);
       o.setCaloriesBurned(2450), o.setActiveDuration(3600);
     },
     "{" + kCommon + R"(,"steps":10432,"distance":7.9,"floors":12,"elevation":36,
     "calories_burned":2450,"active_duration":3600})"},
    {NYBRecordTypeNutrition, "NYBNutrition",
     [](NYBRecord& r) {
       auto& n = as<NYBNutrition>(r);
       n.setCalories(650), n.setCarbohydrates(80), n.setFat(22), n.setFiber(9);
       n.setProtein(31), n.setSodium(1.2), n.setWater(500), n.setMeal("lunch");
     },
     "{" + kCommon + R"(,"calories":650,"carbohydrates":80,"fat":22,"fiber":9,"protein":31,
     "sodium":1.2,"water":500,"meal":"lunch"})"},
    {NYBRecordTypeFitness, "NYBFitness",
     [](NYBRecord& r) {
       auto& f = as<NYBFitness>(r);
       f.setType("running"), f.setIntensity("high"), f.setStartTime(NYBDate(1456813800));
       f.setDistance(10.2), f.setDuration(3120), f.setCalories(780);
     },
     // The start time in the device's zone, unlike the timestamp.
     "{" + kCommon + R"(,"type":"running","intensity":"high",
     "start_time":"2016-03-01T07:30:00+01:00","distance":10.2,"duration":3120,"calories":780})"},
    {NYBRecordTypeSleep, "NYBSleep",
     [](NYBRecord& r) {
       auto& s = as<NYBSleep>(r);
       s.setTotalSleep(420), s.setAwake(25), s.setDeep(95), s.setLight(230), s.setRem(75);
       s.setTimesWoken(2);
     },
     "{" + kCommon + R"(,"total_sleep":420,"awake":25,"deep":95,"light":230,"rem":75,
     "times_woken":2})"},
    {NYBRecordTypeIntraDay, "NYBIntraDay",
     [](NYBRecord& r) {
       auto& i = as<NYBIntraDay>(r);
       i.setStart(kMidnight);
       i.setEnd(NYBDate(1456876800));
       i.addValue(420, NYBDate(1456819200), NYBDate(1456820100));
       i.addValue(35.5, NYBDate(1456820100), NYBDate(1456821000));
       i.setDevice(NYBDictionary{{"id", "band-1"}, {"manufacturer", "Acme"}, {"model", "Step 2"}});
       i.setOriginalSource("Maker");
       i.setTimestamp(NYBDate(1456841109));
       i.setActivityID("A1B2");
       i.setIntermediarySource("Relay");
     },
     // The range in UTC, the data points in the device's zone.
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
  const NYBDynamicValue defaultExtras = NYBRecord().extras();
  for (const TypeCase& c : kTypes) {
    SCOPED_TRACE(c.className);
    std::shared_ptr<NYBRecord> record = NYBRecord::newRecordWithType(c.type);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->className(), c.className);
    EXPECT_EQ(record->recordType(), c.type);
    EXPECT_EQ(record->source(), NYBDynamicValue("nymbrelmobile"));
    EXPECT_EQ(record->extras(), defaultExtras);
    EXPECT_TRUE(record->timestamp().isAbsent());

    if (c.type != NYBRecordTypeIntraDay) fillCommon(*record);
    c.fill(*record);
    NYBDynamicValue expected = parse(c.document);
    NYBDictionary json = record->JSONObject();
    EXPECT_EQ(NYBDynamicValue(json), expected) << NYBDynamicValue(json).description();
    EXPECT_EQ(json.stringKeys(), expected.dictionary()->stringKeys());

    std::shared_ptr<NYBModel> parsed = record->classObject().modelFromJSONObject(expected);
    EXPECT_TRUE(parsed->isEqual(*record)) << parsed->description() << record->description();
  }
  EXPECT_FALSE(NYBRecord::newRecordWithType(NYBRecordTypeNone));
  EXPECT_FALSE(NYBRecord::newRecordWithType(NYBRecordType(9)));
}

TEST(RecordTypes, UnitFieldsStoreTheStandardUnitAndKeepWhatWasEntered) {
  auto expectEntered = [](const NYBRecord& r, const char* field, const char* value,
                          const char* unit) {
    EXPECT_EQ(r.rawData()[field], NYBDynamicValue(NYBDictionary{{"value", value}, {"unit", unit}}));
  };
  // A later value in the standard unit replaces the field but not what was entered.
  NYBWeight weight;
  weight.setWeight(150, NYBWeightUnitPounds);
  EXPECT_EQ(weight.weightWithUnit(NYBWeightUnitKilograms), NYBDynamicValue(150 * 0.45359237));
  weight.setWeight(70, NYBWeightUnitKilograms);
  EXPECT_EQ(weight.weight(), NYBDynamicValue(70.0));
  expectEntered(weight, "weight", "150", "lb");
  EXPECT_EQ(weight.weightWithUnit(NYBWeightUnitPounds), decimal("150"));
  weight.setMeasurementValue(10, NYBWeightUnitStones, "weight");
  EXPECT_EQ(weight.weight(), NYBDynamicValue(10 * 6.35029318));
  expectEntered(weight, "weight", "10", "st");
  weight.setMeasurementValue(31, NYBWeightUnitPounds, "bmi");
  EXPECT_TRUE(weight.bmi().isAbsent());

  NYBBiometrics bio;
  EXPECT_EQ(bio.temperatureWithUnit(NYBTemperatureUnitFahrenheit), NYBDynamicValue(32.0));
  bio.setTemperature(98.6, NYBTemperatureUnitFahrenheit);
  EXPECT_EQ(bio.temperature(), NYBDynamicValue((98.6 + (-32.0)) * 0.5555555555555556));
  bio.setMeasurementValue(36.5, NYBTemperatureUnitCelsius, "temperature");
  EXPECT_EQ(bio.temperatureWithUnit(NYBTemperatureUnitCelsius), NYBDynamicValue(36.5));
  expectEntered(bio, "temperature", "98.6", "F");
  EXPECT_EQ(bio.temperatureWithUnit(NYBTemperatureUnitFahrenheit), decimal("98.6"));
  bio.setMeasurementValue(120, NYBTemperatureUnitFahrenheit, "systolic");
  EXPECT_TRUE(bio.systolic().isAbsent());

  // Kept under the JSON key, but set through the property name only.
  NYBDiabetes diabetes;
  diabetes.setBloodGlucose(5.5, NYBGlucoseUnitMmolL);
  EXPECT_EQ(diabetes.bloodGlucose(), NYBDynamicValue(5.5 * 18.0));
  expectEntered(diabetes, "blood_glucose", "5.5", "mmol/L");
  EXPECT_EQ(diabetes.bloodGlucoseWithUnit(NYBGlucoseUnitMmolL), decimal("5.5"));
  diabetes.setMeasurementValue(7, NYBGlucoseUnitMmolL, "blood_glucose");
  EXPECT_EQ(diabetes.bloodGlucose(), NYBDynamicValue(5.5 * 18.0));
  diabetes.setMeasurementValue(90, NYBGlucoseUnitMgdL, "bloodGlucose");
  EXPECT_EQ(diabetes.bloodGlucose(), NYBDynamicValue(90.0));
}

TEST(RecordTypes, BiometricsKeepArterialPressureLocalAndHeartRatesInExtras) {
  NYBBiometrics bio;
  bio.setExtras({});
  bio.setArterialPressure(93);
  bio.setMinHeartRate(60);
  bio.setMaxHeartRate(170);
  NYBDictionary json = bio.JSONObject();
  EXPECT_EQ(json["extras"],
            NYBDynamicValue(NYBDictionary{{"min_heartrate", 60}, {"max_heartrate", 170}}));
  for (const std::string& key : json.stringKeys()) EXPECT_EQ(key.find("arterial"), key.npos);
  auto parsed = NYBBiometrics::modelFromJSONObject(
      parse(R"({"arterialPressure":93,"arterial_pressure":93,"extras":{"median_heartrate":72}})"));
  EXPECT_TRUE(parsed->arterialPressure().isAbsent());
  EXPECT_EQ(parsed->medianHeartRate(), NYBDynamicValue(72));

  bio.setMinHeartRate({});
  EXPECT_EQ(bio.maxHeartRate(), NYBDynamicValue(170));
  bio.setMaxHeartRate({});
  EXPECT_TRUE(bio.extras().isAbsent());
  EXPECT_FALSE(bio.JSONObject().contains("extras"));
}

// A diabetes record whose class names its tags, and writes the meal
// relationship, in other words.
class ClinicDiabetesClass : public NYBDiabetesClass {
 public:
  using NYBDiabetesClass::NYBDiabetesClass;
  std::optional<std::string> stringValueForMealRelationship(NYBMealRelationship r) const override {
    return r == NYBMealRelationshipBefore ? "pre"
                                          : NYBDiabetesClass::stringValueForMealRelationship(r);
  }
  std::optional<std::string> stringValueForDiabetesEvent(NYBDiabetesEvent event) const override {
    return event == NYBDiabetesEventSick ? "ill"
                                         : NYBDiabetesClass::stringValueForDiabetesEvent(event);
  }
  NYBDiabetesEvent DiabetesEventForStringValue(const NYBDynamicValue& s) const override {
    return s == NYBDynamicValue("ill") ? NYBDiabetesEventSick : NYBDiabetesEventNone;
  }
};

class ClinicDiabetes : public NYBDiabetes {
  NYB_DECLARE_MODEL(ClinicDiabetes, NYBDiabetesClass)
};

const NYBDiabetesClass& ClinicDiabetes::staticClass() {
  static const ClinicDiabetesClass cls({"ClinicDiabetes",
                                        &NYBDiabetes::staticClass(),
                                        [] { return std::make_shared<ClinicDiabetes>(); },
                                        {},
                                        *NYBDiabetes::JSONKeyPaths(),
                                        {}});
  return cls;
}

TEST(RecordTypes, DiabetesStringsFollowTheirTablesAndTheRecordsOwnClass) {
  auto meal = [](const char* json) {
    return NYBDiabetes::modelFromJSONObject(parse(json))->relationshipToMeal();
  };
  EXPECT_EQ(meal(R"({"relationship_to_meal":"before"})"), NYBMealRelationshipBefore);
  EXPECT_EQ(meal(R"({"relationship_to_meal":"Before"})"), NYBMealRelationshipNone);
  NYBDiabetes d;
  EXPECT_EQ(d.JSONObject()["relationship_to_meal"], NYBDynamicValue(""));
  d.setRelationshipToMeal(NYBMealRelationship(9));
  std::optional<std::string> text = NYBJSONSerialization::dataWithJSONObject(d.JSONObject());
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(R"("relationship_to_meal":null)"), text->npos);

  d.setExtras({});
  d.setDiabetesEvent(NYBDiabetesEventMedication);
  d.setOutOfRange(NYBDiabetesOutOfRangeLow);
  EXPECT_EQ(d.extras(), NYBDynamicValue(NYBDictionary{{"glucose_event_tag", "medication"},
                                                      {"out_of_range", "Low"}}));
  EXPECT_EQ(d.diabetesEvent(), NYBDiabetesEventMedication);
  EXPECT_EQ(d.outOfRange(), NYBDiabetesOutOfRangeLow);
  d.setDiabetesEvent(NYBDiabetesEvent(2));  // has no string: removes the tag
  d.setOutOfRange(NYBDiabetesOutOfRangeNone);
  EXPECT_TRUE(d.extras().isAbsent());
  d.setExtraValue("Exercise", "glucose_event_tag");
  EXPECT_EQ(d.diabetesEvent(), NYBDiabetesEventNone);
  d.setExtraValue("high", "out_of_range");
  EXPECT_EQ(d.outOfRange(), NYBDiabetesOutOfRangeNone);

  // A subclass's conversions decide the tags and the meal relationship.
  ClinicDiabetes clinic;
  clinic.setDiabetesEvent(NYBDiabetesEventSick);
  clinic.setRelationshipToMeal(NYBMealRelationshipBefore);
  NYBDictionary json = clinic.JSONObject();
  EXPECT_EQ((*json["extras"].dictionary())["glucose_event_tag"], NYBDynamicValue("ill"));
  EXPECT_EQ(json["relationship_to_meal"], NYBDynamicValue("pre"));
  EXPECT_EQ(ClinicDiabetes::modelFromJSONObject(json)->diabetesEvent(), NYBDiabetesEventSick);
}

TEST(RecordTypes, IntraDayComputesItsFieldsAndSendsOnlyItsOwnKeys) {
  test::TimeZoneOverride zone("America/New_York");
  NYBIntraDay first;
  NYBIntraDay second;
  EXPECT_TRUE(std::regex_match(std::string(first.activityID().stringView()),
                               std::regex("[0-9A-F]{8}-([0-9A-F]{4}-){3}[0-9A-F]{12}")));
  EXPECT_NE(first.activityID(), second.activityID());

  // Common fields outside the intraday key map never travel, and type and unit
  // keep their one value.
  first.setType("walking");
  first.setUnit("metres");
  first.setRecordID("5f00aa");
  first.setValidated(true);
  first.setLastUpdated(kMidnight);
  first.setSourcePeripheral("Band");
  first.setMedia(NYBArray());
  NYBDictionary json = first.JSONObject();
  json.remove("activity_id");
  EXPECT_EQ(NYBDynamicValue(json), parse(R"({"data_points":[],"source_name":"NymbrelMobile",
      "source":"nymbrelmobile","device":{"id":"","manufacturer":"","model":""},"unit":"count",
      "type":"steps","manufacturer":"","model":""})"));

  // The range reads back what it was given; unparsable text leaves a date absent.
  NYBDictionary range{{"start", "2016-03-01T00:00:00+00:00"}, {"end", "2016-03-01T23:59:59+00:00"}};
  first.setRange(range);
  EXPECT_EQ(first.start(), NYBDynamicValue(kMidnight));
  EXPECT_EQ(first.range(), NYBDynamicValue(range));
  first.setRange(NYBDictionary{{"start", "yesterday"}, {"end", "2016-03-01T23:59:59+00:00"}});
  EXPECT_TRUE(first.start().isAbsent());
  EXPECT_EQ(first.end(), NYBDynamicValue(NYBDate(1456876799)));

  // The device dictionary is read from "device" only.
  auto parsed = NYBIntraDay::modelFromJSONObject(
      parse(R"({"intraday_device":{"id":"x","manufacturer":"X","model":"X1"}})"));
  EXPECT_EQ(parsed->deviceSource(), NYBDynamicValue(""));
  parsed = NYBIntraDay::modelFromJSONObject(parse(R"({"device":{"id":"x","model":"X1"}})"));
  EXPECT_EQ(parsed->deviceSource(), NYBDynamicValue("x"));

  // Copies keep dates exactly, although the range holds whole seconds only.
  second.setStart(NYBDate(1456790400.25));
  second.setEnd(NYBDate(1456790400.75));
  EXPECT_TRUE(second.copyAs<NYBIntraDay>()->isEqual(second));
}

}  // namespace
}  // namespace nyb
