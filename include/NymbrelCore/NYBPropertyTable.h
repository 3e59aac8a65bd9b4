// NYBPropertyTable: the ordered list of properties that one model class
// declares itself, with generic get and set by name.
//
// Each entry has a name, a kind (an object reference, or an unsigned or boolean
// scalar that is boxed as a number when read generically), a getter, and a
// setter and/or a backing field. Generic set calls the setter when there is one
// (so its side effects happen), else stores into the backing field; a derived
// property with neither cannot be set. Tables are built once per class, when
// its class object is made, and are read-only afterwards, so any thread may
// read them.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb {

class NYBModel;

enum class NYBPropertyKind { Object, Unsigned, Boolean };

struct NYB_EXPORT NYBPropertyInfo {
  using Getter = std::function<NYBDynamicValue(const NYBModel&)>;
  using Setter = std::function<void(NYBModel&, const NYBDynamicValue&)>;

  std::string name;
  NYBPropertyKind kind = NYBPropertyKind::Object;
  Getter getter;
  // The property's setter; empty for a read-only property.
  Setter setter;
  // Stores into the backing field; empty for a derived property without one.
  Setter fieldStore;
};

class NYB_EXPORT NYBPropertyTable {
 public:
  NYBPropertyTable() = default;

  // A builder for the table of model class T, whose properties are members of T.
  template <typename T>
  class Builder;
  template <typename T>
  static Builder<T> of();

  const std::vector<NYBPropertyInfo>& entries() const { return entries_; }
  void add(NYBPropertyInfo info) { entries_.push_back(std::move(info)); }

 private:
  std::vector<NYBPropertyInfo> entries_;
};

template <typename T>
class NYBPropertyTable::Builder {
 public:
  using Field = NYBDynamicValue T::*;
  using Setter = void (T::*)(NYBDynamicValue);
  using Getter = NYBDynamicValue (T::*)() const;

  // A property backed by a field, set by a plain store (or, when read-only, by
  // generic set storing into the field: the effect is the same).
  Builder& field(std::string name, Field member) {
    auto store = [member](NYBModel& m, const NYBDynamicValue& v) {
      static_cast<T&>(m).*member = v;
    };
    table_.add({std::move(name), NYBPropertyKind::Object,
                [member](const NYBModel& m) { return static_cast<const T&>(m).*member; }, store,
                store});
    return *this;
  }
  // A property backed by a field whose setter has side effects.
  Builder& field(std::string name, Field member, Setter setter) {
    table_.add(
        {std::move(name), NYBPropertyKind::Object,
         [member](const NYBModel& m) { return static_cast<const T&>(m).*member; },
         [setter](NYBModel& m, const NYBDynamicValue& v) { (static_cast<T&>(m).*setter)(v); },
         [member](NYBModel& m, const NYBDynamicValue& v) { static_cast<T&>(m).*member = v; }});
    return *this;
  }
  // A property without a field, computed by its getter; settable only when it
  // has a setter.
  Builder& computed(std::string name, Getter getter, Setter setter = nullptr) {
    NYBPropertyInfo::Setter set;
    if (setter != nullptr) {
      set = [setter](NYBModel& m, const NYBDynamicValue& v) { (static_cast<T&>(m).*setter)(v); };
    }
    table_.add({std::move(name), NYBPropertyKind::Object,
                [getter](const NYBModel& m) { return (static_cast<const T&>(m).*getter)(); },
                std::move(set), nullptr});
    return *this;
  }
  // An unsigned scalar field, boxed as an unsigned number.
  Builder& unsignedScalar(std::string name, std::uint64_t T::*member) {
    auto store = [member](NYBModel& m, const NYBDynamicValue& v) {
      static_cast<T&>(m).*member = v.unsignedValue();
    };
    table_.add(
        {std::move(name), NYBPropertyKind::Unsigned,
         [member](const NYBModel& m) { return NYBDynamicValue(static_cast<const T&>(m).*member); },
         store, store});
    return *this;
  }
  // A boolean scalar field, boxed as a boolean number.
  Builder& boolScalar(std::string name, bool T::*member) {
    auto store = [member](NYBModel& m, const NYBDynamicValue& v) {
      static_cast<T&>(m).*member = v.boolValue();
    };
    table_.add(
        {std::move(name), NYBPropertyKind::Boolean,
         [member](const NYBModel& m) { return NYBDynamicValue(static_cast<const T&>(m).*member); },
         store, store});
    return *this;
  }

  NYBPropertyTable build() { return std::move(table_); }
  operator NYBPropertyTable() { return build(); }  // NOLINT(google-explicit-constructor)

 private:
  NYBPropertyTable table_;
};

template <typename T>
NYBPropertyTable::Builder<T> NYBPropertyTable::of() {
  return Builder<T>();
}

}  // namespace nyb
