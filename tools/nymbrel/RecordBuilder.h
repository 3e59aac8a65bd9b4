// Builds one record from field values given as text (command-line options,
// the cells of an import row), checking every value first, so that a bad
// value is reported with the name the user gave it and nothing is built.
//
// The unit-bearing field (weight, temperature, blood glucose) is set through
// the record's measurement setter, so a value entered in another unit is
// stored converted and also kept as entered (the record's raw data). A record
// gets a timestamp of now and a new activity ID unless given.
#pragma once

#include <NymbrelCore/NYBDate.h>
#include <NymbrelCore/NYBImage.h>
#include <NymbrelCore/NYBRecord.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "RecordFields.h"

namespace nymbrel {

// One value as the user gave it.
struct FieldInput {
  std::string label;  // how the user named it, for messages: "--weight", "weight"
  const FieldSpec* field = nullptr;
  std::string text;
};

struct RecordInput {
  const RecordTypeSpec* type = nullptr;
  std::vector<FieldInput> fields;
  // The unit of the type's unit-bearing field, as given.
  std::optional<std::string> unit;
  std::string unitLabel = "--unit";
  // Put before a field's name when a message names a field the user did not
  // give ("--" on the command line, nothing in an import file).
  std::string fieldPrefix = "--";
};

struct BuildResult {
  std::shared_ptr<nyb::NYBRecord> record;  // null when there are errors
  std::vector<std::string> errors;         // "--weight: \"abc\" is not a number"
};

BuildResult buildRecord(const RecordInput& input);

// The value of a field of that kind, or absent with *error saying why.
nyb::NYBDynamicValue parseFieldValue(ValueKind kind, std::string_view text, std::string* error);

// Why an intraday record's range would be stored wrongly: a range needs both
// ends (the document would otherwise carry half a range), and must not end
// before it starts. Absent when the range is good.
std::optional<std::string> intradayRangeProblem(const std::optional<nyb::NYBDate>& start,
                                                const std::optional<nyb::NYBDate>& end);

// The photo in a PNG file, or null with *error saying why not ("no such
// file", "is not a PNG image"), for a message that names the file first.
std::shared_ptr<nyb::NYBImage> loadPhoto(const std::string& path, std::string* error);

// An instant from "2016-03-01T14:05:09+01:00", "...Z", a local
// "2016-03-01T14:05:09" or "2016-03-01", or "now".
std::optional<nyb::NYBDate> parseDateTime(std::string_view text);

// A new random (version 4) UUID in upper-case canonical form.
std::string newActivityID();

}  // namespace nymbrel
