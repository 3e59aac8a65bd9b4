#include "NymbrelCore/NYBRecord.h"

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBFormatter.h"
#include "platform/Device.h"
#include "platform/Log.h"
#include "records/RecordTypeList.h"

namespace nyb {

namespace {

// ---- Transformers ----------------------------------------------------------

std::shared_ptr<NYBValueTransformer> makeDateTimeTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& text) -> NYBDynamicValue {
        if (!text.isString()) return {};
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->dateFromString(
            text.stringView());
      },
      [](const NYBDynamicValue& date) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->stringFromDate(
            date.date());
      });
}

std::shared_ptr<NYBValueTransformer> makeMediaTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& value) -> NYBDynamicValue {
        NYBArray media;
        if (const NYBArray* elements = value.array()) {
          media.reserve(elements->size());
          for (const NYBDynamicValue& element : *elements) {
            if (!element.isDictionary()) continue;
            if (auto item = NYBMedia::modelFromJSONObject(element)) media.append(std::move(item));
          }
        }
        return media;
      },
      // Media go to the service by their own upload, never inside the record.
      [](const NYBDynamicValue&) -> NYBDynamicValue { return NYBArray(); });
}

// ---- Units -----------------------------------------------------------------

// Rounds to double precision, so that a multiplication is never fused with the
// addition that follows it: conversions must give the same bits everywhere.
double rounded(double value) {
  volatile double stored = value;
  return stored;
}

std::optional<double> weightToKilograms(double x, NYBWeightUnit unit) {
  switch (unit) {
    case NYBWeightUnitKilograms:
      return x;
    case NYBWeightUnitPounds:
      return x * 0.45359237;
    case NYBWeightUnitStones:
      return x * 6.35029318;
  }
  return std::nullopt;
}

std::optional<double> weightFromKilograms(double x, NYBWeightUnit unit) {
  switch (unit) {
    case NYBWeightUnitKilograms:
      return x;
    case NYBWeightUnitPounds:
      return x / 0.45359237;
    case NYBWeightUnitStones:
      return x / 6.35029318;
  }
  return std::nullopt;
}

std::optional<double> temperatureToCelsius(double x, NYBTemperatureUnit unit) {
  switch (unit) {
    case NYBTemperatureUnitCelsius:
      return x;
    case NYBTemperatureUnitFahrenheit:
      return (x + (-32.0)) * 0.5555555555555556;
  }
  return std::nullopt;
}

std::optional<double> temperatureFromCelsius(double x, NYBTemperatureUnit unit) {
  switch (unit) {
    case NYBTemperatureUnitCelsius:
      return x;
    case NYBTemperatureUnitFahrenheit:
      return rounded(x * 1.8) + 32.0;
  }
  return std::nullopt;
}

std::optional<double> glucoseToMgdL(double x, NYBGlucoseUnit unit) {
  switch (unit) {
    case NYBGlucoseUnitMgdL:
      return x;
    case NYBGlucoseUnitMmolL:
      return x * 18.0;
  }
  return std::nullopt;
}

std::optional<double> glucoseFromMgdL(double x, NYBGlucoseUnit unit) {
  switch (unit) {
    case NYBGlucoseUnitMgdL:
      return x;
    case NYBGlucoseUnitMmolL:
      return x / 18.0;
  }
  return std::nullopt;
}

template <typename Unit>
NYBDynamicValue convert(const NYBDynamicValue& value, Unit fromUnit, Unit toUnit,
                        std::optional<double> (*toStandard)(double, Unit),
                        std::optional<double> (*fromStandard)(double, Unit)) {
  std::optional<double> standard = toStandard(value.doubleValue(), fromUnit);
  if (!standard) return 0.0;
  std::optional<double> result = fromStandard(*standard, toUnit);
  return result ? *result : 0.0;
}

