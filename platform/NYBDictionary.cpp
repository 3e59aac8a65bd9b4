#include "NymbrelCore/NYBDictionary.h"

#include <algorithm>

#include "platform/Description.h"
#include "platform/Hashing.h"

namespace nyb {

namespace {

// Below this many entries a scan in order beats hashing the key.
constexpr std::size_t kIndexedSize = 24;

const NYBDynamicValue& absentValue() {
  static const NYBDynamicValue absent;
  return absent;
}

}  // namespace

NYBDictionary::NYBDictionary(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const Entry& entry : entries) set(entry.first, entry.second);
}

std::ptrdiff_t NYBDictionary::indexOf(std::string_view key) const {
  if (!index_.empty()) {
    auto [first, last] = index_.equal_range(hashing::bytes(key));
    for (auto it = first; it != last; ++it) {
      const NYBDynamicValue& k = entries_[it->second].first;
      if (k.isString() && k.stringView() == key) return static_cast<std::ptrdiff_t>(it->second);
    }
    return -1;
  }
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const NYBDynamicValue& k = entries_[i].first;
    if (k.isString() && k.stringView() == key) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

std::ptrdiff_t NYBDictionary::indexOf(const NYBDynamicValue& key) const {
  if (key.isString()) return indexOf(key.stringView());
  if (!index_.empty()) {
    auto [first, last] = index_.equal_range(key.hash());
    for (auto it = first; it != last; ++it) {
      if (entries_[it->second].first.isEqual(key)) return static_cast<std::ptrdiff_t>(it->second);
    }
    return -1;
  }
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].first.isEqual(key)) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

const NYBDynamicValue* NYBDictionary::find(const NYBDynamicValue& key) const {
  std::ptrdiff_t i = indexOf(key);
  return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
}

const NYBDynamicValue* NYBDictionary::find(std::string_view key) const {
  std::ptrdiff_t i = indexOf(key);
  return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
}

const NYBDynamicValue& NYBDictionary::operator[](const NYBDynamicValue& key) const {
  const NYBDynamicValue* value = find(key);
  return value ? *value : absentValue();
}

const NYBDynamicValue& NYBDictionary::operator[](std::string_view key) const {
  const NYBDynamicValue* value = find(key);
  return value ? *value : absentValue();
}

void NYBDictionary::set(NYBDynamicValue key, NYBDynamicValue value) {
  if (value.isAbsent()) {
    remove(key);
    return;
  }
  std::ptrdiff_t i = indexOf(key);
  if (i >= 0) {
    entries_[static_cast<std::size_t>(i)].second = std::move(value);
  } else {
    entries_.emplace_back(std::move(key), std::move(value));
    indexLastEntry();
  }
}

void NYBDictionary::append(NYBDynamicValue key, NYBDynamicValue value) {
  if (value.isAbsent()) return;
  entries_.emplace_back(std::move(key), std::move(value));
  indexLastEntry();
}

void NYBDictionary::indexLastEntry() {
  if (entries_.size() < kIndexedSize) return;
  if (entries_.size() == kIndexedSize) {
    rebuildIndex();
    return;
  }
  index_.emplace(entries_.back().first.hash(), entries_.size() - 1);
}

void NYBDictionary::rebuildIndex() {
  index_.clear();
  if (entries_.size() < kIndexedSize) return;
  index_.reserve(entries_.size());
  for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first.hash(), i);
}

bool NYBDictionary::remove(const NYBDynamicValue& key) {
  std::ptrdiff_t i = indexOf(key);
  if (i < 0) return false;
  entries_.erase(entries_.begin() + i);
  rebuildIndex();  // the later positions moved
  return true;
}

std::vector<std::string> NYBDictionary::stringKeys() const {
  std::vector<std::string> keys;
  keys.reserve(entries_.size());
  for (const Entry& entry : entries_) {
    if (entry.first.isString()) keys.emplace_back(entry.first.stringView());
  }
  return keys;
}

bool NYBDictionary::isEqual(const NYBDictionary& other) const {
  if (entries_.size() != other.entries_.size()) return false;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const Entry& entry = entries_[i];
    // Same order is the common case: try the same place first, then the
    // others, never comparing one pair twice (nested keys would otherwise
    // cost time exponential in their depth).
    const NYBDynamicValue* theirs = nullptr;
    if (other.entries_[i].first.isEqual(entry.first)) {
      theirs = &other.entries_[i].second;
    } else if (entry.first.isString() || !other.index_.empty()) {
      theirs = other.find(entry.first);
    } else {
      std::size_t keyHash = entry.first.hash();
      for (std::size_t j = 0; j < other.entries_.size() && theirs == nullptr; ++j) {
        const NYBDynamicValue& key = other.entries_[j].first;
        if (j != i && key.hash() == keyHash && key.isEqual(entry.first)) {
          theirs = &other.entries_[j].second;
        }
      }
    }
    if (theirs == nullptr || !theirs->isEqual(entry.second)) return false;
  }
  return true;
}

std::size_t NYBDictionary::hash() const {
  // Order-independent, so that equal dictionaries hash alike.
  std::size_t h = entries_.size();
  for (const Entry& entry : entries_) {
    h += entry.first.hash() * 31 ^ entry.second.hash();
  }
  return h;
}

std::string NYBDictionary::description() const {
  std::string out;
  describe::dictionary(*this, 0, out);
  return out;
}

}  // namespace nyb
