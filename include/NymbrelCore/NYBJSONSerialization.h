// NYBJSONSerialization: reading and writing JSON documents as dynamic values.
//
// Reading gives dictionaries (keys in document order), arrays, strings,
// numbers (integers as integer or unsigned, others as real), booleans and the
// null marker; the top level must be an array or an object. Writing is
// compact, escapes as RFC 8259 requires, writes integers as integers and reals
// in their shortest round-trip form, and never writes absent values. Failures
// are NYBError values with a clear description; no input makes either
// direction crash. Stateless: any thread may call it.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBError.h"

namespace nyb {

// The platform's domain and codes for serialisation failures.
inline constexpr std::string_view kNYBCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::int64_t kNYBPropertyListReadCorruptError = 3840;
inline constexpr std::int64_t kNYBPropertyListWriteInvalidError = 3852;

class NYB_EXPORT NYBJSONSerialization {
 public:
  // The document's top-level array or dictionary; absent, with *error set
  // when error is given, for text that is malformed or truncated, whose top
  // level is not an array or object, or that holds a number out of range.
  [[nodiscard]] static NYBDynamicValue JSONObjectWithData(
      std::string_view bytes, std::shared_ptr<NYBError>* error = nullptr);
  // Compact JSON text; absent, with *error set, for a value that JSON cannot
  // hold (a date, data, URL, object, non-string key, NaN or infinite real, a
  // top level that is not an array or dictionary).
  [[nodiscard]] static std::optional<std::string> dataWithJSONObject(
      const NYBDynamicValue& value, std::shared_ptr<NYBError>* error = nullptr);
  // Whether dataWithJSONObject would succeed.
  static bool isValidJSONObject(const NYBDynamicValue& value);
};

}  // namespace nyb