// The five-entry description of the sending device, made once per process:
// none of its parts changes while the process runs.
const NYBDynamicValue& deviceDescription() {
  static const NYBDynamicValue description = [] {
    std::optional<std::string> libraryVersion = platform::libraryShortVersion();
    if (!libraryVersion) {
      throw NYBInvalidArgumentException(
          "NYBRecord: the library's bundle information has no version string");
    }
    return NYBDynamicValue(NYBDictionary{
        {"mobile_device_manufacturer", "Apple"},
        {"mobile_device_model_number", NYBRecord::deviceModel()},
        {"mobile_os", "iOS"},
        {"mobile_os_version", platform::systemVersion()},
        {"nymbrel_library_version", std::move(*libraryVersion)},
    });
  }();
  return description;
}

}  // namespace

// ---- NYBRecordClass --------------------------------------------------------

std::string NYBRecordClass::nameForRecordType(NYBRecordType recordType) const {
  if (recordType == NYBRecordTypeNone) return "None";
  const records::RecordTypeDescription* description = records::describeRecordType(recordType);
  return description != nullptr ? std::string(description->displayName) : "Unknown";
}

NYBDynamicValue NYBRecordClass::convertWeightValue(const NYBDynamicValue& value,
                                                   NYBWeightUnit fromUnit,
                                                   NYBWeightUnit toUnit) const {
  return convert(value, fromUnit, toUnit, weightToKilograms, weightFromKilograms);
}

NYBDynamicValue NYBRecordClass::convertTemperatureValue(const NYBDynamicValue& value,
                                                        NYBTemperatureUnit fromUnit,
                                                        NYBTemperatureUnit toUnit) const {
  return convert(value, fromUnit, toUnit, temperatureToCelsius, temperatureFromCelsius);
}

NYBDynamicValue NYBRecordClass::convertGlucoseValue(const NYBDynamicValue& value,
                                                    NYBGlucoseUnit fromUnit,
                                                    NYBGlucoseUnit toUnit) const {
  return convert(value, fromUnit, toUnit, glucoseToMgdL, glucoseFromMgdL);
}

std::optional<std::string> NYBRecordClass::unitStringForWeightUnit(NYBWeightUnit unit) const {
  switch (unit) {
    case NYBWeightUnitKilograms:
      return "kg";
    case NYBWeightUnitPounds:
      return "lb";
    case NYBWeightUnitStones:
      return "st";
  }
  return std::nullopt;
}

std::optional<std::string> NYBRecordClass::unitStringForTemperatureUnit(
    NYBTemperatureUnit unit) const {
  switch (unit) {
    case NYBTemperatureUnitCelsius:
      return "C";
    case NYBTemperatureUnitFahrenheit:
      return "F";
  }
  return std::nullopt;
}

std::optional<std::string> NYBRecordClass::unitStringForGlucoseUnit(NYBGlucoseUnit unit) const {
  switch (unit) {
    case NYBGlucoseUnitMgdL:
      return "mg/dL";
    case NYBGlucoseUnitMmolL:
      return "mmol/L";
  }
  return std::nullopt;
}

std::string NYBRecordClass::deviceModel() const { return platform::deviceModel(); }

// ---- NYBRecord -------------------------------------------------------------

const NYBRecordClass& NYBRecord::staticClass() {
  static const NYBRecordClass recordClass(
      {"NYBRecord",
       &NYBModel::staticClass(),
       [] { return std::make_shared<NYBRecord>(); },
       NYBPropertyTable::of<NYBRecord>()
           .field("timestamp", &NYBRecord::timestamp_, &NYBRecord::setTimestamp)
           .field("utcOffset", &NYBRecord::utcOffset_)
           .field("source", &NYBRecord::source_)
           .field("sourceName", &NYBRecord::sourceName_)
           .field("originalSource", &NYBRecord::originalSource_)
           .field("intermediarySource", &NYBRecord::intermediarySource_)
           .field("sourcePeripheral", &NYBRecord::sourcePeripheral_)
           .field("lastUpdated", &NYBRecord::lastUpdated_)
           .field("validated", &NYBRecord::validated_)
           .field("recordID", &NYBRecord::recordID_)
           .field("extras", &NYBRecord::extras_)
           .field("activityID", &NYBRecord::activityID_)
           .field("media", &NYBRecord::media_)
           .field("associatedPeripheral", &NYBRecord::associatedPeripheral_)
           // After extras, so that building from a dictionary keeps both.
           .computed("comment", &NYBRecord::comment, &NYBRecord::setComment),
       std::nullopt,
       {{"timestampTransformer", makeDateTimeTransformer},
        {"lastUpdatedTransformer", makeDateTimeTransformer},
        {"mediaTransformer", makeMediaTransformer}}});
  return recordClass;
}

