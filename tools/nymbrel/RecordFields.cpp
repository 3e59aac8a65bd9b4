#include "RecordFields.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDiabetes.h>
#include <NymbrelCore/NYBIntraDay.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "records/RecordTypeList.h"

namespace nymbrel {

using nyb::NYBDynamicValue;
using nyb::NYBRecord;

namespace {

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

// A field whose value needs more than a plain set: its setter follows from
// its kind.
FieldSetter setterFor(const nyb::records::FieldDescription& field) {
  switch (field.kind) {
    case ValueKind::DiabetesEvent:
      return setDiabetesEvent;
    case ValueKind::OutOfRange:
      return setOutOfRange;
    case ValueKind::DataPoint:
      return addDataPoint;
    default:
      break;
  }
  return nullptr;
}

// The type's own fields in the order the tool lists them, then the common
// fields its document carries.
RecordTypeSpec makeRecordType(const nyb::records::RecordTypeDescription& description) {
  std::vector<const nyb::records::FieldDescription*> own;
  for (const auto& field : description.fields) own.push_back(&field);
  std::stable_sort(own.begin(), own.end(), [](const auto* a, const auto* b) {
    return (a->listedAt == 0 ? 256 : a->listedAt) < (b->listedAt == 0 ? 256 : b->listedAt);
  });
  RecordTypeSpec type{
      nyb::NYBRecordType(description.type), description.root, description.summary, {}};
  for (const auto* field : own) {
    type.fields.push_back({field->option, field->property, field->jsonKey, field->kind, field->help,
                           field->unit, setterFor(*field)});
  }
  auto common = commonFields(description.common == nyb::records::CommonFields::Reduced);
  type.fields.insert(type.fields.end(), common.begin(), common.end());
  return type;
}

std::vector<RecordTypeSpec> makeRecordTypes() {
  std::vector<RecordTypeSpec> types;
  for (const auto* description : nyb::records::kRecordTypes) {
    types.push_back(makeRecordType(*description));
  }
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
    if (key.starts_with(kExtrasPrefix)) key.remove_prefix(kExtrasPrefix.size());
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
