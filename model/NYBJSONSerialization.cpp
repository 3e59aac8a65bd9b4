// Reading: RapidJSON's SAX reader, in situ over a copy of the text, feeds a
// builder that keeps the values of all open containers on one flat stack;
// closing a container moves its values into a container of exactly the right
// size. Strings are checked for UTF-8 here, faster than the reader would.
// Numbers come as text and are converted with std::from_chars (correctly
// rounded): integers that fit become integer or unsigned values, "-0" and all
// others reals; a real too small for a double reads as zero, one too large is
// an error. Of a key given twice in one object, the last value wins.
//
// Writing: a walk over the value that drives RapidJSON's writer. Reals are
// written in their shortest round-trip form (std::to_chars), which writes an
// integral real such as 70.0 as "70"; from 2^53 up an integral real keeps an
// exponent ("9.223372036854776e+18") so that it reads back as the same real.
// Decimals are written in their canonical text; strings are escaped here.
//
// Both directions keep their working buffers in thread-local objects, so a call
// on a warm thread allocates only for the values or the text it returns.

#include "NymbrelCore/NYBJSONSerialization.h"

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDecimal.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBObject.h"

namespace nyb {
namespace {

// Containers nested deeper than this are refused in both directions, so that
// everything written can be read back and nothing recurses without bound.
constexpr std::size_t kMaxDepth = 512;

// Above this size the text is checked for absurdly long digit runs before
// parsing: the reader's exponent arithmetic is only safe for numbers with fewer
// digits than this (about 2^28 would overflow an int).
constexpr std::size_t kLongTextSize = std::size_t{1} << 26;

// Reusable buffers are dropped rather than kept when a call grew them past this.
constexpr std::size_t kRetainedBytes = std::size_t{1} << 20;

std::shared_ptr<NYBError> makeError(std::int64_t code, std::string text) {
  return NYBError::errorWithDescription(std::string(kNYBCocoaErrorDomain), code, std::move(text));
}

// ---------------------------------------------------------------------------
// Text

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidMultibyteUTF8(std::string_view text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  while (p != end) {
    // Eight ASCII bytes at a time.
    while (end - p >= 8) {
      std::uint64_t chunk;
      std::memcpy(&chunk, p, 8);
      if (chunk & 0x8080808080808080u) break;
      p += 8;
    }
    if (p == end) break;
    const unsigned char c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    std::ptrdiff_t length;
    unsigned char low = 0x80, high = 0xBF;  // bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0) low = 0xA0;   // no overlong forms
      if (c == 0xED) high = 0x9F;  // no surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    } else {
      return false;
    }
    if (end - p < length || p[1] < low || p[1] > high) return false;
    for (std::ptrdiff_t i = 2; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
    }
    p += length;
  }
  return true;
}

bool isASCII(std::string_view text) {
  std::uint64_t bits = 0;
  std::size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    std::uint64_t chunk;
    std::memcpy(&chunk, text.data() + i, 8);
    bits |= chunk;
  }
  for (; i < text.size(); ++i) bits |= static_cast<unsigned char>(text[i]);
  return (bits & 0x8080808080808080u) == 0;
}

bool isValidUTF8(std::string_view text) { return isASCII(text) || isValidMultibyteUTF8(text); }

