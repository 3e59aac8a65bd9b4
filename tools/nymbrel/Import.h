// Reading many readings from a file: CSV with a header row, or JSON lines
// (one object per line). Each row names its record type in a "record_type"
// column (or the command gives one for the whole file), an optional "unit"
// for the type's unit-bearing field, an optional "image" (a PNG file,
// relative to the import file's folder), and any fields of the type by their
// command-line name, property name or JSON key. Empty cells and JSON nulls
// are left out.
//
// A JSON line that holds a "record" object (as rejected.jsonl does,
// Refusals.h) is that record's whole document: it is sent as it was, with its
// activity ID, raw data and extras; of the line's other keys only
// "record_type" and "image" count.
//
// Problems are reported per row, with the line the row starts on, and do not
// stop the other rows.
#pragma once

#include <NymbrelCore/NYBDynamicValue.h>
#include <NymbrelCore/NYBImage.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "RecordBuilder.h"

namespace nymbrel {

enum class ImportFormat { Detect, CSV, JSONLines };

struct ImportRow {
  std::size_t line = 0;                                    // 1-based line where the row starts
  std::vector<std::pair<std::string, std::string>> cells;  // column name, text
  nyb::NYBDynamicValue document = {};                      // a whole record's document
};

struct ImportTable {
  std::vector<ImportRow> rows;
  std::vector<std::string> errors;  // "line 4: ..."
};

// Detect: JSON lines when the first non-blank line starts with "{", else CSV.
// A CSV file whose header cannot be used is a usage error for the whole file.
ImportTable parseImport(std::string_view content, ImportFormat format);

// A row made into a record, with its photo when it names one.
struct ImportedRecord {
  std::size_t line = 0;
  std::shared_ptr<nyb::NYBRecord> record;
  std::shared_ptr<nyb::NYBImage> photo;
};

// Builds the row's record; on failure appends "line N: ..." messages to
// `errors` and gives nothing. `defaultType` serves rows without record_type.
std::optional<ImportedRecord> recordFromRow(const ImportRow& row, const RecordTypeSpec* defaultType,
                                            const std::filesystem::path& baseDirectory,
                                            std::vector<std::string>& errors);

}  // namespace nymbrel
