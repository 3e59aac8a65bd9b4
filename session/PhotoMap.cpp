#include "session/PhotoMap.h"

namespace nyb::session {

PhotoMap::PhotoMap(const NYBDictionary& dictionary) {
  for (const auto& [key, value] : dictionary) set(key, value);
}

PhotoMap::PhotoMap(const PhotoMap& other)
    : chunks_(other.chunks_),
      shared_(other.chunks_.size(), true),
      live_(other.live_),
      holes_(other.holes_),
      indexed_(false) {
  other.shared_.assign(other.chunks_.size(), true);
}

PhotoMap& PhotoMap::operator=(const PhotoMap& other) {
  if (this != &other) *this = PhotoMap(other);
  return *this;
}

void PhotoMap::buildIndex() const {
  if (indexed_) return;
  keys_.clear();
  names_.clear();
  for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
    const auto& entries = chunks_[chunk]->entries;
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (!entries[i].first.isAbsent()) indexEntry(chunk * kChunkSize + i);
    }
  }
  indexed_ = true;
}

void PhotoMap::indexEntry(Slot slot) const {
  const Entry& entry = entryAt(slot);
  keys_.emplace(entry.first.hash(), slot);
  if (entry.second.isString()) ++names_[std::string(entry.second.stringView())];
}

void PhotoMap::forgetName(const NYBDynamicValue& value) const {
  if (!value.isString()) return;
  auto found = names_.find(std::string(value.stringView()));
  if (found != names_.end() && --found->second == 0) names_.erase(found);
}

PhotoMap::IndexEntry PhotoMap::indexOf(const NYBDynamicValue& key) const {
  buildIndex();
  auto [first, last] = keys_.equal_range(key.hash());
  for (auto it = first; it != last; ++it) {
    if (entryAt(it->second).first.isEqual(key)) return it;
  }
  return keys_.end();
}

const NYBDynamicValue* PhotoMap::find(const NYBDynamicValue& key) const {
  const IndexEntry found = indexOf(key);
  return found != keys_.end() ? &entryAt(found->second).second : nullptr;
}

bool PhotoMap::names(std::string_view name) const {
  buildIndex();
  return names_.count(std::string(name)) != 0;
}

PhotoMap::Entry& PhotoMap::ownedEntryAt(Slot slot) {
  const std::size_t chunk = slot / kChunkSize;
  if (shared_[chunk]) {
    chunks_[chunk] = std::make_shared<Chunk>(*chunks_[chunk]);
    shared_[chunk] = false;
  }
  return chunks_[chunk]->entries[slot % kChunkSize];
}

void PhotoMap::set(NYBDynamicValue key, NYBDynamicValue value) {
  if (value.isAbsent()) {
    remove(key);
    return;
  }
  if (const IndexEntry found = indexOf(key); found != keys_.end()) {
    Entry& entry = ownedEntryAt(found->second);
    forgetName(entry.second);
    entry.second = std::move(value);
    if (entry.second.isString()) ++names_[std::string(entry.second.stringView())];
    return;
  }
  if (chunks_.empty() || chunks_.back()->entries.size() == kChunkSize) {
    chunks_.push_back(std::make_shared<Chunk>());
    chunks_.back()->entries.reserve(kChunkSize);
    shared_.push_back(false);
  }
  const Slot slot = (chunks_.size() - 1) * kChunkSize + chunks_.back()->entries.size();
  if (shared_.back()) {
    chunks_.back() = std::make_shared<Chunk>(*chunks_.back());
    shared_.back() = false;
  }
  chunks_.back()->entries.emplace_back(std::move(key), std::move(value));
  ++live_;
  indexEntry(slot);
}

bool PhotoMap::remove(const NYBDynamicValue& key) {
  const IndexEntry found = indexOf(key);
  if (found == keys_.end()) return false;
  Entry& entry = ownedEntryAt(found->second);
  keys_.erase(found);
  forgetName(entry.second);
  entry = Entry();
  --live_;
  ++holes_;
  if (holes_ > live_ + kChunkSize) pack();
  return true;
}

void PhotoMap::pack() {
  std::vector<std::shared_ptr<Chunk>> packed;
  forEachWhile([&](const NYBDynamicValue& key, const NYBDynamicValue& value) {
    if (packed.empty() || packed.back()->entries.size() == kChunkSize) {
      packed.push_back(std::make_shared<Chunk>());
      packed.back()->entries.reserve(kChunkSize);
    }
    packed.back()->entries.emplace_back(key, value);
    return true;
  });
  chunks_ = std::move(packed);
  shared_.assign(chunks_.size(), false);
  holes_ = 0;
  indexed_ = false;
  buildIndex();
}

NYBDictionary PhotoMap::dictionary() const {
  NYBDictionary dictionary;
  dictionary.reserve(live_);
  // Keys are unique here already: append skips the dictionary's lookup.
  forEachWhile([&](const NYBDynamicValue& key, const NYBDynamicValue& value) {
    dictionary.append(key, value);
    return true;
  });
  return dictionary;
}

}  // namespace nyb::session
