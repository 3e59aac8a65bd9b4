// What a record type's class derives from its description: its key map and
// the part of its property table that holds the document's properties.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

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

// The property table of the description's document properties, each bound to
// the member of T given in the same (document) order; more properties may be
// chained on. The count is checked when the class is compiled.
template <const RecordTypeDescription& Description, typename T, typename... Members>
NYBPropertyTable::Builder<T> describedProperties(Members... members) {
  static_assert(documentPropertyCount(Description) == sizeof...(Members),
                "one member for each document property of the description, in document order");
  auto builder = NYBPropertyTable::of<T>();
  std::size_t next = 0;
  auto nextName = [&next] {
    while (!Description.fields[next].isDocumentProperty()) ++next;
    return std::string(Description.fields[next++].property);
  };
  (detail::addProperty(builder, nextName(), members), ...);
  return builder;
}

}  // namespace nyb::records
