// RecordTypeDescription: what one record type is, as plain data: its number,
// the collection ("root") the service keeps it under, its display name, its
// class, and its own fields with their JSON keys, units and the command-line
// spellings that the nymbrel tool offers.
//
// Each record type states its description once, in records/types/, as
// constexpr data. The library derives from it the record type's key map and
// property table, the factory, the type's display name and the API client's
// URLs; the nymbrel tool derives its options, help and import spellings; the
// devserver derives its record collections. The devserver never links the
// library, so this header and the descriptions depend on the standard library
// alone. Everything here is immutable, so any thread may read it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace nyb::records {

// How the tool reads a field's value from text.
enum class FieldKind : std::uint8_t {
  Number,            // an integer or a real
  Text,              // any text
  Boolean,           // true/false, yes/no, 1/0
  DateTime,          // 2016-03-01T14:05:09+01:00, ...Z, a local time without offset, or "now"
  MealRelationship,  // none, before, after, random, fasting
  DiabetesEvent,     // exercise, sick, medication, other
  OutOfRange,        // high, low
  DataPoint,         // START/END=COUNT, repeatable
  UtcOffset,         // +01:00, -05:30: sign, hours up to 14, colon, minutes
};

// The unit family of a unit-bearing field (at most one per type).
enum class FieldUnit : std::uint8_t { None, Weight, Temperature, Glucose };

struct FieldDescription {
  std::string_view property;  // the record property: "fatPercent"
  // Where the document carries it: "fat_percent"; "extras.min_heartrate" for
  // an extras entry; a dotted path ("range.start") inside a computed value.
  std::string_view jsonKey;
  std::string_view option;  // the tool's name, without "--": "fat-percent"
  FieldKind kind;
  std::string_view help;
  FieldUnit unit = FieldUnit::None;
  // The tool lists fields with a non-zero place first, in that order, then
  // the others in document order.
  std::uint8_t listedAt = 0;

  // A property of its own held in the record and sent under a top-level key
  // of the document: it belongs in the key map and the property table.
  constexpr bool isDocumentProperty() const { return jsonKey.find('.') == std::string_view::npos; }
};

// Which common record fields a type's document carries.
enum class CommonFields : std::uint8_t {
  All,      // every common key, before the type's own (commonKeyPaths())
  Reduced,  // no device, validated, _id, extras, last_updated or media; the
            // type's class states its whole key map itself
};

struct RecordTypeDescription {
  std::uint64_t type;                        // its NYBRecordType
  std::string_view root;                     // the service's collection: "weight"
  std::string_view displayName;              // nameForRecordType(): "Weight"
  std::string_view className;                // "NYBWeight"
  std::string_view summary;                  // a line for the tool's help
  std::span<const FieldDescription> fields;  // in document order
  CommonFields common = CommonFields::All;
};

}  // namespace nyb::records
