// The record types and the fields the tool can fill, one table per type.
//
// A field has one command-line name (kebab case: --blood-glucose), the record
// property it sets (bloodGlucose), where the service's JSON document carries
// it (blood_glucose, or an entry of "extras"), the kind of value it takes and
// a line of help. Import files may name a field by any of those spellings;
// matching ignores case, "-" and "_".
//
// Each type lists its own fields first, then the common record fields its
// document carries (the intraday record carries fewer of them). A type's own
// fields come from its description (records/types/), so a new record type
// appears here without a change to the tool. The tables are built once and
// read-only afterwards.
#pragma once

#include <NymbrelCore/NYBRecord.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/RecordTypeDescription.h"

namespace nymbrel {

// How a field's value is read from text (see the record types' descriptions).
using ValueKind = nyb::records::FieldKind;
// The unit family of the one unit-bearing field of a type.
using UnitFamily = nyb::records::FieldUnit;

// A field's JSON key inside the record's "extras".
inline constexpr std::string_view kExtrasPrefix = "extras.";

// Sets a field that is not a plain property (an extras entry, a data point).
using FieldSetter = void (*)(nyb::NYBRecord& record, const nyb::NYBDynamicValue& value);

struct FieldSpec {
  std::string_view name;      // command-line name, without the leading "--"
  std::string_view property;  // the record property (or extras accessor) it fills
  std::string_view jsonKey;   // the key in the document ("extras.min_heartrate" when nested)
  ValueKind kind;
  std::string_view help;
  UnitFamily unit = UnitFamily::None;
  FieldSetter setter = nullptr;  // null: set the property by name
};

struct RecordTypeSpec {
  nyb::NYBRecordType type;
  std::string_view name;  // the collection name: "weight", "intraday"
  std::string_view summary;
  std::vector<FieldSpec> fields;

  // The unit-bearing field, or null when the type has none.
  const FieldSpec* unitField() const;
  // A field by any of its spellings; null when the type has no such field.
  const FieldSpec* findField(std::string_view spelling) const;
};

// The record types, in record-type order (from their descriptions).
const std::vector<RecordTypeSpec>& recordTypes();
// A type by its collection name or display name ("Weight", "Intraday"), any
// case; null when there is none.
const RecordTypeSpec* findRecordType(std::string_view name);
// "biometrics, diabetes, weight, routine, nutrition, fitness, sleep, intraday"
std::string recordTypeNames();

// "kg", "lb", ... for help and messages: "kg, lb or st".
std::string unitChoices(UnitFamily family);
// The unit value of a unit text of the family (any case; long names such as
// "pounds" and "fahrenheit" too); absent when the family has no such unit.
std::optional<std::uint64_t> parseUnit(UnitFamily family, std::string_view text);
// The stored (standard) unit's text: "kg", "C", "mg/dL".
std::string_view standardUnitText(UnitFamily family);

// The value placeholder shown in help: NUMBER, TEXT, DATE-TIME ...
std::string_view valuePlaceholder(ValueKind kind);

// Lower case, without "-" and "_": how spellings of one field are compared.
std::string normalizedName(std::string_view spelling);

}  // namespace nymbrel