// ---------------------------------------------------------------------------
// Numbers

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Whether a number that from_chars found out of range is tiny (it reads as
// zero) rather than huge. The text is a valid JSON number.
bool isUnderflow(std::string_view text) {
  std::size_t i = text.empty() || text[0] != '-' ? 0 : 1;
  // The decimal exponent of the leading non-zero digit.
  std::int64_t magnitude = 0;
  bool found = false;
  std::int64_t integerDigits = 0;
  for (; i < text.size() && isDigit(text[i]); ++i) {
    if (!found && text[i] != '0') found = true;
    if (found) ++integerDigits;
  }
  if (found) {
    magnitude = integerDigits - 1;
  } else if (i < text.size() && text[i] == '.') {
    std::int64_t position = 0;
    for (++i; i < text.size() && isDigit(text[i]); ++i) {
      --position;
      if (text[i] != '0') {
        found = true;
        break;
      }
    }
    magnitude = position;
  }
  while (i < text.size() && text[i] != 'e' && text[i] != 'E') ++i;
  std::int64_t exponent = 0;
  if (i < text.size()) {
    ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
    for (; i < text.size() && isDigit(text[i]); ++i) {
      exponent = std::min<std::int64_t>(exponent * 10 + (text[i] - '0'), 1'000'000'000);
    }
    if (negative) exponent = -exponent;
  }
  return magnitude + exponent < 0;
}

// Converts the text of a JSON number: integers that fit become integer or
// unsigned values, everything else a real. False when the number is too large
// for a real.
bool convertNumber(std::string_view text, NYBDynamicValue& out) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  const bool negative = !text.empty() && text[0] == '-';
  if (text.find_first_of(".eE") == std::string_view::npos) {
    std::int64_t integer = 0;
    auto [ptr, ec] = std::from_chars(begin, end, integer);
    if (ec == std::errc() && ptr == end) {
      // "-0" keeps its sign, as a real.
      out = (integer == 0 && negative) ? NYBDynamicValue(-0.0) : NYBDynamicValue(integer);
      return true;
    }
    if (!negative) {
      std::uint64_t unsignedInteger = 0;
      auto [uptr, uec] = std::from_chars(begin, end, unsignedInteger);
      if (uec == std::errc() && uptr == end) {
        out = NYBDynamicValue(unsignedInteger);
        return true;
      }
    }
  }
  double real = 0;
  auto [ptr, ec] = std::from_chars(begin, end, real);
  if (ec == std::errc() && ptr == end) {
    out = NYBDynamicValue(real);
    return true;
  }
  if (ec == std::errc::result_out_of_range && isUnderflow(text)) {
    out = NYBDynamicValue(negative ? -0.0 : 0.0);
    return true;
  }
  return false;
}

// Whether the text holds a run of digits so long that the reader's exponent
// arithmetic could overflow.
bool hasHugeDigitRun(std::string_view bytes) {
  std::size_t run = 0;
  for (char c : bytes) {
    if (isDigit(c)) {
      if (++run >= kLongTextSize) return true;
    } else if (c != '.') {
      run = 0;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------
// Reading

// Why the builder stopped the reader.
enum class Refusal : std::uint8_t {
  None,
  TopLevelScalar,
  TooDeep,
  NumberOutOfRange,
  InvalidString
};

class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
 public:
  void reset() {
    stack_.clear();
    depth_ = 0;
    refusal_ = Refusal::None;
    root_ = NYBDynamicValue();
  }
  // Drops buffers that one large document grew.
  void trim() {
    if (stack_.capacity() * sizeof(NYBDynamicValue) > kRetainedBytes) {
      std::vector<NYBDynamicValue>().swap(stack_);
    }
    if (keys_.capacity() * sizeof(keys_[0]) > kRetainedBytes) {
      decltype(keys_)().swap(keys_);
    }
  }

  Refusal refusal() const { return refusal_; }
  NYBDynamicValue takeRoot() { return std::move(root_); }

  bool Null() { return push(NYBDynamicValue::null()); }
  bool Bool(bool flag) { return push(NYBDynamicValue(flag)); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == 0) return refuse(Refusal::TopLevelScalar);
    NYBDynamicValue number;
    if (!convertNumber(std::string_view(text, length), number)) {
      return refuse(Refusal::NumberOutOfRange);
    }
    stack_.push_back(std::move(number));
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == 0) return refuse(Refusal::TopLevelScalar);
    // Checked here rather than by the reader, which is several times slower;
    // this also catches escapes of lone surrogates, which the reader decodes
    // into bytes that are not UTF-8.
    std::string_view view(text, length);
    if (!isValidUTF8(view)) return refuse(Refusal::InvalidString);
    stack_.emplace_back(view);
    return true;
  }
  bool Key(const char* text, rapidjson::SizeType length, bool copy) {
    return String(text, length, copy);
  }
  bool StartObject() { return open(); }
  bool StartArray() { return open(); }
  bool EndObject(rapidjson::SizeType memberCount) {
    const std::size_t start = stack_.size() - 2 * std::size_t{memberCount};
    if (hasDuplicateKeys(start)) dropDuplicateKeys(start);
    auto dictionary = std::make_shared<NYBDictionary>();
    dictionary->reserve(memberCount);
    for (std::size_t i = start; i < stack_.size(); i += 2) {
      if (stack_[i].isPresent()) dictionary->append(std::move(stack_[i]), std::move(stack_[i + 1]));
    }
    stack_.resize(start);
    return close(std::shared_ptr<const NYBDictionary>(std::move(dictionary)));
  }
  bool EndArray(rapidjson::SizeType elementCount) {
    const std::size_t start = stack_.size() - elementCount;
    std::vector<NYBDynamicValue> elements;
    elements.reserve(elementCount);
    std::move(stack_.begin() + static_cast<std::ptrdiff_t>(start), stack_.end(),
              std::back_inserter(elements));
    stack_.resize(start);
    return close(std::shared_ptr<const NYBArray>(std::make_shared<NYBArray>(std::move(elements))));
  }

 private:
  bool refuse(Refusal refusal) {
    refusal_ = refusal;
    return false;
  }
  bool push(NYBDynamicValue&& value) {
    if (depth_ == 0) return refuse(Refusal::TopLevelScalar);
    stack_.push_back(std::move(value));
    return true;
  }
  bool open() {
    if (depth_ == kMaxDepth) return refuse(Refusal::TooDeep);
    ++depth_;
    return true;
  }
  bool close(NYBDynamicValue&& container) {
    if (--depth_ == 0) {
      root_ = std::move(container);
    } else {
      stack_.push_back(std::move(container));
    }
    return true;
  }

  // Equality that rules out most different keys without calling memcmp.
  static bool sameKey(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           (a.empty() || (a.front() == b.front() && a.back() == b.back() && a == b));
  }

  bool hasDuplicateKeys(std::size_t start) {
    constexpr std::size_t kFewKeys = 16;
    const std::size_t count = (stack_.size() - start) / 2;
    if (count <= kFewKeys) {
      std::array<std::string_view, kFewKeys> keys;
      for (std::size_t i = 0; i < count; ++i) keys[i] = stack_[start + 2 * i].stringView();
      for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = i + 1; j < count; ++j) {
          if (sameKey(keys[i], keys[j])) return true;
        }
      }
      return false;
    }
    sortKeys(start);
    return std::adjacent_find(keys_.begin(), keys_.end(), [](const auto& a, const auto& b) {
             return a.first == b.first;
           }) != keys_.end();
  }

  // A key given more than once keeps the place of its first entry and the value
  // of its last; the other entries' keys become absent.
  void dropDuplicateKeys(std::size_t start) {
    sortKeys(start);
    for (auto group = keys_.begin(); group != keys_.end();) {
      auto next = std::find_if(group, keys_.end(),
                               [&](const auto& entry) { return entry.first != group->first; });
      const std::size_t first = group->second;
      const std::size_t last = std::prev(next)->second;
      if (first != last) {
        stack_[first + 1] = std::move(stack_[last + 1]);
        for (auto entry = std::next(group); entry != next; ++entry) {
          stack_[entry->second] = NYBDynamicValue();
        }
      }
      group = next;
    }
  }

  // The object's keys with their places on the stack, sorted by key and then place.
  void sortKeys(std::size_t start) {
    keys_.clear();
    for (std::size_t i = start; i < stack_.size(); i += 2) {
      keys_.emplace_back(stack_[i].stringView(), i);
    }
    std::sort(keys_.begin(), keys_.end());
  }

  // The values of all open containers; an object's entries as key, value, ...
  std::vector<NYBDynamicValue> stack_;
  std::vector<std::pair<std::string_view, std::size_t>> keys_;
  std::size_t depth_ = 0;
  Refusal refusal_ = Refusal::None;
  NYBDynamicValue root_;
};

