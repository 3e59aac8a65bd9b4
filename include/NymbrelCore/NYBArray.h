// NYBArray: an ordered list of dynamic values.
//
// A plain value type; dynamic values hold arrays as shared immutable objects
// (copy, change the copy, store it back). Elements are never absent. Not
// synchronised: one writer at a time.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb {

class NYB_EXPORT NYBArray {
 public:
  using const_iterator = std::vector<NYBDynamicValue>::const_iterator;

  NYBArray() = default;
  NYBArray(std::initializer_list<NYBDynamicValue> elements) : elements_(elements) {}
  explicit NYBArray(std::vector<NYBDynamicValue> elements) : elements_(std::move(elements)) {}

  std::size_t size() const { return elements_.size(); }
  bool empty() const { return elements_.empty(); }
  const NYBDynamicValue& operator[](std::size_t index) const { return elements_[index]; }
  const_iterator begin() const { return elements_.begin(); }
  const_iterator end() const { return elements_.end(); }
  void reserve(std::size_t count) { elements_.reserve(count); }

  void append(NYBDynamicValue element) { elements_.push_back(std::move(element)); }
  void insert(std::size_t index, NYBDynamicValue element);
  void removeAt(std::size_t index);
  const std::vector<NYBDynamicValue>& elements() const { return elements_; }

  bool isEqual(const NYBArray& other) const;
  friend bool operator==(const NYBArray& a, const NYBArray& b) { return a.isEqual(b); }
  std::size_t hash() const;
  std::string description() const;

 private:
  std::vector<NYBDynamicValue> elements_;
};

}  // namespace nyb
