// The tool's parts in process: every field of every type reaches the service's document under
// its key, units convert and keep the entered value, bad values are named without building
// anything, and import files are read row by row.
#include <gtest/gtest.h>

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDictionary.h>

#include <cmath>
#include <map>
#include <sstream>

#include "Errors.h"
#include "Import.h"
#include "RecordBuilder.h"
#include "RecordFields.h"
#include "RunTool.h"
#include "support/TempDir.h"
#include "support/TimeZoneOverride.h"

namespace nymbrel {
namespace {

using nyb::NYBDictionary;
using nyb::NYBDynamicValue;

NYBDynamicValue at(const NYBDictionary& document, std::string_view path) {
  const NYBDictionary* dictionary = &document;
  for (auto dot = path.find('.'); dot != std::string_view::npos; dot = path.find('.')) {
    dictionary = (*dictionary)[path.substr(0, dot)].dictionary();
    if (dictionary == nullptr) return {};
    path.remove_prefix(dot + 1);
  }
  return (*dictionary)[path];
}

// The field "unit" is --unit.
BuildResult build(std::string_view typeName,
                  const std::vector<std::pair<std::string, std::string>>& fields) {
  RecordInput input;
  input.type = findRecordType(typeName);
  EXPECT_NE(input.type, nullptr) << typeName;
  for (const auto& [name, text] : fields) {
    if (name == "unit") {
      input.unit = text;
      continue;
    }
    const FieldSpec* field = input.type->findField(name);
    EXPECT_NE(field, nullptr) << name;
    input.fields.push_back({"--" + name, field, text});
  }
  return buildRecord(input);
}

TEST(RecordBuilder, EveryFieldOfEveryTypeReachesTheDocumentUnderItsKey) {
  nyb::test::TimeZoneOverride utc("UTC");
  // A sample text of each kind and the value the document must hold for it.
  const std::map<ValueKind, std::pair<std::string, NYBDynamicValue>> samples = {
      {ValueKind::Number, {"7", 7}},
      {ValueKind::Boolean, {"yes", true}},
      {ValueKind::DateTime, {"2016-03-01T14:05:09Z", "2016-03-01T14:05:09+00:00"}},
      {ValueKind::MealRelationship, {"fasting", "fasting"}},
      {ValueKind::DiabetesEvent, {"medication", "medication"}},
      {ValueKind::OutOfRange, {"low", "Low"}},
      {ValueKind::UtcOffset, {"-05:30", "-05:30"}},
      {ValueKind::DataPoint,
       {"2016-03-01T14:00:00Z/2016-03-01T14:15:00Z=120",
        nyb::NYBArray{NYBDictionary{{"start", "2016-03-01T14:00:00+00:00"},
                                    {"end", "2016-03-01T14:15:00+00:00"},
                                    {"value", 120}}}}},
  };
  for (const auto& type : recordTypes()) {
    SCOPED_TRACE(std::string(type.name));
    RecordInput input{&type, {}, std::nullopt, "--unit", "--"};
    std::vector<NYBDynamicValue> expected;
    for (const auto& field : type.fields) {
      // Each text field its own value, so that two fields swapped show.
      const std::string name = "x-" + std::string(field.name);
      const auto& [text, value] = field.kind == ValueKind::Text
                                      ? std::pair<std::string, NYBDynamicValue>{name, name}
                                      : samples.at(field.kind);
      input.fields.push_back({"--" + std::string(field.name), &field, text});
      expected.push_back(value);
    }
    BuildResult built = buildRecord(input);
    ASSERT_TRUE(built.errors.empty()) << built.errors.front();
    ASSERT_EQ(built.record->recordType(), type.type);
    NYBDictionary document = built.record->JSONObject();
    for (std::size_t i = 0; i < type.fields.size(); ++i) {
      EXPECT_EQ(at(document, type.fields[i].jsonKey), expected[i])
          << type.fields[i].name << " in " << document.description();
    }
  }
}

TEST(RecordBuilder, ValuesInOtherUnitsAreStoredConvertedAndKeptAsEntered) {
  const struct {
    std::string type, field, key, text, unit;
    double stored;
    std::string rawUnit;  // empty: no raw entry
  } cases[] = {
      {"weight", "weight", "weight", "150", "lb", 68.0388555, "lb"},     // x 0.45359237 kg/lb
      {"weight", "weight", "weight", "10", "stones", 63.5029318, "st"},  // x 6.35029318 kg/st
      {"weight", "weight", "weight", "71.5", "KG", 71.5, ""},
      // x 18 mg/dL per mmol/L; the raw entry is under the JSON key.
      {"diabetes", "blood-glucose", "blood_glucose", "5.5", "mmol/l", 99.0, "mmol/L"},
      {"biometrics", "temperature", "temperature", "98.6", "Fahrenheit", 37.0, "F"},  // -32, x5/9
  };
  for (const auto& c : cases) {
    NYBDictionary document =
        build(c.type, {{c.field, c.text}, {"unit", c.unit}}).record->JSONObject();
    EXPECT_NEAR(at(document, c.key).doubleValue(), c.stored, 1e-9) << c.unit;
    const NYBDynamicValue raw = c.rawUnit.empty()
                                    ? NYBDynamicValue()
                                    : NYBDictionary{{"value", c.text}, {"unit", c.rawUnit}};
    EXPECT_EQ(at(document, "extras.raw_data." + c.key), raw) << c.unit;
  }
}

TEST(RecordBuilder, BadValuesAreEachNamedAndNothingIsBuilt) {
  // "type field value field value ...", and what each error line
  // must name: the option, and the value where one was given.
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"weight weight inf bmi 1,5", {"--weight: \"inf\"", "--bmi: \"1,5\""}},
      {"weight weight 70 weight 71", {"--weight"}},
      {"weight timestamp yesterday", {"--timestamp: \"yesterday\""}},
      {"weight validated maybe", {"--validated: \"maybe\""}},
      {"diabetes relationship-to-meal lunch", {"--relationship-to-meal: \"lunch\""}},
      {"diabetes out-of-range medium", {"--out-of-range: \"medium\""}},
      {"intraday point 2016-03-01T14:15:00Z/2016-03-01T14:00:00Z=5", {"ends before it starts"}},
      {"intraday point 120", {"--point: \"120\""}},
      {"sleep deep 80 unit kg", {"--unit"}},
      {"weight weight 70 unit oz", {"--unit: \"oz\""}},
      {"weight bmi 22 unit lb", {"--unit: \"lb\" given without --weight"}},
  };
  for (const auto& [input, named] : cases) {
    std::istringstream words(input);
    std::string type, name, value;
    std::vector<std::pair<std::string, std::string>> fields;
    for (words >> type; words >> name >> value;) fields.emplace_back(name, value);
    BuildResult built = build(type, fields);
    EXPECT_EQ(built.record, nullptr) << input;
    ASSERT_EQ(built.errors.size(), named.size()) << input;
    for (std::size_t i = 0; i < named.size(); ++i) {
      EXPECT_NE(built.errors[i].find(named[i]), std::string::npos) << built.errors[i];
    }
  }
}