NYBKeyMap NYBRecord::commonKeyPaths() {
  return {{"timestamp", "timestamp"},
          {"utcOffset", "utc_offset"},
          {"source", "source"},
          {"sourceName", "source_name"},
          {"originalSource", "original_source"},
          {"intermediarySource", "intermediary_source"},
          {"sourcePeripheral", "device"},
          {"lastUpdated", "last_updated"},
          {"validated", "validated"},
          {"recordID", "_id"},
          {"extras", "extras"},
          {"activityID", "activity_id"},
          {"media", "media"}};
}

NYBRecord::NYBRecord()
    : source_("nymbrelmobile"), sourceName_("NymbrelMobile"), extras_(deviceDescription()) {}

NYBRecordType NYBRecord::recordType() const { return NYBRecordTypeNone; }

void NYBRecord::setTimestamp(NYBDynamicValue timestamp) {
  timestamp_ = std::move(timestamp);
  setUtcOffset(
      NYBFormatter::sharedFormatter().timeZoneFormatter()->stringFromDate(timestamp_.date()));
}

NYBDynamicValue NYBRecord::comment() const {
  const NYBDictionary* extras = extras_.dictionary();
  return extras != nullptr ? (*extras)["comment"] : NYBDynamicValue();
}

void NYBRecord::setComment(NYBDynamicValue comment) {
  setExtraValue(std::move(comment), "comment");
}

void NYBRecord::setExtraValue(NYBDynamicValue value, std::string_view key) {
  const NYBDictionary* current = extras_.dictionary();
  NYBDictionary extras = current != nullptr ? *current : NYBDictionary();
  if (value.isPresent()) {
    extras.set(key, std::move(value));
  } else {
    extras.remove(key);
  }
  setExtras(extras.empty() ? NYBDynamicValue() : NYBDynamicValue(std::move(extras)));
}

void NYBRecord::addMedia(const std::shared_ptr<NYBMedia>& media) {
  if (!media) {
    throw NYBInvalidArgumentException(
        "*** -[NYBRecord addMedia:]: attempt to insert nil object into media");
  }
  const NYBArray* current = media_.array();
  NYBArray all = current != nullptr ? *current : NYBArray();
  all.append(media);
  setMedia(std::move(all));
}

void NYBRecord::setMeasurementValue(const NYBDynamicValue& value, std::string_view field) {
  try {
    setValue(value, field);
  } catch (const NYBException& failure) {
    log("Exception setting value for key: {}. Exception: {}.", field, failure.description());
  }
}

void NYBRecord::setMeasurementValue(const NYBDynamicValue& /*value*/, std::uint64_t /*unit*/,
                                    std::string_view /*field*/) {}

NYBDictionary NYBRecord::rawData() const {
  const NYBDictionary* extras = extras_.dictionary();
  if (extras != nullptr) {
    if (const NYBDictionary* raw = (*extras)[kNYBRawDataKey].dictionary()) return *raw;
  }
  return NYBDictionary();
}

void NYBRecord::setRawMeasurement(const std::shared_ptr<NYBMeasurement>& measurement,
                                  std::string_view field) {
  if (!measurement) return;
  std::optional<NYBDictionary> representation = measurement->dictionaryRepresentation();
  if (!representation) return;
  NYBDictionary raw = rawData();
  raw.set(field, std::move(*representation));
  setExtraValue(std::move(raw), kNYBRawDataKey);
}

std::shared_ptr<NYBMeasurement> NYBRecord::rawMeasurementForField(std::string_view field) const {
  NYBDictionary raw = rawData();
  const NYBDictionary* dictionary = raw[field].dictionary();
  return NYBMeasurement::modelWithDictionary(dictionary != nullptr ? *dictionary : NYBDictionary());
}

}  // namespace nyb
