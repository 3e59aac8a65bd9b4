#include "Describe.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDictionary.h>
#include <NymbrelCore/NYBJSONSerialization.h>

#include <string_view>

#include "RecordFields.h"

namespace nymbrel {

using nyb::NYBDynamicValue;

namespace {

// The value at a dotted path of a JSON document ("extras.min_heartrate").
NYBDynamicValue valueAtPath(const nyb::NYBDictionary& document, std::string_view path) {
  const nyb::NYBDictionary* dictionary = &document;
  while (true) {
    auto dot = path.find('.');
    const NYBDynamicValue& value = (*dictionary)[path.substr(0, dot)];
    if (dot == std::string_view::npos) return value;
    dictionary = value.dictionary();
    if (dictionary == nullptr) return {};
    path.remove_prefix(dot + 1);
  }
}

std::string plainText(const NYBDynamicValue& value) {
  if (value.isString()) return std::string(value.stringView());
  if (value.isArray()) {  // the intraday data points
    auto count = value.array()->size();
    return std::to_string(count) + (count == 1 ? " data point" : " data points");
  }
  return compactJSON(value);
}

}  // namespace

std::string recordTypeName(const nyb::NYBRecord& record) {
  for (const auto& type : recordTypes()) {
    if (type.type == record.recordType()) return std::string(type.name);
  }
  return "record";
}

std::string recordLabel(const nyb::NYBRecord& record) {
  std::string label = recordTypeName(record) + " record";
  if (record.activityID().isString()) label += " " + std::string(record.activityID().stringView());
  return label;
}

std::string recordValues(const nyb::NYBRecord& record) {
  const RecordTypeSpec* type = findRecordType(recordTypeName(record));
  if (type == nullptr) return "";
  nyb::NYBDictionary document = record.JSONObject();
  const nyb::NYBDictionary rawData = record.rawData();
  std::string text;
  for (const auto& field : type->fields) {
    if (field.property == "timestamp") break;  // the common fields follow
    NYBDynamicValue value = valueAtPath(document, field.jsonKey);
    if (value.isAbsent() || value.isNull() || (value.isString() && value.stringView().empty())) {
      continue;
    }
    if (!text.empty()) text += ", ";
    text += field.kind == ValueKind::DataPoint ? plainText(value)
                                               : std::string(field.name) + " " + plainText(value);
    if (field.unit == UnitFamily::None) continue;
    text += " " + std::string(standardUnitText(field.unit));
    // The entered value is kept under the property name or the JSON key.
    for (std::string_view key : {field.property, field.jsonKey}) {
      const nyb::NYBDictionary* raw = rawData[key].dictionary();
      if (raw != nullptr && (*raw)["value"].isString() && (*raw)["unit"].isString()) {
        text += " (entered " + std::string((*raw)["value"].stringView()) + " " +
                std::string((*raw)["unit"].stringView()) + ")";
        break;
      }
    }
  }
  return text;
}

std::string errorText(const nyb::NYBError& error) {
  std::string text = error.localizedDescription();
  if (error.domain() == nyb::kNYBHTTPErrorDomain) {
    std::string status = std::to_string(error.code());
    return text.starts_with(status) ? "HTTP " + text : "HTTP " + status + " " + text;
  }
  return text + " (" + error.domain() + " " + std::to_string(error.code()) + ")";
}

std::string compactJSON(const NYBDynamicValue& value) {
  if (value.isDictionary() || value.isArray()) {
    return nyb::NYBJSONSerialization::dataWithJSONObject(value).value_or("null");
  }
  // A scalar: written inside an array, then unwrapped.
  auto text = nyb::NYBJSONSerialization::dataWithJSONObject(nyb::NYBArray{value});
  if (!text || text->size() < 2) return "null";
  return text->substr(1, text->size() - 2);
}

namespace {

void writePretty(const NYBDynamicValue& value, int depth, std::string& out) {
  std::string indent(static_cast<std::size_t>(depth + 1) * 2, ' ');
  std::string closing(static_cast<std::size_t>(depth) * 2, ' ');
  if (const nyb::NYBDictionary* dictionary = value.dictionary();
      dictionary && !dictionary->empty()) {
    out += "{\n";
    bool first = true;
    for (const auto& [key, entry] : *dictionary) {
      if (entry.isAbsent()) continue;
      out += first ? "" : ",\n";
      first = false;
      out += indent + compactJSON(key) + ": ";
      writePretty(entry, depth + 1, out);
    }
    out += "\n" + closing + "}";
  } else if (const nyb::NYBArray* array = value.array(); array && !array->empty()) {
    out += "[\n";
    for (std::size_t i = 0; i < array->size(); ++i) {
      out += i == 0 ? "" : ",\n";
      out += indent;
      writePretty((*array)[i], depth + 1, out);
    }
    out += "\n" + closing + "]";
  } else {
    out += compactJSON(value);
  }
}

}  // namespace

std::string prettyJSON(const NYBDynamicValue& value) {
  std::string out;
  writePretty(value, 0, out);
  return out;
}

}  // namespace nymbrel