struct ReaderState {
  // A copy of the text that the reader decodes strings in, so that they need
  // not be copied character by character to a buffer of their own.
  std::string text;
  rapidjson::Reader reader;
  Builder builder;
  bool busy = false;
};

constexpr unsigned kReadFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;

std::string invalidText(std::size_t offset, rapidjson::ParseErrorCode code) {
  return fmt::format("The JSON text is not valid at offset {}: {}", offset,
                     rapidjson::GetParseError_En(code));
}

// A string that is not UTF-8 stops the builder only once the reader has passed
// it; a second reading with the reader's own check finds the offending byte.
std::string invalidStringFailure(std::string_view bytes, std::size_t stringEnd) {
  rapidjson::Reader reader;
  rapidjson::BaseReaderHandler<> ignore;
  rapidjson::MemoryStream stream(bytes.data(), bytes.size());
  const rapidjson::ParseResult result =
      reader.Parse<kReadFlags | rapidjson::kParseValidateEncodingFlag>(stream, ignore);
  if (result.Code() == rapidjson::kParseErrorStringInvalidEncoding) {
    return invalidText(result.Offset(), result.Code());
  }
  return fmt::format(
      "The JSON text is not valid at offset {}: a string escapes half of a surrogate pair.",
      stringEnd);
}