TEST(RecordBuilder, DefaultsTheOrderOfTimestampAndOffsetAndDateTimeForms) {
  nyb::test::TimeZoneOverride paris("Europe/Paris");
  // The timestamp's setter sets the device's offset; a given offset wins
  // wherever it appears.
  EXPECT_EQ(build("sleep", {{"utc-offset", "+05:00"}, {"timestamp", "2016-03-01T14:05:09Z"}})
                .record->JSONObject()["utc_offset"],
            "+05:00");

  auto before = nyb::NYBDate::now();
  BuildResult defaults = build("sleep", {{"deep", "80"}});
  NYBDictionary document = defaults.record->JSONObject();
  auto timestamp = defaults.record->timestamp().date();
  ASSERT_TRUE(timestamp.has_value());
  EXPECT_GE(timestamp->timeIntervalSince1970(), std::floor(before.timeIntervalSince1970()));
  EXPECT_LE(timestamp->timeIntervalSince1970(), nyb::NYBDate::now().timeIntervalSince1970());
  EXPECT_TRUE(document["utc_offset"] == "+01:00" || document["utc_offset"] == "+02:00");
  EXPECT_EQ(document["activity_id"].stringView().size(), 36u);
  EXPECT_NE(newActivityID(), newActivityID());

  // Every accepted form of a date-time (Paris is UTC+1 in March).
  const double instant = 1456841109;  // 2016-03-01 14:05:09 UTC
  for (const char* form : {"2016-03-01T14:05:09+00:00", "2016-03-01T14:05:09Z",
                           "2016-03-01T09:05:09-05:00", "2016-03-01T15:05:09"}) {
    EXPECT_EQ(parseDateTime(form)->timeIntervalSince1970(), instant) << form;
  }
  EXPECT_EQ(parseDateTime("2016-03-01")->timeIntervalSince1970(), 1456790400 - 3600);
  EXPECT_NEAR(parseDateTime("NOW")->timeIntervalSince1970(),
              nyb::NYBDate::now().timeIntervalSince1970(), 5);
  for (const char* bad :
       {"", "2016-02-30T00:00:00Z", "2016-03-01T14:05", "14:05:09", "1456841109"}) {
    EXPECT_FALSE(parseDateTime(bad).has_value()) << bad;
  }
}

// Import files: CSV quoting and line numbers, JSON lines, and rows made into records (or
// refused with their line number).
using Cells = std::vector<std::pair<std::string, std::string>>;

void expectRow(const ImportRow& row, std::size_t line, const Cells& cells) {
  EXPECT_EQ(row.line, line);
  EXPECT_EQ(row.cells, cells);
}

