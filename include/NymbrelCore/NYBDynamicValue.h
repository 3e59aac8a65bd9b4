// NYBDynamicValue: the one value type that properties, dictionaries, arrays and
// JSON documents carry.
//
// It tells three states apart: absent (no value at all), the null marker (JSON
// null, and an unset value inside a dictionary) and a value of one kind:
// string, number (integer, unsigned, real or boolean), decimal, date,
// dictionary, array, data, URL or object. No kind checking is done anywhere:
// a value is stored as it comes.
//
// Ownership: strings of up to 22 bytes are held inline; longer strings and all
// containers are immutable and shared between copies, so copying a value never
// copies a container. Objects are shared references (std::shared_ptr); the
// object itself may be mutable. A value may be read from several threads at
// once; the objects it refers to follow their own rules.
//
// Equality and hash follow value semantics: numbers compare by value across
// their kinds (1 == 1.0 == true), dictionaries ignore entry order, objects
// compare with their own isEqual(). The null marker equals only itself.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "NymbrelCore/NYBDate.h"
#include "NymbrelCore/NYBDecimal.h"

namespace nyb {

class NYBObject;
class NYBDictionary;
class NYBArray;
class NYBData;
class NYBURL;

class NYB_EXPORT NYBDynamicValue {
 public:
  enum class Kind : std::uint8_t {
    Absent,
    Null,
    String,
    Integer,
    Unsigned,
    Real,
    Boolean,
    Decimal,
    Date,
    Dictionary,
    Array,
    Data,
    URL,
    Object,
  };

  // Absent.
  NYBDynamicValue() noexcept = default;
  NYBDynamicValue(std::nullopt_t) noexcept {}  // NOLINT: absent, as from an optional
  // The null marker.
  static NYBDynamicValue null();

  NYBDynamicValue(std::string_view text);    // NOLINT(runtime/explicit)
  NYBDynamicValue(const char* text);         // NOLINT(runtime/explicit)
  NYBDynamicValue(const std::string& text);  // NOLINT(runtime/explicit)
  NYBDynamicValue(std::string&& text);       // NOLINT(runtime/explicit)

  template <typename T,
            std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
  NYBDynamicValue(T number) {  // NOLINT(runtime/explicit)
    if constexpr (std::is_signed_v<T>) {
      storage_.template emplace<kIntegerIndex>(static_cast<std::int64_t>(number));
    } else {
      storage_.template emplace<kUnsignedIndex>(static_cast<std::uint64_t>(number));
    }
  }
  NYBDynamicValue(double number) : storage_(std::in_place_index<kRealIndex>, number) {}  // NOLINT
  NYBDynamicValue(bool flag) : storage_(std::in_place_index<kBooleanIndex>, flag) {}     // NOLINT
  NYBDynamicValue(NYBDecimal decimal);                               // NOLINT(runtime/explicit)
  NYBDynamicValue(NYBDate date);                                     // NOLINT(runtime/explicit)
  NYBDynamicValue(NYBDictionary dictionary);                         // NOLINT(runtime/explicit)
  NYBDynamicValue(NYBArray array);                                   // NOLINT(runtime/explicit)
  NYBDynamicValue(NYBData data);                                     // NOLINT(runtime/explicit)
  NYBDynamicValue(NYBURL url);                                       // NOLINT(runtime/explicit)
  NYBDynamicValue(std::shared_ptr<const NYBDictionary> dictionary);  // NOLINT
  NYBDynamicValue(std::shared_ptr<const NYBArray> array);            // NOLINT
  NYBDynamicValue(std::shared_ptr<NYBObject> object);                // NOLINT
  template <
      typename T,
      std::enable_if_t<std::is_base_of_v<NYBObject, T> && !std::is_same_v<T, NYBObject>, int> = 0>
  NYBDynamicValue(std::shared_ptr<T> object)  // NOLINT(runtime/explicit)
      : NYBDynamicValue(std::static_pointer_cast<NYBObject>(std::move(object))) {}
  // Absent when the optional is empty.
  template <typename T>
  NYBDynamicValue(const std::optional<T>& value) {  // NOLINT(runtime/explicit)
    if (value) *this = NYBDynamicValue(*value);
  }