std::string readFailure(std::string_view bytes, const rapidjson::ParseResult& result,
                        Refusal refusal) {
  const std::size_t offset = result.Offset();
  if (result.Code() == rapidjson::kParseErrorTermination) {
    switch (refusal) {
      case Refusal::TopLevelScalar:
        return "The JSON text's top level must be an array or an object.";
      case Refusal::TooDeep:
        return fmt::format(
            "The JSON text is nested too deeply at offset {}: more than {} levels of arrays "
            "and objects.",
            offset, kMaxDepth);
      case Refusal::NumberOutOfRange:
        return fmt::format("A number in the JSON text is out of range at offset {}.", offset);
      case Refusal::InvalidString:
        return invalidStringFailure(bytes, offset);
      case Refusal::None:
        break;
    }
  }
  if (result.Code() == rapidjson::kParseErrorNumberTooBig) {
    return fmt::format("A number in the JSON text is out of range at offset {}.", offset);
  }
  return invalidText(offset, result.Code());
}

NYBDynamicValue read(ReaderState& state, std::string_view bytes, std::shared_ptr<NYBError>* error) {
  auto fail = [&](std::string text) {
    if (error) *error = makeError(kNYBPropertyListReadCorruptError, std::move(text));
    return NYBDynamicValue();
  };
  if (bytes.size() > std::numeric_limits<rapidjson::SizeType>::max()) {
    return fail("The JSON text is too large to read.");
  }
  if (bytes.size() > kLongTextSize && hasHugeDigitRun(bytes)) {
    return fail("The JSON text holds a number too long to read.");
  }

  Builder& builder = state.builder;
  builder.reset();
  state.text.assign(bytes);
  rapidjson::InsituStringStream stream(state.text.data());
  const rapidjson::ParseResult result =
      state.reader.Parse<kReadFlags | rapidjson::kParseInsituFlag>(stream, builder);
  NYBDynamicValue root = builder.takeRoot();
  const Refusal refusal = builder.refusal();
  builder.reset();
  builder.trim();
  if (result.IsError()) return fail(readFailure(bytes, result, refusal));
  // The reader takes a NUL byte for the end of the text: whatever follows one
  // is garbage.
  if (stream.Tell() != bytes.size()) {
    return fail(invalidText(stream.Tell(), rapidjson::kParseErrorDocumentRootNotSingular));
  }
  return root;
}

// ---------------------------------------------------------------------------
// Writing

// Whether the text is all printable ASCII other than the quotation mark and
// the reverse solidus, the common case that is written as it is. Eight bytes
// at a time: a byte is flagged by the high bit of its lane.
bool isPlainText(std::string_view text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101u;
  constexpr std::uint64_t kHigh = 0x8080808080808080u;
  auto hasZeroByte = [](std::uint64_t x) { return (x - kOnes) & ~x & kHigh; };
  const char* p = text.data();
  std::size_t left = text.size();
  for (; left >= 8; p += 8, left -= 8) {
    std::uint64_t chunk;
    std::memcpy(&chunk, p, 8);
    // Bytes of 0x80 and above, below 0x20, '"' and '\\'.
    if ((chunk | ((chunk - kOnes * 0x20) & ~chunk) | hasZeroByte(chunk ^ (kOnes * '"')) |
         hasZeroByte(chunk ^ (kOnes * '\\'))) &
        kHigh) {
      return false;
    }
  }
  for (; left > 0; ++p, --left) {
    const auto c = static_cast<unsigned char>(*p);
    if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') return false;
  }
  return true;
}

// RFC 8259 escapes: quotation mark, reverse solidus and the control characters.
struct Escape {
  char letter = 0;
  std::uint8_t extra = 0;  // bytes written beyond the character's own one
};
constexpr std::array<Escape, 256> kEscapes = [] {
  std::array<Escape, 256> escapes{};
  for (int c = 0; c < 0x20; ++c) escapes[c] = {'u', 5};
  for (auto [c, letter] : {std::pair{'\b', 'b'},
                           {'\f', 'f'},
                           {'\n', 'n'},
                           {'\r', 'r'},
                           {'\t', 't'},
                           {'"', '"'},
                           {'\\', '\\'}}) {
    escapes[static_cast<unsigned char>(c)] = {letter, 1};
  }
  return escapes;
}();

