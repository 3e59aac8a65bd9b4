// JSON helpers of the devserver.
//
// Contract: parseJson reads one whole document with full-precision numbers and reports
// what is wrong with text that is not JSON. toJson writes compact RFC 8259 JSON with
// integers as integers and reals in their shortest round-trip form, so a number that
// a client sends comes back with the same value. errorsBody builds the "errors" answer
// that every failure of the REST interface carries.
#pragma once

#include <rapidjson/document.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nyb::devserver {

// Parses `text` into `out`; on failure returns false and describes the fault in `error`.
bool parseJson(std::string_view text, rapidjson::Document& out, std::string& error);

// Compact JSON text of a value.
std::string toJson(const rapidjson::Value& value);

// `text` as a quoted JSON string literal.
std::string jsonString(std::string_view text);

// One entry of an "errors" array: the shape of the service's plain answer object.
struct ErrorEntry {
  int code = 0;
  std::string message;
  std::optional<std::string> activityID;
};

// {"errors": [{"code": .., "message": .., "activity_id": ..}, ...]}
std::string errorsBody(const std::vector<ErrorEntry>& errors);
std::string errorsBody(int code, std::string_view message);

// The member `key` of an object, or null when it is absent or `object` is no object. (Comparing
// RapidJSON's mutable member iterators is ambiguous in C++20, so code looks members up here.)
const rapidjson::Value* member(const rapidjson::Value& object, const char* key);
rapidjson::Value* member(rapidjson::Value& object, const char* key);

// The string member `key` of an object, or nullopt when it is absent or not a string.
std::optional<std::string_view> stringMember(const rapidjson::Value& object, const char* key);

}  // namespace nyb::devserver
