#include "Import.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDictionary.h>
#include <NymbrelCore/NYBException.h>
#include <NymbrelCore/NYBIntraDay.h>
#include <NymbrelCore/NYBJSONSerialization.h>
#include <NymbrelCore/NYBModel.h>

#include <algorithm>
#include <set>

#include "Describe.h"
#include "Errors.h"

namespace nymbrel {

using nyb::NYBDynamicValue;

namespace {

std::string lineLabel(std::size_t line) { return "line " + std::to_string(line) + ": "; }

std::string_view trimmed(std::string_view text) {
  auto first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  auto last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

struct CsvRecord {
  std::size_t line = 0;
  std::vector<std::string> cells;
};

// RFC 4180 records: cells separated by commas, quoted cells may hold commas,
// line breaks and doubled quotes. Blanks around unquoted cells are dropped.
std::vector<CsvRecord> readCsv(std::string_view content, std::vector<std::string>& errors) {
  std::vector<CsvRecord> records;
  std::size_t line = 1;
  std::size_t i = 0;
  if (content.starts_with("\xEF\xBB\xBF")) i = 3;  // a byte-order mark
  while (i < content.size()) {
    CsvRecord record{line, {}};
    bool broken = false;
    while (true) {
      // One cell.
      std::string cell;
      std::size_t start = i;
      while (i < content.size() && (content[i] == ' ' || content[i] == '\t')) ++i;
      if (i < content.size() && content[i] == '"') {
        ++i;
        bool closed = false;
        while (i < content.size()) {
          char c = content[i++];
          if (c == '"') {
            if (i < content.size() && content[i] == '"') {
              cell += '"';
              ++i;
            } else {
              closed = true;
              break;
            }
          } else {
            if (c == '\n') ++line;
            cell += c;
          }
        }
        if (!closed) {
          errors.push_back(lineLabel(record.line) + "a quoted cell is not closed");
          return records;
        }
        while (i < content.size() &&
               (content[i] == ' ' || content[i] == '\t' || content[i] == '\r')) {
          ++i;
        }
        if (i < content.size() && content[i] != ',' && content[i] != '\n') broken = true;
      } else {
        i = start;
        while (i < content.size() && content[i] != ',' && content[i] != '\n') ++i;
        cell = trimmed(content.substr(start, i - start));
      }
      // Skip to the end of a cell that had text after its closing quote.
      while (broken && i < content.size() && content[i] != ',' && content[i] != '\n') ++i;
      record.cells.push_back(std::move(cell));
      if (i >= content.size() || content[i] == '\n') break;
      ++i;  // the comma
    }
    if (i < content.size()) ++i;  // the line feed
    ++line;
    if (broken) {
      errors.push_back(lineLabel(record.line) + "text after a closing quote");
      continue;
    }
    bool blank = std::all_of(record.cells.begin(), record.cells.end(),
                             [](const std::string& cell) { return cell.empty(); });
    if (!blank) records.push_back(std::move(record));
  }
  return records;
}

ImportTable parseCsv(std::string_view content) {
  ImportTable table;
  auto records = readCsv(content, table.errors);
  if (records.empty()) return table;
  const CsvRecord& header = records.front();
  std::set<std::string> names;
  for (std::size_t column = 0; column < header.cells.size(); ++column) {
    const std::string& name = header.cells[column];
    if (name.empty()) {
      throw usageError(lineLabel(header.line) + "column " + std::to_string(column + 1) +
                       " of the header has no name");
    }
    if (!names.insert(normalizedName(name)).second) {
      throw usageError(lineLabel(header.line) + "the header names \"" + name + "\" twice");
    }
  }
  for (std::size_t r = 1; r < records.size(); ++r) {
    const CsvRecord& record = records[r];
    if (record.cells.size() != header.cells.size()) {
      table.errors.push_back(lineLabel(record.line) + std::to_string(record.cells.size()) +
                             " cells where the header has " + std::to_string(header.cells.size()));
      continue;
    }
    ImportRow row{record.line, {}};
    for (std::size_t column = 0; column < record.cells.size(); ++column) {
      if (!record.cells[column].empty()) {
        row.cells.emplace_back(header.cells[column], record.cells[column]);
      }
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

// One JSON value as cell text; false when it cannot be one.
bool cellText(const NYBDynamicValue& value, std::string& text) {
  if (value.kind() == NYBDynamicValue::Kind::Boolean) {
    text = value.boolValue() ? "true" : "false";
  } else if (value.isString()) {
    text = value.stringView();
  } else if (value.isNumber()) {
    text = compactJSON(value);
  } else if (const nyb::NYBDictionary* point = value.dictionary()) {
    // A data point as the service writes it: {"start", "end", "value"}.
    const auto &start = (*point)["start"], &end = (*point)["end"], &count = (*point)["value"];
    if (!start.isString() || !end.isString() || !count.isNumber()) return false;
    text = std::string(start.stringView()) + "/" + std::string(end.stringView()) + "=" +
           compactJSON(count);
  } else {
    return false;
  }
  return true;
}

ImportTable parseJSONLines(std::string_view content) {
  ImportTable table;
  std::size_t line = 0;
  while (!content.empty()) {
    ++line;
    auto newline = content.find('\n');
    std::string_view text = trimmed(content.substr(0, newline));
    content.remove_prefix(newline == std::string_view::npos ? content.size() : newline + 1);
    if (text.empty()) continue;
    std::shared_ptr<nyb::NYBError> error;
    NYBDynamicValue object = nyb::NYBJSONSerialization::JSONObjectWithData(text, &error);
    const nyb::NYBDictionary* fields = object.dictionary();
    if (fields == nullptr) {
      table.errors.push_back(lineLabel(line) + "not a JSON object" +
                             (error ? " (" + error->localizedDescription() + ")" : ""));
      continue;
    }
    if ((*fields)["record"].isDictionary()) {
      ImportRow row{line, {}, (*fields)["record"]};
      for (const char* key : {"record_type", "image"}) {
        if ((*fields)[key].isString()) row.cells.emplace_back(key, (*fields)[key].stringView());
      }
      table.rows.push_back(std::move(row));
      continue;
    }
    ImportRow row{line, {}};
    bool good = true;
    for (const auto& [key, value] : *fields) {
      if (!good) break;
      std::string name(key.stringView());
      std::vector<NYBDynamicValue> values;
      if (const nyb::NYBArray* array = value.array()) {
        values.assign(array->begin(), array->end());
      } else if (!value.isNull()) {
        values.push_back(value);
      }
      for (const auto& element : values) {
        std::string cell;
        if (!cellText(element, cell)) {
          table.errors.push_back(lineLabel(line) + name +
                                 ": expected text, a number or true/false, not " +
                                 compactJSON(element));
          good = false;
          break;
        } else if (!cell.empty()) {
          row.cells.emplace_back(name, std::move(cell));
        }
      }
    }
    if (good) table.rows.push_back(std::move(row));
  }
  return table;
}

// The record a document describes, checked as a built record is: an edited
// line must not send what the service would store wrongly.
std::shared_ptr<nyb::NYBRecord> recordFromDocument(const RecordTypeSpec& type,
                                                   const NYBDynamicValue& document,
                                                   std::vector<std::string>& errors) {
  std::shared_ptr<nyb::NYBRecord> record;
  try {
    const auto& recordClass = static_cast<const nyb::NYBModelClass&>(
        nyb::NYBRecord::newRecordWithType(type.type)->classObject());
    record = std::dynamic_pointer_cast<nyb::NYBRecord>(recordClass.modelFromJSONObject(document));
  } catch (const nyb::NYBException& failure) {
    errors.push_back("record: not a " + std::string(type.name) + " record (" + failure.reason() +
                     ")");
    return nullptr;
  }
  if (!record) {
    errors.push_back("record: not a " + std::string(type.name) + " record");
    return nullptr;
  }
  std::string why;
  if (record->utcOffset().isString()) {
    parseFieldValue(ValueKind::UtcOffset, record->utcOffset().stringView(), &why);
    if (!why.empty()) errors.push_back("utc_offset: " + why);
  }
  if (auto* intraday = dynamic_cast<nyb::NYBIntraDay*>(record.get())) {
    if (auto problem = intradayRangeProblem(intraday->start().date(), intraday->end().date())) {
      errors.push_back("range: " + *problem);
    }
  }
  return errors.empty() ? record : nullptr;
}

}  // namespace

ImportTable parseImport(std::string_view content, ImportFormat format) {
  if (format == ImportFormat::Detect) {
    auto first = content.find_first_not_of(" \t\r\n");
    format = first != std::string_view::npos && content[first] == '{' ? ImportFormat::JSONLines
                                                                      : ImportFormat::CSV;
  }
  ImportTable table = format == ImportFormat::CSV ? parseCsv(content) : parseJSONLines(content);
  // Every message starts "line N: "; keep them in file order.
  auto lineOf = [](const std::string& message) { return std::stoul(message.substr(5)); };
  std::stable_sort(table.errors.begin(), table.errors.end(),
                   [&](const auto& a, const auto& b) { return lineOf(a) < lineOf(b); });
  return table;
}

std::optional<ImportedRecord> recordFromRow(const ImportRow& row, const RecordTypeSpec* defaultType,
                                            const std::filesystem::path& baseDirectory,
                                            std::vector<std::string>& errors) {
  const std::string where = lineLabel(row.line);
  const RecordTypeSpec* type = defaultType;
  for (const auto& [name, text] : row.cells) {
    if (normalizedName(name) != "recordtype") continue;
    type = findRecordType(text);
    if (type == nullptr) {
      errors.push_back(where + name + ": \"" + text + "\" is not a record type (" +
                       recordTypeNames() + ")");
      return std::nullopt;
    }
  }
  if (type == nullptr) {
    errors.push_back(where + "no record type: give a record_type column or --type");
    return std::nullopt;
  }

  RecordInput input;
  input.type = type;
  input.unitLabel = "unit";
  input.fieldPrefix = "";
  std::optional<std::string> imageName;
  std::size_t errorsBefore = errors.size();
  for (const auto& [name, text] : row.cells) {
    std::string normalized = normalizedName(name);
    if (normalized == "recordtype") continue;
    if (normalized == "unit") {
      input.unit = text;
    } else if (normalized == "image") {
      imageName = text;
    } else if (const FieldSpec* field = type->findField(name)) {
      input.fields.push_back({name, field, text});
    } else {
      errors.push_back(where + "unknown field \"" + name + "\" for a " + std::string(type->name) +
                       " record");
    }
  }
  std::shared_ptr<nyb::NYBRecord> record;
  if (row.document.isPresent()) {
    std::vector<std::string> problems;
    record = recordFromDocument(*type, row.document, problems);
    for (const auto& message : problems) errors.push_back(where + message);
  } else {
    BuildResult built = buildRecord(input);
    for (const auto& message : built.errors) errors.push_back(where + message);
    record = built.record;
  }

  ImportedRecord imported{row.line, record, nullptr};
  if (imageName) {
    std::filesystem::path path(*imageName);
    if (path.is_relative()) path = baseDirectory / path;
    std::string why;
    imported.photo = loadPhoto(path.string(), &why);
    if (!imported.photo) errors.push_back(where + "image: \"" + *imageName + "\"" + why);
  }
  if (errors.size() != errorsBefore) return std::nullopt;
  return imported;
}

}  // namespace nymbrel
