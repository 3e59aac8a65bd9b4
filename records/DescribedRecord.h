// What a record type's class derives from its description: its key map and
// the part of its property table that holds the document's properties.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBPropertyTable.h"
#include "NymbrelCore/NYBRecord.h"
#include "records/RecordTypeDescription.h"

namespace nyb::records {

constexpr std::size_t documentPropertyCount(const RecordTypeDescription& description) {
  std::size_t count = 0;
  for (const FieldDescription& field : description.fields) count += field.isDocumentProperty();
  return count;
}

// commonKeyPaths(), then the type's document properties in document order.
inline NYBKeyMap describedKeyMap(const RecordTypeDescription& description) {
  NYBKeyMap keys = NYBRecord::commonKeyPaths();
  for (const FieldDescription& field : description.fields) {
    if (field.isDocumentProperty()) keys.emplace_back(field.property, field.jsonKey);
  }
  return keys;
}

// A member of T bound to the described property of its name.
template <typename T, typename M>
struct BoundMember {
  std::string_view property;
  M T::*member;
};
template <typename T, typename M>
BoundMember(std::string_view, M T::*) -> BoundMember<T, M>;

// BoundMember{"weight", &T::weight_}, from the one name: the property and its
// member cannot be paired wrongly. T is the record type's class.
#define NYB_DESCRIBED_MEMBER(name) \
  ::nyb::records::BoundMember { #name, &T::name##_ }

namespace detail {

template <typename T>
void addProperty(NYBPropertyTable::Builder<T>& builder, std::string name,
                 NYBDynamicValue T::*member) {
  builder.field(std::move(name), member);
}
template <typename T>
void addProperty(NYBPropertyTable::Builder<T>& builder, std::string name,
                 std::uint64_t T::*member) {
  builder.unsignedScalar(std::move(name), member);
}

}  // namespace detail

// The property table of the description's document properties, one member
// for each, in document order; more properties may be chained on. The count is
// checked when the class is compiled, the names when its class object is made
// (a mismatch is a programming error: it throws std::logic_error).
template <const RecordTypeDescription& Description, typename T, typename... Members>
NYBPropertyTable::Builder<T> describedProperties(BoundMember<T, Members>... members) {
  static_assert(documentPropertyCount(Description) == sizeof...(Members),
                "one member for each document property of the description, in document order");
  auto builder = NYBPropertyTable::of<T>();
  std::size_t next = 0;
  auto add = [&](std::string_view property, auto member) {
    while (!Description.fields[next].isDocumentProperty()) ++next;
    if (Description.fields[next++].property != property) {
      throw std::logic_error(std::string(Description.className) + ": member \"" +
                             std::string(property) + "\" is out of document order");
    }
    detail::addProperty(builder, std::string(property), member);
  };
  (add(members.property, members.member), ...);
  return builder;
}

}  // namespace nyb::records
