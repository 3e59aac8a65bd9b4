// The photo map's storage: record to photo file name, in the order the
// entries were made, with the lookups and changes of a dictionary (setting a
// key that is there replaces its value in place; removing one keeps the order
// of the rest) at a cost that does not grow with the number of photos, and a
// copy (the snapshot a save hands to the write queue) that shares the entries.
//
// Entries live in chunks of fixed positions. A removed entry leaves a hole
// (an absent key) that lookups and walks skip; once holes outnumber entries
// the chunks are packed again, so holes never cost more than the entries did.
// Chunks are shared between copies and never changed once a copy may see
// them: the first change to a shared chunk copies that chunk alone. Whether a
// copy may see a chunk is tracked by flags, not reference counts, which
// another thread may be lowering without any ordering with this one.
//
// Lookups go through an index of key hashes and of file names; a copy makes
// its own on its first lookup, so that copying stays cheap for a snapshot
// that is only written out. A PhotoMap is a plain value, used by one thread
// at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb::session {

class PhotoMap {
 public:
  static constexpr std::size_t kChunkSize = 256;

  PhotoMap() = default;
  explicit PhotoMap(const NYBDictionary& dictionary);
  // Shares the entries; from now on neither map changes what the other sees.
  PhotoMap(const PhotoMap& other);
  PhotoMap& operator=(const PhotoMap& other);
  PhotoMap(PhotoMap&&) noexcept = default;
  PhotoMap& operator=(PhotoMap&&) noexcept = default;

  std::size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }
  // The value stored for a key equal to `key`; null when there is none.
  const NYBDynamicValue* find(const NYBDynamicValue& key) const;
  // Whether some entry's value is the string `name`.
  bool names(std::string_view name) const;
  // As NYBDictionary::set: an absent value removes the key.
  void set(NYBDynamicValue key, NYBDynamicValue value);
  // False when no entry had the key.
  bool remove(const NYBDynamicValue& key);
  // Calls f(key, value) for each entry, in order; f returns false to stop.
  template <typename F>
  void forEachWhile(F&& f) const {
    for (const auto& chunk : chunks_) {
      for (const auto& [key, value] : chunk->entries) {
        if (!key.isAbsent() && !f(key, value)) return;
      }
    }
  }
  NYBDictionary dictionary() const;

 private:
  using Entry = std::pair<NYBDynamicValue, NYBDynamicValue>;
  struct Chunk {
    std::vector<Entry> entries;
  };
  // Where an entry lives, counted over every position of every chunk.
  using Slot = std::size_t;

  Entry& entryAt(Slot slot) { return chunks_[slot / kChunkSize]->entries[slot % kChunkSize]; }
  const Entry& entryAt(Slot slot) const {
    return chunks_[slot / kChunkSize]->entries[slot % kChunkSize];
  }
  // The entry's chunk, this map's alone from now on.
  Entry& ownedEntryAt(Slot slot);
  using IndexEntry = std::unordered_multimap<std::size_t, Slot>::const_iterator;
  // The index entry of the key, or keys_.end() (builds the index first).
  IndexEntry indexOf(const NYBDynamicValue& key) const;
  void buildIndex() const;
  void indexEntry(Slot slot) const;
  void forgetName(const NYBDynamicValue& value) const;
  void pack();

  std::vector<std::shared_ptr<Chunk>> chunks_;
  // Per chunk: a copy may see it, so it is copied before any change.
  mutable std::vector<bool> shared_;
  std::size_t live_ = 0;
  std::size_t holes_ = 0;
  mutable bool indexed_ = true;
  mutable std::unordered_multimap<std::size_t, Slot> keys_;
  mutable std::unordered_map<std::string, std::size_t> names_;  // file name to entry count
};

}  // namespace nyb::session
