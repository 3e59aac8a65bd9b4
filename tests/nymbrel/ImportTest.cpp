// Import files in process: CSV quoting and line numbers, JSON lines, and rows
// made into records (or refused with their line number).
#include <gtest/gtest.h>

#include <NymbrelCore/NYBDictionary.h>

#include "Errors.h"
#include "Import.h"
#include "QueueView.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nymbrel {
namespace {

using Cells = std::vector<std::pair<std::string, std::string>>;

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
  EXPECT_EQ(table.rows[0].line, 2u);
  EXPECT_EQ(table.rows[0].cells, (Cells{{"record_type", "weight"},
                                        {"weight", "70"},
                                        {"comment", "before breakfast, fasting"}}));
  EXPECT_EQ(table.rows[1].line, 4u);
  EXPECT_EQ(table.rows[1].cells[2].second, "said \"hello\"\nthen left");
  EXPECT_EQ(table.rows[2].line, 9u);  // the empty last cell is left out
  EXPECT_EQ(table.rows[2].cells, (Cells{{"record_type", "weight"}, {"weight", "74"}}));
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
  EXPECT_EQ(table.rows[0].line, 2u);
  EXPECT_EQ(table.rows[0].cells, (Cells{{"record_type", "intraday"},
                                        {"data_points", "a/b=1"},
                                        {"data_points", "s/e=2.5"},
                                        {"validated", "false"}}));
  EXPECT_EQ(table.rows[1].line, 5u);
  EXPECT_EQ(table.rows[1].cells, (Cells{{"record_type", "weight"}, {"weight", "70.25"}}));
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
  ASSERT_TRUE(meal.has_value());
  EXPECT_EQ(meal->line, 5u);
  EXPECT_EQ(meal->record->recordType(), nyb::NYBRecordTypeNutrition);
  ASSERT_NE(meal->photo, nullptr);
  EXPECT_EQ(meal->photo->width(), 4u);

  // Without a record_type column the command's type serves.
  auto weight = recordFromRow({6, {{"Weight", "150"}, {"unit", "lb"}}}, findRecordType("weight"),
                              folder.path(), errors);
  ASSERT_TRUE(weight.has_value());
  EXPECT_EQ(weight->record->rawData()["weight"],
            (nyb::NYBDictionary{{"value", "150"}, {"unit", "lb"}}));
  EXPECT_TRUE(errors.empty());

  const std::vector<std::pair<ImportRow, std::vector<std::string>>> refused = {
      {{7, {{"deep", "80"}}}, {"line 7: no record type: give a record_type column or --type"}},
      {{8, {{"record_type", "walking"}}},
       {"line 8: record_type: \"walking\" is not a record type (biometrics, diabetes, weight, "
        "routine, nutrition, fitness, sleep, intraday)"}},
      {{9, {{"record_type", "sleep"}, {"weight", "80"}, {"deep", "x"}}},
       {"line 9: unknown field \"weight\" for a sleep record",
        "line 9: deep: \"x\" is not a number"}},
      {{10, {{"record_type", "weight"}, {"unit", "lb"}}},
       {"line 10: unit: \"lb\" given without weight"}},
      {{11, {{"record_type", "weight"}, {"image", "missing.png"}}},
       {"line 11: image: \"missing.png\": no such file"}},
      {{12, {{"record_type", "intraday"}, {"start", "2016-03-02"}, {"end", "2016-03-01"}}},
       {"line 12: end: \"2016-03-01\" is before the start"}},
  };
  for (const auto& [row, expected] : refused) {
    errors.clear();
    EXPECT_FALSE(recordFromRow(row, nullptr, folder.path(), errors).has_value());
    EXPECT_EQ(errors, expected);
  }
}

// Short tokens are masked whole (the tool's queue output shows "****" for a four-letter one).
TEST(QueueView, TokensShowOnlyTheirLastFourLettersAndOnlyWhenLong) {
  EXPECT_EQ(maskToken("demo-token"), "**********");
  EXPECT_EQ(maskToken("abcdefghijkl"), "********ijkl");
}

}  // namespace
}  // namespace nymbrel
