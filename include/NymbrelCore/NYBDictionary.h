// NYBDictionary: an insertion-ordered map from dynamic value to dynamic value.
//
// Keys may be of any kind (the session's photo map is keyed by records); a key
// is found by its hash and equality, so a model object must not change while it
// is a key. Iteration follows insertion order, which keeps every output
// deterministic; equality ignores order. Neither keys nor values may be absent.
// Small dictionaries (JSON documents) are searched in order; past a few dozen
// entries a hash index keeps a lookup constant, so a large map (the photo map
// of a long queue) and equality of reordered dictionaries cost linear time.
//
// A plain value type: copying copies the entries (whose containers are shared).
// Dynamic values hold dictionaries as shared immutable objects; to change one,
// copy it, change the copy and store it back. Not synchronised: one writer at a
// time.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb {

class NYB_EXPORT NYBDictionary {
 public:
  using Entry = std::pair<NYBDynamicValue, NYBDynamicValue>;
  using const_iterator = std::vector<Entry>::const_iterator;

  NYBDictionary() = default;
  NYBDictionary(std::initializer_list<Entry> entries);

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }
  void reserve(std::size_t count) { entries_.reserve(count); }

  // The value for a key, or absent.
  const NYBDynamicValue& operator[](const NYBDynamicValue& key) const;
  const NYBDynamicValue& operator[](std::string_view key) const;
  const NYBDynamicValue* find(const NYBDynamicValue& key) const;
  const NYBDynamicValue* find(std::string_view key) const;
  const NYBDynamicValue& operator[](const std::string& key) const {
    return (*this)[std::string_view(key)];
  }
  const NYBDynamicValue& operator[](const char* key) const {
    return (*this)[std::string_view(key)];
  }
  const NYBDynamicValue* find(const std::string& key) const { return find(std::string_view(key)); }
  const NYBDynamicValue* find(const char* key) const { return find(std::string_view(key)); }
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  // Replaces the value of an existing key in place, else appends. Setting an
  // absent value removes the key.
  void set(NYBDynamicValue key, NYBDynamicValue value);
  // Appends without looking for the key: the caller knows it is new.
  void append(NYBDynamicValue key, NYBDynamicValue value);
  bool remove(const NYBDynamicValue& key);

  // The keys that are strings, in order.
  std::vector<std::string> stringKeys() const;

  bool isEqual(const NYBDictionary& other) const;
  friend bool operator==(const NYBDictionary& a, const NYBDictionary& b) { return a.isEqual(b); }
  std::size_t hash() const;
  std::string description() const;

 private:
  std::ptrdiff_t indexOf(const NYBDynamicValue& key) const;
  std::ptrdiff_t indexOf(std::string_view key) const;
  // The key was appended at the last position.
  void indexLastEntry();
  void rebuildIndex();

  std::vector<Entry> entries_;
  // Key hash to position, kept only past kIndexedSize entries; built on change,
  // never on lookup, so a shared dictionary is read by many threads safely.
  std::unordered_multimap<std::size_t, std::size_t> index_;
};

}  // namespace nyb