// RapidJSON's writer with a faster way to write strings: it copies the runs
// that need no escape whole rather than byte by byte.
class Writer : public rapidjson::Writer<rapidjson::StringBuffer> {
 public:
  using rapidjson::Writer<rapidjson::StringBuffer>::Writer;

  // Writes a string or, where a key is due, a key. The text is valid UTF-8;
  // plain when it is printable ASCII that needs no escape (isPlainText).
  void EscapedString(std::string_view text, bool plain) {
    Prefix(rapidjson::kStringType);
    std::size_t extra = 0;
    if (!plain) {
      for (char c : text) extra += kEscapes[static_cast<unsigned char>(c)].extra;
    }
    char* out = os_->Push(text.size() + extra + 2);
    *out++ = '"';
    if (extra == 0) {
      std::memcpy(out, text.data(), text.size());
      out += text.size();
    } else {
      for (char c : text) {
        const Escape& escape = kEscapes[static_cast<unsigned char>(c)];
        if (escape.extra == 0) {
          *out++ = c;
          continue;
        }
        *out++ = '\\';
        *out++ = escape.letter;
        if (escape.letter == 'u') {
          constexpr char kHex[] = "0123456789ABCDEF";
          *out++ = '0';
          *out++ = '0';
          *out++ = kHex[static_cast<unsigned char>(c) >> 4];
          *out++ = kHex[static_cast<unsigned char>(c) & 0xF];
        }
      }
    }
    *out = '"';
    EndValue(true);
  }
};

// Walks a value, writing it when given a writer and only checking it when not.
// On failure the reason is in failure().
class Emitter {
 public:
  explicit Emitter(Writer* writer) : writer_(writer) {}

  bool emitRoot(const NYBDynamicValue& value) {
    if (!value.isDictionary() && !value.isArray()) {
      return fail("Invalid top-level type in JSON write.");
    }
    return emit(value, 0);
  }
  std::string& failure() { return failure_; }

 private:
  bool fail(std::string text) {
    failure_ = std::move(text);
    return false;
  }
  bool invalidType(std::string_view typeName) {
    return fail(fmt::format("Invalid type in JSON write ({}).", typeName));
  }

  bool emitString(std::string_view text) {
    const bool plain = isPlainText(text);
    if (!plain && !isValidUTF8(text)) {
      return fail("Invalid string in JSON write (not valid UTF-8).");
    }
    if (writer_) writer_->EscapedString(text, plain);
    return true;
  }

  bool emitReal(double real) {
    if (std::isnan(real)) return fail("Invalid number value (NaN) in JSON write.");
    if (std::isinf(real)) return fail("Invalid number value (infinite) in JSON write.");
    if (!writer_) return true;
    char text[32];
    auto result = std::to_chars(std::begin(text), std::end(text), real);
    // Shortest form writes 2^63 as "9223372036854776000", which would read back
    // as a different (integer) number; from 2^53 up integral reals keep an
    // exponent so that they read back as the same real.
    if (std::fabs(real) >= 9007199254740992.0 &&
        std::memchr(text, 'e', static_cast<std::size_t>(result.ptr - text)) == nullptr) {
      result = std::to_chars(std::begin(text), std::end(text), real, std::chars_format::scientific);
    }
    writer_->RawValue(text, static_cast<std::size_t>(result.ptr - text), rapidjson::kNumberType);
    return true;
  }