  Kind kind() const;
  bool isAbsent() const { return storage_.index() == kAbsentIndex; }
  bool isPresent() const { return !isAbsent(); }
  bool isNull() const { return storage_.index() == kNullIndex; }
  bool isString() const { return kind() == Kind::String; }
  // Integer, unsigned, real or boolean.
  bool isNumber() const;
  bool isDictionary() const { return kind() == Kind::Dictionary; }
  bool isArray() const { return kind() == Kind::Array; }
  bool isObject() const { return kind() == Kind::Object; }

  // The text of a string value; empty for any other kind.
  std::string_view stringView() const;
  // The text of a string value; absent for any other kind.
  std::optional<std::string> string() const;

  // Number conversions, as the platform's number object gives them: a boolean
  // reads as 0 or 1, a decimal as its nearest value, anything else as 0.
  double doubleValue() const;
  std::int64_t integerValue() const;
  std::uint64_t unsignedValue() const;
  bool boolValue() const;

  // The held value of each kind, or nothing when the value is of another kind.
  const NYBDecimal* decimal() const;
  std::optional<NYBDate> date() const;
  const NYBDictionary* dictionary() const;
  const NYBArray* array() const;
  const NYBData* data() const;
  const NYBURL* url() const;
  const std::shared_ptr<const NYBDictionary>* sharedDictionary() const;
  const std::shared_ptr<const NYBArray>* sharedArray() const;
  // The array for a change in place, when this value is its only holder (no
  // copy of the value, no snapshot, no other thread has it); null otherwise.
  // Lets an owner append to a list it alone holds without copying it.
  NYBArray* uniqueArray();
  const std::shared_ptr<NYBObject>& object() const;
  template <typename T>
  std::shared_ptr<T> objectAs() const {
    return std::dynamic_pointer_cast<T>(object());
  }

  bool isEqual(const NYBDynamicValue& other) const;
  friend bool operator==(const NYBDynamicValue& a, const NYBDynamicValue& b) {
    return a.isEqual(b);
  }
  // Consistent with isEqual; stable across runs and processes for every kind
  // but objects that use identity.
  std::size_t hash() const;

  // The platform's textual description: a string is its own text, a number its
  // shortest decimal text, a dictionary or array the platform's bracketed
  // listing, absent "(null)" and the null marker "<null>".
  std::string description() const;

 private:
  struct NullTag {};
  struct SmallString {
    std::uint8_t size;
    char bytes[23];
  };
  using Storage =
      std::variant<std::monostate, NullTag, SmallString, std::shared_ptr<const std::string>,
                   std::int64_t, std::uint64_t, double, bool, NYBDecimal, NYBDate,
                   std::shared_ptr<const NYBDictionary>, std::shared_ptr<const NYBArray>,
                   std::shared_ptr<const NYBData>, std::shared_ptr<const NYBURL>,
                   std::shared_ptr<NYBObject>>;
  static constexpr std::size_t kAbsentIndex = 0;
  static constexpr std::size_t kNullIndex = 1;
  static constexpr std::size_t kSmallStringIndex = 2;
  static constexpr std::size_t kLongStringIndex = 3;
  static constexpr std::size_t kIntegerIndex = 4;
  static constexpr std::size_t kUnsignedIndex = 5;
  static constexpr std::size_t kRealIndex = 6;
  static constexpr std::size_t kBooleanIndex = 7;

  void assignString(std::string_view text);

  Storage storage_;
};

struct NYB_EXPORT NYBDynamicValueHash {
  std::size_t operator()(const NYBDynamicValue& value) const { return value.hash(); }
};

}  // namespace nyb
