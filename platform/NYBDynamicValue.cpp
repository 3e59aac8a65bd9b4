#include "NymbrelCore/NYBDynamicValue.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBURL.h"
#include "platform/Hashing.h"

namespace nyb {

namespace {

const std::shared_ptr<NYBObject>& noObject() {
  static const std::shared_ptr<NYBObject> none;
  return none;
}

// A number reduced to a form in which equal values compare equal: integral
// values that fit in int64 as int64, larger unsigned values as uint64, the rest
// as double.
struct CanonicalNumber {
  enum class Form { Signed, Unsigned, Real } form;
  std::int64_t i = 0;
  std::uint64_t u = 0;
  double d = 0;
};

CanonicalNumber canonical(std::int64_t i) { return {CanonicalNumber::Form::Signed, i, 0, 0}; }

CanonicalNumber canonical(std::uint64_t u) {
  if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return canonical(static_cast<std::int64_t>(u));
  }
  return {CanonicalNumber::Form::Unsigned, 0, u, 0};
}

CanonicalNumber canonical(double d) {
  constexpr double kTwo63 = 9223372036854775808.0;
  constexpr double kTwo64 = 18446744073709551616.0;
  if (std::isfinite(d) && d == std::trunc(d)) {
    if (d >= -kTwo63 && d < kTwo63) return canonical(static_cast<std::int64_t>(d));
    if (d >= 0 && d < kTwo64) return canonical(static_cast<std::uint64_t>(d));
  }
  return {CanonicalNumber::Form::Real, 0, 0, d};
}

bool operator==(const CanonicalNumber& a, const CanonicalNumber& b) {
  if (a.form != b.form) return false;
  switch (a.form) {
    case CanonicalNumber::Form::Signed:
      return a.i == b.i;
    case CanonicalNumber::Form::Unsigned:
      return a.u == b.u;
    case CanonicalNumber::Form::Real:
      return a.d == b.d;
  }
  return false;
}

std::string realText(double value) {
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

}  // namespace

NYBDynamicValue NYBDynamicValue::null() {
  NYBDynamicValue value;
  value.storage_.emplace<kNullIndex>();
  return value;
}

void NYBDynamicValue::assignString(std::string_view text) {
  if (text.size() < sizeof(SmallString::bytes)) {
    SmallString& small = storage_.emplace<kSmallStringIndex>();
    small.size = static_cast<std::uint8_t>(text.size());
    std::memcpy(small.bytes, text.data(), text.size());
  } else {
    storage_.emplace<kLongStringIndex>(std::make_shared<const std::string>(text));
  }
}

NYBDynamicValue::NYBDynamicValue(std::string_view text) { assignString(text); }
NYBDynamicValue::NYBDynamicValue(const char* text) { assignString(text); }
NYBDynamicValue::NYBDynamicValue(const std::string& text) { assignString(text); }
NYBDynamicValue::NYBDynamicValue(std::string&& text) {
  if (text.size() < sizeof(SmallString::bytes)) {
    assignString(text);
  } else {
    storage_.emplace<kLongStringIndex>(std::make_shared<const std::string>(std::move(text)));
  }
}
NYBDynamicValue::NYBDynamicValue(NYBDecimal decimal) : storage_(std::move(decimal)) {}
NYBDynamicValue::NYBDynamicValue(NYBDate date) : storage_(date) {}
NYBDynamicValue::NYBDynamicValue(NYBDictionary dictionary)
    : storage_(std::make_shared<const NYBDictionary>(std::move(dictionary))) {}
// Made mutable, held as const: uniqueArray() may change it while it is unshared.
NYBDynamicValue::NYBDynamicValue(NYBArray array)
    : storage_(std::shared_ptr<const NYBArray>(std::make_shared<NYBArray>(std::move(array)))) {}
NYBDynamicValue::NYBDynamicValue(NYBData data)
    : storage_(std::make_shared<const NYBData>(std::move(data))) {}
NYBDynamicValue::NYBDynamicValue(NYBURL url)
    : storage_(std::make_shared<const NYBURL>(std::move(url))) {}
NYBDynamicValue::NYBDynamicValue(std::shared_ptr<const NYBDictionary> dictionary) {
  if (dictionary) storage_ = std::move(dictionary);
}
NYBDynamicValue::NYBDynamicValue(std::shared_ptr<const NYBArray> array) {
  if (array) storage_ = std::move(array);
}
NYBDynamicValue::NYBDynamicValue(std::shared_ptr<NYBObject> object) {
  if (object) storage_ = std::move(object);
}

NYBDynamicValue::Kind NYBDynamicValue::kind() const {
  static constexpr Kind kKinds[] = {
      Kind::Absent,     Kind::Null,  Kind::String,  Kind::String,  Kind::Integer,
      Kind::Unsigned,   Kind::Real,  Kind::Boolean, Kind::Decimal, Kind::Date,
      Kind::Dictionary, Kind::Array, Kind::Data,    Kind::URL,     Kind::Object,
  };
  static_assert(std::size(kKinds) == std::variant_size_v<Storage>);
  return kKinds[storage_.index()];
}

bool NYBDynamicValue::isNumber() const {
  switch (kind()) {
    case Kind::Integer:
    case Kind::Unsigned:
    case Kind::Real:
    case Kind::Boolean:
      return true;
    default:
      return false;
  }
}

std::string_view NYBDynamicValue::stringView() const {
  if (const auto* small = std::get_if<kSmallStringIndex>(&storage_)) {
    return {small->bytes, small->size};
  }
  if (const auto* shared = std::get_if<kLongStringIndex>(&storage_)) {
    return **shared;
  }
  return {};
}

std::optional<std::string> NYBDynamicValue::string() const {
  if (!isString()) return std::nullopt;
  return std::string(stringView());
}

double NYBDynamicValue::doubleValue() const {
  switch (storage_.index()) {
    case kIntegerIndex:
      return static_cast<double>(std::get<kIntegerIndex>(storage_));
    case kUnsignedIndex:
      return static_cast<double>(std::get<kUnsignedIndex>(storage_));
    case kRealIndex:
      return std::get<kRealIndex>(storage_);
    case kBooleanIndex:
      return std::get<kBooleanIndex>(storage_) ? 1.0 : 0.0;
    default:
      if (const NYBDecimal* d = decimal()) return d->doubleValue();
      return 0;
  }
}

std::int64_t NYBDynamicValue::integerValue() const {
  switch (storage_.index()) {
    case kIntegerIndex:
      return std::get<kIntegerIndex>(storage_);
    case kUnsignedIndex:
      return static_cast<std::int64_t>(std::get<kUnsignedIndex>(storage_));
    case kBooleanIndex:
      return std::get<kBooleanIndex>(storage_) ? 1 : 0;
    default: {
      double d = doubleValue();
      if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return 0;
      return static_cast<std::int64_t>(d);
    }
  }
}

std::uint64_t NYBDynamicValue::unsignedValue() const {
  switch (storage_.index()) {
    case kIntegerIndex:
      return static_cast<std::uint64_t>(std::get<kIntegerIndex>(storage_));
    case kUnsignedIndex:
      return std::get<kUnsignedIndex>(storage_);
    case kBooleanIndex:
      return std::get<kBooleanIndex>(storage_) ? 1 : 0;
    default: {
      double d = doubleValue();
      if (d < 0) return static_cast<std::uint64_t>(integerValue());
      if (!(d < 18446744073709551616.0)) return 0;
      return static_cast<std::uint64_t>(d);
    }
  }
}

bool NYBDynamicValue::boolValue() const {
  if (const bool* b = std::get_if<kBooleanIndex>(&storage_)) return *b;
  if (isString()) {
    // The platform reads "Y", "y", "T", "t" or a non-zero number as true.
    std::string_view s = stringView();
    while (!s.empty() && (s.front() == ' ' || s.front() == '+' || s.front() == '0')) {
      s.remove_prefix(1);
    }
    return !s.empty() && (s.front() == 'Y' || s.front() == 'y' || s.front() == 'T' ||
                          s.front() == 't' || (s.front() >= '1' && s.front() <= '9'));
  }
  return doubleValue() != 0;
}

const NYBDecimal* NYBDynamicValue::decimal() const { return std::get_if<NYBDecimal>(&storage_); }

std::optional<NYBDate> NYBDynamicValue::date() const {
  if (const NYBDate* d = std::get_if<NYBDate>(&storage_)) return *d;
  return std::nullopt;
}

const std::shared_ptr<const NYBDictionary>* NYBDynamicValue::sharedDictionary() const {
  return std::get_if<std::shared_ptr<const NYBDictionary>>(&storage_);
}

const std::shared_ptr<const NYBArray>* NYBDynamicValue::sharedArray() const {
  return std::get_if<std::shared_ptr<const NYBArray>>(&storage_);
}

NYBArray* NYBDynamicValue::uniqueArray() {
  auto* shared = std::get_if<std::shared_ptr<const NYBArray>>(&storage_);
  // Every array the library makes is created mutable and only held as const.
  if (shared == nullptr || shared->use_count() != 1) return nullptr;
  return const_cast<NYBArray*>(shared->get());
}

const NYBDictionary* NYBDynamicValue::dictionary() const {
  const auto* shared = sharedDictionary();
  return shared ? shared->get() : nullptr;
}

const NYBArray* NYBDynamicValue::array() const {
  const auto* shared = sharedArray();
  return shared ? shared->get() : nullptr;
}

const NYBData* NYBDynamicValue::data() const {
  const auto* shared = std::get_if<std::shared_ptr<const NYBData>>(&storage_);
  return shared ? shared->get() : nullptr;
}

const NYBURL* NYBDynamicValue::url() const {
  const auto* shared = std::get_if<std::shared_ptr<const NYBURL>>(&storage_);
  return shared ? shared->get() : nullptr;
}

const std::shared_ptr<NYBObject>& NYBDynamicValue::object() const {
  const auto* shared = std::get_if<std::shared_ptr<NYBObject>>(&storage_);
  return shared ? *shared : noObject();
}

bool NYBDynamicValue::isEqual(const NYBDynamicValue& other) const {
  Kind a = kind();
  Kind b = other.kind();
  bool aNumber = isNumber();
  bool bNumber = other.isNumber();
  if (aNumber || bNumber) {
    if (!(aNumber && bNumber)) return false;
    auto reduce = [](const NYBDynamicValue& v) {
      switch (v.storage_.index()) {
        case kIntegerIndex:
          return canonical(std::get<kIntegerIndex>(v.storage_));
        case kUnsignedIndex:
          return canonical(std::get<kUnsignedIndex>(v.storage_));
        case kRealIndex:
          return canonical(std::get<kRealIndex>(v.storage_));
        default:
          return canonical(std::int64_t{std::get<kBooleanIndex>(v.storage_) ? 1 : 0});
      }
    };
    return reduce(*this) == reduce(other);
  }
  if (a != b) return false;
  switch (a) {
    case Kind::Absent:
    case Kind::Null:
      return true;
    case Kind::String:
      return stringView() == other.stringView();
    case Kind::Decimal:
      return *decimal() == *other.decimal();
    case Kind::Date:
      return *date() == *other.date();
    case Kind::Dictionary:
      return dictionary() == other.dictionary() || dictionary()->isEqual(*other.dictionary());
    case Kind::Array:
      return array() == other.array() || array()->isEqual(*other.array());
    case Kind::Data:
      return *data() == *other.data();
    case Kind::URL:
      return *url() == *other.url();
    case Kind::Object:
      return object() == other.object() || object()->isEqual(*other.object());
    default:
      return false;
  }
}

std::size_t NYBDynamicValue::hash() const {
  switch (storage_.index()) {
    case kIntegerIndex:
    case kUnsignedIndex:
    case kRealIndex:
    case kBooleanIndex: {
      CanonicalNumber n;
      switch (storage_.index()) {
        case kIntegerIndex:
          n = canonical(std::get<kIntegerIndex>(storage_));
          break;
        case kUnsignedIndex:
          n = canonical(std::get<kUnsignedIndex>(storage_));
          break;
        case kRealIndex:
          n = canonical(std::get<kRealIndex>(storage_));
          break;
        default:
          n = canonical(std::int64_t{std::get<kBooleanIndex>(storage_) ? 1 : 0});
      }
      switch (n.form) {
        case CanonicalNumber::Form::Signed:
          return hashing::mix(static_cast<std::uint64_t>(n.i));
        case CanonicalNumber::Form::Unsigned:
          return hashing::mix(n.u);
        case CanonicalNumber::Form::Real:
          return hashing::real(n.d);
      }
      return 0;
    }
    default:
      break;
  }
  switch (kind()) {
    case Kind::Absent:
      return 0;
    case Kind::Null:
      return 0x6e756c6c;
    case Kind::String:
      return hashing::bytes(stringView());
    case Kind::Decimal:
      return decimal()->hash();
    case Kind::Date:
      return date()->hash();
    case Kind::Dictionary:
      return dictionary()->hash();
    case Kind::Array:
      return array()->hash();
    case Kind::Data:
      return data()->hash();
    case Kind::URL:
      return url()->hash();
    case Kind::Object:
      return object()->hash();
    default:
      return 0;
  }
}

std::string NYBDynamicValue::description() const {
  switch (storage_.index()) {
    case kIntegerIndex:
      return std::to_string(std::get<kIntegerIndex>(storage_));
    case kUnsignedIndex:
      return std::to_string(std::get<kUnsignedIndex>(storage_));
    case kRealIndex:
      return realText(std::get<kRealIndex>(storage_));
    case kBooleanIndex:
      return std::get<kBooleanIndex>(storage_) ? "1" : "0";
    default:
      break;
  }
  switch (kind()) {
    case Kind::Absent:
      return "(null)";
    case Kind::Null:
      return "<null>";
    case Kind::String:
      return std::string(stringView());
    case Kind::Decimal:
      return decimal()->stringValue();
    case Kind::Date: {
      // The platform's form: "2016-03-01 14:05:09 +0000".
      double seconds = std::floor(date()->timeIntervalSince1970());
      std::time_t t = static_cast<std::time_t>(seconds);
      std::tm utc{};
      if (gmtime_r(&t, &utc) == nullptr) return realText(date()->timeIntervalSince1970());
      char buffer[64];
      std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &utc);
      return buffer;
    }
    case Kind::Dictionary:
      return dictionary()->description();
    case Kind::Array:
      return array()->description();
    case Kind::Data:
      return data()->description();
    case Kind::URL:
      return url()->absoluteString();
    case Kind::Object:
      return object()->description();
    default:
      return {};
  }
}

}  // namespace nyb