  bool emit(const NYBDynamicValue& value, std::size_t depth) {
    using Kind = NYBDynamicValue::Kind;
    switch (value.kind()) {
      case Kind::Absent:
        return true;
      case Kind::Null:
        if (writer_) writer_->Null();
        return true;
      case Kind::String:
        return emitString(value.stringView());
      case Kind::Integer:
        if (writer_) writer_->Int64(value.integerValue());
        return true;
      case Kind::Unsigned:
        if (writer_) writer_->Uint64(value.unsignedValue());
        return true;
      case Kind::Real:
        return emitReal(value.doubleValue());
      case Kind::Boolean:
        if (writer_) writer_->Bool(value.boolValue());
        return true;
      case Kind::Decimal: {
        const NYBDecimal& decimal = *value.decimal();
        if (decimal.isNaN()) return fail("Invalid number value (NaN) in JSON write.");
        const std::string text = decimal.stringValue();
        // Only magnitudes from 1e50 up have an exponent; beyond the range of a
        // real the text would not read back.
        if (text.find("e+") != std::string::npos && std::isinf(decimal.doubleValue())) {
          return fail("Invalid number value (out of range) in JSON write.");
        }
        if (writer_) writer_->RawValue(text.data(), text.size(), rapidjson::kNumberType);
        return true;
      }
      case Kind::Dictionary: {
        if (depth == kMaxDepth) return tooDeep();
        if (writer_) writer_->StartObject();
        for (const auto& [key, member] : *value.dictionary()) {
          if (member.isAbsent()) continue;
          if (!key.isString()) return fail("Invalid (non-string) key in JSON dictionary.");
          if (!emitString(key.stringView()) || !emit(member, depth + 1)) return false;
        }
        if (writer_) writer_->EndObject();
        return true;
      }
      case Kind::Array: {
        if (depth == kMaxDepth) return tooDeep();
        if (writer_) writer_->StartArray();
        for (const NYBDynamicValue& element : *value.array()) {
          if (!emit(element, depth + 1)) return false;
        }
        if (writer_) writer_->EndArray();
        return true;
      }
      case Kind::Date:
        return invalidType("NYBDate");
      case Kind::Data:
        return invalidType("NYBData");
      case Kind::URL:
        return invalidType("NYBURL");
      case Kind::Object: {
        const auto& object = value.object();
        return invalidType(object ? std::string_view(object->className()) : "NYBObject");
      }
    }
    return invalidType("unknown");
  }

  bool tooDeep() {
    return fail(fmt::format("Invalid JSON write: arrays and dictionaries nested more than {} deep.",
                            kMaxDepth));
  }

  Writer* writer_;
  std::string failure_;
};

struct WriterState {
  rapidjson::StringBuffer buffer;
  Writer writer{buffer};
  bool busy = false;
};

// Marks thread-local state as in use for one call; a nested call on the same
// thread (none is expected) gets fresh state instead of corrupting it.
template <typename State>
class Lease {
 public:
  explicit Lease(State& shared) : state_(shared.busy ? fresh_.emplace() : shared) {
    state_.busy = true;
  }
  ~Lease() { state_.busy = false; }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  State& operator*() { return state_; }

 private:
  std::optional<State> fresh_;
  State& state_;
};

std::optional<std::string> write(WriterState& state, const NYBDynamicValue& value,
                                 std::shared_ptr<NYBError>* error) {
  state.buffer.Clear();
  state.writer.Reset(state.buffer);
  Emitter emitter(&state.writer);
  const bool ok = emitter.emitRoot(value);
  std::optional<std::string> text;
  if (ok) text.emplace(state.buffer.GetString(), state.buffer.GetSize());
  const bool grewLarge = state.buffer.GetSize() > kRetainedBytes;
  state.buffer.Clear();
  if (grewLarge) state.buffer.ShrinkToFit();
  if (!ok && error) {
    *error = makeError(kNYBPropertyListWriteInvalidError, std::move(emitter.failure()));
  }
  return text;
}

}  // namespace

NYBDynamicValue NYBJSONSerialization::JSONObjectWithData(std::string_view bytes,
                                                         std::shared_ptr<NYBError>* error) {
  // A large text would leave the reader's buffers large: read it with state of
  // its own.
  if (bytes.size() > kRetainedBytes) {
    ReaderState own;
    return read(own, bytes, error);
  }
  thread_local ReaderState shared;
  Lease<ReaderState> state(shared);
  return read(*state, bytes, error);
}

std::optional<std::string> NYBJSONSerialization::dataWithJSONObject(
    const NYBDynamicValue& value, std::shared_ptr<NYBError>* error) {
  thread_local WriterState shared;
  Lease<WriterState> state(shared);
  return write(*state, value, error);
}

bool NYBJSONSerialization::isValidJSONObject(const NYBDynamicValue& value) {
  Emitter checker(nullptr);
  return checker.emitRoot(value);
}

}  // namespace nyb