TEST(Import, CsvCellsQuotesAndTheLinesRowsStartOn) {
  ImportTable table = parseImport(
      "\xEF\xBB\xBFrecord_type, weight ,comment\r\n"
      "weight,70,\"before breakfast, fasting\"\r\n"
      "\n"
      "weight,71,\"said \"\"hello\"\"\nthen left\"\n"
      " , , \n"
      "weight,72\n"
      "weight,73,\"x\" y\n"
      "weight,74,\n",
      ImportFormat::Detect);
  ASSERT_EQ(table.rows.size(), 3u);
  expectRow(
      table.rows[0], 2,
      Cells{{"record_type", "weight"}, {"weight", "70"}, {"comment", "before breakfast, fasting"}});
  EXPECT_EQ(table.rows[1].line, 4u);
  EXPECT_EQ(table.rows[1].cells[2].second, "said \"hello\"\nthen left");
  expectRow(table.rows[2], 9,
            Cells{{"record_type", "weight"}, {"weight", "74"}});  // the empty last cell is left out
  EXPECT_EQ(table.errors, (std::vector<std::string>{"line 7: 2 cells where the header has 3",
                                                    "line 8: text after a closing quote"}));

  EXPECT_EQ(parseImport("type,weight\nweight,\"70\n", ImportFormat::CSV).errors,
            std::vector<std::string>{"line 2: a quoted cell is not closed"});
  try {
    parseImport("record_type,Weight,weight\n", ImportFormat::CSV);
    FAIL() << "a header naming a column twice was accepted";
  } catch (const CommandFailure& failure) {
    EXPECT_EQ(failure.code(), kExitUsage);
    EXPECT_STREQ(failure.what(), "line 1: the header names \"weight\" twice");
  }
}

TEST(Import, JsonLinesValuesArraysAndBadLines) {
  ImportTable table = parseImport(
      "\n"
      "{\"record_type\": \"intraday\", \"start\": null, \"data_points\": [\"a/b=1\", "
      "{\"start\": \"s\", \"end\": \"e\", \"value\": 2.5}], \"validated\": false}\n"
      "[1, 2]\n"
      "{\"record_type\": \"weight\", \"weight\": {\"kg\": 70}}\n"
      "{\"record_type\": \"weight\", \"weight\": 70.25, \"comment\": \"\"}\n",
      ImportFormat::Detect);
  ASSERT_EQ(table.rows.size(), 2u);
  expectRow(table.rows[0], 2,
            Cells{{"record_type", "intraday"},
                  {"data_points", "a/b=1"},
                  {"data_points", "s/e=2.5"},
                  {"validated", "false"}});
  expectRow(table.rows[1], 5, Cells{{"record_type", "weight"}, {"weight", "70.25"}});
  ASSERT_EQ(table.errors.size(), 2u);
  EXPECT_TRUE(table.errors[0].starts_with("line 3: not a JSON object")) << table.errors[0];
  EXPECT_EQ(table.errors[1],
            "line 4: weight: expected text, a number or true/false, not {\"kg\":70}");
}

TEST(Import, RowsBecomeRecordsOrAreRefusedWithTheirLine) {
  nyb::test::TempDir folder;
  nyb::test::writePng((folder.path() / "meal.png").string(), 4, 3);
  std::vector<std::string> errors;

  auto meal =
      recordFromRow({5, {{"RecordType", "Nutrition"}, {"meal", "lunch"}, {"image", "meal.png"}}},
                    nullptr, folder.path(), errors);
  ASSERT_TRUE(meal.has_value() && meal->photo);
  EXPECT_EQ(meal->line, 5u);
  EXPECT_EQ(meal->record->recordType(), nyb::NYBRecordTypeNutrition);
  EXPECT_EQ(meal->photo->width(), 4u);

  // Without a record_type column the command's type serves.
  auto weight = recordFromRow({6, {{"Weight", "150"}, {"unit", "lb"}}}, findRecordType("weight"),
                              folder.path(), errors);
  ASSERT_TRUE(weight.has_value());
  EXPECT_EQ(weight->record->rawData()["weight"],
            (nyb::NYBDictionary{{"value", "150"}, {"unit", "lb"}}));
  EXPECT_TRUE(errors.empty());

  // Each refused row: its line and what was wrong, named.
  const std::vector<std::pair<ImportRow, std::vector<std::string>>> refused = {
      {{7, {{"deep", "80"}}}, {"line 7: no record type"}},
      {{8, {{"record_type", "walking"}}}, {"line 8: record_type: \"walking\""}},
      {{9, {{"record_type", "sleep"}, {"weight", "80"}, {"deep", "x"}}},
       {"line 9: unknown field \"weight\"", "line 9: deep: \"x\""}},
      {{10, {{"record_type", "weight"}, {"unit", "lb"}}}, {"line 10: unit: \"lb\""}},
      {{11, {{"record_type", "weight"}, {"image", "missing.png"}}},
       {"line 11: image: \"missing.png\""}},
      {{12, {{"record_type", "intraday"}, {"start", "2016-03-02"}, {"end", "2016-03-01"}}},
       {"line 12: end: \"2016-03-01\""}},
  };
  for (const auto& [row, named] : refused) {
    errors.clear();
    EXPECT_FALSE(recordFromRow(row, nullptr, folder.path(), errors).has_value());
    ASSERT_EQ(errors.size(), named.size()) << row.line;
    for (std::size_t i = 0; i < named.size(); ++i) EXPECT_TRUE(errors[i].starts_with(named[i]));
  }
}

}  // namespace
}  // namespace nymbrel
