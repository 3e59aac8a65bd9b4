#include "RecordFields.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBBiometrics.h>
#include <NymbrelCore/NYBDiabetes.h>
#include <NymbrelCore/NYBIntraDay.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace nymbrel {

using nyb::NYBDynamicValue;
using nyb::NYBRecord;

namespace {

constexpr auto kNumber = ValueKind::Number;
constexpr auto kText = ValueKind::Text;

// The common fields, in the order a record document lists them. The intraday
// record's document has no device, validated, _id or extras (so no comment).
std::vector<FieldSpec> commonFields(bool intraday) {
  std::vector<FieldSpec> fields = {
      {"timestamp", "timestamp", "timestamp", ValueKind::DateTime,
       "when the reading was taken (default: now)"},
      {"utc-offset", "utcOffset", "utc_offset", ValueKind::UtcOffset,
       "UTC offset such as +01:00 (default: the device's offset at the timestamp)"},
      {"source", "source", "source", kText, "source (default: nymbrelmobile)"},
      {"source-name", "sourceName", "source_name", kText, "source name (default: NymbrelMobile)"},
      {"original-source", "originalSource", "original_source", kText,
       "original source, such as the measuring device's maker"},
      {"intermediary-source", "intermediarySource", "intermediary_source", kText,
       "intermediary source"},
  };
  if (!intraday) {
    fields.push_back(
        {"source-peripheral", "sourcePeripheral", "device", kText, "the measuring device's model"});
    fields.push_back({"validated", "validated", "validated", ValueKind::Boolean,
                      "whether the reading was validated"});
    fields.push_back({"record-id", "recordID", "_id", kText,
                      "the service's identifier: updates that record instead of adding one"});
  }
  fields.push_back({"activity-id", "activityID", "activity_id", kText,
                    "the activity's identifier (default: a new UUID)"});
  if (!intraday) {
    fields.push_back({"comment", "comment", "extras.comment", kText, "a free-form comment"});
  }
  return fields;
}

template <void (nyb::NYBBiometrics::*Set)(NYBDynamicValue)>
void setBiometricsExtra(NYBRecord& record, const NYBDynamicValue& value) {
  (static_cast<nyb::NYBBiometrics&>(record).*Set)(value);
}

void setDiabetesEvent(NYBRecord& record, const NYBDynamicValue& value) {
  static_cast<nyb::NYBDiabetes&>(record).setDiabetesEvent(
      nyb::NYBDiabetesEvent(value.unsignedValue()));
}

void setOutOfRange(NYBRecord& record, const NYBDynamicValue& value) {
  static_cast<nyb::NYBDiabetes&>(record).setOutOfRange(
      nyb::NYBDiabetesOutOfRange(value.unsignedValue()));
}

// A data point arrives as [start date, end date, count].
void addDataPoint(NYBRecord& record, const NYBDynamicValue& value) {
  const nyb::NYBArray& point = *value.array();
  static_cast<nyb::NYBIntraDay&>(record).addValue(point[2].doubleValue(), *point[0].date(),
                                                  *point[1].date());
}

std::vector<FieldSpec> withCommon(std::vector<FieldSpec> own, bool intraday = false) {
  auto common = commonFields(intraday);
  own.insert(own.end(), common.begin(), common.end());
  return own;
}

std::vector<RecordTypeSpec> makeRecordTypes() {
  using nyb::NYBBiometrics;
  std::vector<RecordTypeSpec> types;
  types.push_back(
      {nyb::NYBRecordTypeBiometrics, "biometrics",
       "clinical and vital-sign readings: blood chemistry, lipids, blood pressure, temperature",
       withCommon({
           {"temperature", "temperature", "temperature", kNumber,
            "body temperature, in C unless --unit F", UnitFamily::Temperature},
           {"systolic", "systolic", "systolic", kNumber, "systolic blood pressure"},
           {"diastolic", "diastolic", "diastolic", kNumber, "diastolic blood pressure"},
           {"resting-heartrate", "restingHeartrate", "resting_heartrate", kNumber,
            "resting heart rate"},
           {"spo2", "spo2", "spo2", kNumber, "oxygen saturation"},
           {"blood-calcium", "bloodCalcium", "blood_calcium", kNumber, "blood calcium"},
           {"blood-chromium", "bloodChromium", "blood_chromium", kNumber, "blood chromium"},
           {"blood-folic-acid", "bloodFolicAcid", "blood_folic_acid", kNumber, "blood folic acid"},
           {"blood-magnesium", "bloodMagnesium", "blood_magnesium", kNumber, "blood magnesium"},
           {"blood-potassium", "bloodPotassium", "blood_potassium", kNumber, "blood potassium"},
           {"blood-sodium", "bloodSodium", "blood_sodium", kNumber, "blood sodium"},
           {"blood-vitamin-b12", "bloodVitaminB12", "blood_vitamin_b12", kNumber,
            "blood vitamin B12"},
           {"blood-zinc", "bloodZinc", "blood_zinc", kNumber, "blood zinc"},
           {"creatine-kinase", "creatineKinase", "creatine_kinase", kNumber, "creatine kinase"},
           {"crp", "crp", "crp", kNumber, "C-reactive protein"},
           {"ferritin", "ferritin", "ferritin", kNumber, "ferritin"},
           {"hdl", "hdl", "hdl", kNumber, "HDL cholesterol"},
           {"hscrp", "hscrp", "hscrp", kNumber, "high-sensitivity C-reactive protein"},
           {"il6", "il6", "il6", kNumber, "interleukin 6"},
           {"ldl", "ldl", "ldl", kNumber, "LDL cholesterol"},
           {"testosterone", "testosterone", "testosterone", kNumber, "testosterone"},
           {"total-cholesterol", "totalCholesterol", "total_cholesterol", kNumber,
            "total cholesterol"},
           {"tsh", "tsh", "tsh", kNumber, "thyroid-stimulating hormone"},
           {"uric-acid", "uricAcid", "uric_acid", kNumber, "uric acid"},
           {"vitamin-d", "vitaminD", "vitamin_d", kNumber, "vitamin D"},
           {"white-cell-count", "whiteCellCount", "white_cell_count", kNumber, "white cell count"},
           {"min-heart-rate", "minHeartRate", "extras.min_heartrate", kNumber, "minimum heart rate",
            UnitFamily::None, setBiometricsExtra<&NYBBiometrics::setMinHeartRate>},
           {"max-heart-rate", "maxHeartRate", "extras.max_heartrate", kNumber, "maximum heart rate",
            UnitFamily::None, setBiometricsExtra<&NYBBiometrics::setMaxHeartRate>},
           {"average-heart-rate", "averageHeartRate", "extras.average_heartrate", kNumber,
            "average heart rate", UnitFamily::None,
            setBiometricsExtra<&NYBBiometrics::setAverageHeartRate>},
           {"median-heart-rate", "medianHeartRate", "extras.median_heartrate", kNumber,
            "median heart rate", UnitFamily::None,
            setBiometricsExtra<&NYBBiometrics::setMedianHeartRate>},
       })});
  types.push_back(
      {nyb::NYBRecordTypeDiabetes, "diabetes",
       "glucose-related readings: blood glucose and its relation to a meal, HbA1c, insulin",
       withCommon({
           {"blood-glucose", "bloodGlucose", "blood_glucose", kNumber,
            "blood glucose, in mg/dL unless --unit mmol/L", UnitFamily::Glucose},
           {"relationship-to-meal", "relationshipToMeal", "relationship_to_meal",
            ValueKind::MealRelationship, "when the glucose was measured"},
           {"diabetes-event", "diabetesEvent", "extras.glucose_event_tag", ValueKind::DiabetesEvent,
            "what was going on", UnitFamily::None, setDiabetesEvent},
           {"out-of-range", "outOfRange", "extras.out_of_range", ValueKind::OutOfRange,
            "the reading is out of range", UnitFamily::None, setOutOfRange},
           {"hba1c", "hba1c", "hba1c", kNumber, "HbA1c"},
           {"insulin", "insulin", "insulin", kNumber, "insulin"},
           {"c-peptide", "cPeptide", "c_peptide", kNumber, "C-peptide"},
           {"fasting-plasma-glucose-test", "fastingPlasmaGlucoseTest",
            "fasting_plasma_glucose_test", kNumber, "fasting plasma glucose test"},
           {"oral-glucose-tolerance-test", "oralGlucoseToleranceTest",
            "oral_glucose_tolerance_test", kNumber, "oral glucose tolerance test"},
           {"random-plasma-glucose-test", "randomPlasmaGlucoseTest", "random_plasma_glucose_test",
            kNumber, "random plasma glucose test"},
           {"triglyceride", "triglyceride", "triglyceride", kNumber, "triglycerides"},
       })});
  types.push_back({nyb::NYBRecordTypeWeight, "weight", "body weight and composition",
                   withCommon({
                       {"weight", "weight", "weight", kNumber,
                        "body weight, in kg unless --unit lb or st", UnitFamily::Weight},
                       {"height", "height", "height", kNumber, "height"},
                       {"free-mass", "freeMass", "free_mass", kNumber, "fat-free mass"},
                       {"fat-percent", "fatPercent", "fat_percent", kNumber, "body fat percentage"},
                       {"mass-weight", "massWeight", "mass_weight", kNumber, "mass weight"},
                       {"bmi", "bmi", "bmi", kNumber, "body-mass index"},
                   })});
  types.push_back(
      {nyb::NYBRecordTypeRoutine, "routine", "a day's routine activity",
       withCommon({
           {"steps", "steps", "steps", kNumber, "steps"},
           {"distance", "distance", "distance", kNumber, "distance"},
           {"floors", "floors", "floors", kNumber, "floors climbed"},
           {"elevation", "elevation", "elevation", kNumber, "elevation"},
           {"calories-burned", "caloriesBurned", "calories_burned", kNumber, "calories burned"},
           {"active-duration", "activeDuration", "active_duration", kNumber, "active duration"},
       })});
  types.push_back(
      {nyb::NYBRecordTypeNutrition, "nutrition", "one meal's intake",
       withCommon({
           {"meal", "meal", "meal", kText, "the meal's name"},
           {"calories", "calories", "calories", kNumber, "calories"},
           {"carbohydrates", "carbohydrates", "carbohydrates", kNumber, "carbohydrates"},
           {"fat", "fat", "fat", kNumber, "fat"},
           {"fiber", "fiber", "fiber", kNumber, "fibre"},
           {"protein", "protein", "protein", kNumber, "protein"},
           {"sodium", "sodium", "sodium", kNumber, "sodium"},
           {"water", "water", "water", kNumber, "water"},
       })});
  types.push_back({nyb::NYBRecordTypeFitness, "fitness", "one workout",
                   withCommon({
                       {"type", "type", "type", kText, "the kind of workout"},
                       {"intensity", "intensity", "intensity", kText, "its intensity"},
                       {"start-time", "startTime", "start_time", ValueKind::DateTime,
                        "when it started (sent in the device's local time)"},
                       {"distance", "distance", "distance", kNumber, "distance"},
                       {"duration", "duration", "duration", kNumber, "duration"},
                       {"calories", "calories", "calories", kNumber, "calories"},
                   })});
  types.push_back({nyb::NYBRecordTypeSleep, "sleep", "one night's sleep",
                   withCommon({
                       {"total-sleep", "totalSleep", "total_sleep", kNumber, "total sleep"},
                       {"awake", "awake", "awake", kNumber, "time awake"},
                       {"deep", "deep", "deep", kNumber, "deep sleep"},
                       {"light", "light", "light", kNumber, "light sleep"},
                       {"rem", "rem", "rem", kNumber, "REM sleep"},
                       {"times-woken", "timesWoken", "times_woken", kNumber, "times woken"},
                   })});
  types.push_back(
      {nyb::NYBRecordTypeIntraDay, "intraday", "a series of step counts over a day",
       withCommon(
           {
               {"start", "start", "range.start", ValueKind::DateTime, "start of the range"},
               {"end", "end", "range.end", ValueKind::DateTime, "end of the range"},
               {"point", "point", "data_points", ValueKind::DataPoint,
                "a step count over an interval (repeatable)", UnitFamily::None, addDataPoint},
               {"device-source", "deviceSource", "device.id", kText,
                "the counting device's identifier"},
               {"manufacturer", "manufacturer", "manufacturer", kText, "its maker"},
               {"model", "model", "model", kText, "its model"},
           },
           true)});
  return types;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

struct UnitName {
  std::string_view text;
  std::uint64_t value;
};

std::vector<UnitName> unitNames(UnitFamily family) {
  switch (family) {
    case UnitFamily::Weight:
      return {{"kg", nyb::NYBWeightUnitKilograms}, {"lb", nyb::NYBWeightUnitPounds},
              {"st", nyb::NYBWeightUnitStones},    {"kilograms", nyb::NYBWeightUnitKilograms},
              {"lbs", nyb::NYBWeightUnitPounds},   {"pounds", nyb::NYBWeightUnitPounds},
              {"stone", nyb::NYBWeightUnitStones}, {"stones", nyb::NYBWeightUnitStones}};
    case UnitFamily::Temperature:
      return {{"C", nyb::NYBTemperatureUnitCelsius},
              {"F", nyb::NYBTemperatureUnitFahrenheit},
              {"celsius", nyb::NYBTemperatureUnitCelsius},
              {"fahrenheit", nyb::NYBTemperatureUnitFahrenheit}};
    case UnitFamily::Glucose:
      return {{"mg/dL", nyb::NYBGlucoseUnitMgdL}, {"mmol/L", nyb::NYBGlucoseUnitMmolL}};
    case UnitFamily::None:
      break;
  }
  return {};
}

}  // namespace

const FieldSpec* RecordTypeSpec::unitField() const {
  for (const auto& field : fields) {
    if (field.unit != UnitFamily::None) return &field;
  }
  return nullptr;
}

const FieldSpec* RecordTypeSpec::findField(std::string_view spelling) const {
  std::string wanted = normalizedName(spelling);
  for (const auto& field : fields) {
    // A key inside "extras" is named without the prefix; other nested keys
    // ("device.id") are no spelling of their field.
    std::string_view key = field.jsonKey;
    if (key.starts_with("extras.")) key.remove_prefix(7);
    bool keyMatches = key.find('.') == std::string_view::npos && normalizedName(key) == wanted;
    if (keyMatches || normalizedName(field.name) == wanted ||
        normalizedName(field.property) == wanted) {
      return &field;
    }
  }
  return nullptr;
}

const std::vector<RecordTypeSpec>& recordTypes() {
  static const std::vector<RecordTypeSpec> types = makeRecordTypes();
  return types;
}

const RecordTypeSpec* findRecordType(std::string_view name) {
  for (const auto& type : recordTypes()) {
    if (equalsIgnoringCase(type.name, name) ||
        equalsIgnoringCase(NYBRecord::nameForRecordType(type.type), name)) {
      return &type;
    }
  }
  return nullptr;
}

std::string recordTypeNames() {
  std::string names;
  for (const auto& type : recordTypes()) {
    if (!names.empty()) names += ", ";
    names += type.name;
  }
  return names;
}

std::string unitChoices(UnitFamily family) {
  std::vector<std::string_view> shortNames;
  for (const auto& unit : unitNames(family)) {
    bool seen = std::any_of(shortNames.begin(), shortNames.end(),
                            [&](std::string_view s) { return parseUnit(family, s) == unit.value; });
    if (!seen) shortNames.push_back(unit.text);
  }
  std::string text;
  for (std::size_t i = 0; i < shortNames.size(); ++i) {
    if (i > 0) text += i + 1 == shortNames.size() ? " or " : ", ";
    text += shortNames[i];
  }
  return text;
}

std::optional<std::uint64_t> parseUnit(UnitFamily family, std::string_view text) {
  for (const auto& unit : unitNames(family)) {
    if (equalsIgnoringCase(unit.text, text)) return unit.value;
  }
  return std::nullopt;
}

std::string_view standardUnitText(UnitFamily family) {
  auto names = unitNames(family);
  return names.empty() ? std::string_view() : names.front().text;
}

std::string_view valuePlaceholder(ValueKind kind) {
  switch (kind) {
    case ValueKind::Number:
      return "NUMBER";
    case ValueKind::Text:
      return "TEXT";
    case ValueKind::Boolean:
      return "true|false";
    case ValueKind::DateTime:
      return "DATE-TIME";
    case ValueKind::MealRelationship:
      return "none|before|after|random|fasting";
    case ValueKind::DiabetesEvent:
      return "exercise|sick|medication|other";
    case ValueKind::OutOfRange:
      return "high|low";
    case ValueKind::DataPoint:
      return "START/END=COUNT";
    case ValueKind::UtcOffset:
      return "+HH:MM";
  }
  return "VALUE";
}

std::string normalizedName(std::string_view spelling) {
  std::string name;
  for (char c : spelling) {
    if (c == '-' || c == '_') continue;
    name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return name;
}

}  // namespace nymbrel
