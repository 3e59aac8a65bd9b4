// The upload queue's storage: a sequence of queued elements in chunks, so that
// appending at the tail and removing the head cost the same whatever the
// backlog, and a copy (the snapshot a save hands to the write queue) shares
// all of it with the original.
//
// The list of chunks (the spine) and the chunks are shared between copies and
// never changed once a copy may see them: a queue that was copied copies the
// spine (one pointer per chunk) and its tail chunk (at most kChunkSize
// pointers) at its next append, and changes them in place from then on until
// it is copied again. Removing the head only moves offsets (emptied chunks
// are let go once they outnumber the live ones). So a copy costs a reference
// count, removing the head a constant, and an append a constant, or one pass
// over the spine when it is the first since a copy. Whether a copy may see
// them is tracked by flags, not reference counts, which another thread may
// be lowering without any ordering with this one.
//
// Each element keeps its value (a record) and the bytes the archive holds for
// it, and makes either from the other once, when first asked: a record loaded
// from the archive is decoded only when it is needed, and a save joins the
// bytes kept from the last one instead of encoding every record again. That is
// sound because a queued record never changes: the session queues its own
// copies, and nothing changes them in place. Elements are shared between the
// live queue (main thread) and snapshots (write queue), so each guards itself.
// A RecordQueue itself is a plain value, used by one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb::session {

class QueuedElement {
 public:
  explicit QueuedElement(NYBDynamicValue value) : value_(std::move(value)) {}
  // An element still encoded: `bytes` lie inside `archive`.
  QueuedElement(std::shared_ptr<const NYBData> archive, std::string_view bytes)
      : archive_(std::move(archive)), bytes_(bytes) {}

  // The value, decoded the first time. Damage raises an NYBException named
  // NSInvalidUnarchiveOperationException, again at each call.
  NYBDynamicValue value() const;
  // The archive bytes, encoded the first time; they live as long as the
  // element. Raises NYBInvalidArgumentException for what cannot be archived.
  std::string_view encoded() const;

 private:
  mutable std::mutex mutex_;
  mutable NYBDynamicValue value_;
  mutable std::shared_ptr<const NYBData> archive_;  // owns bytes_
  mutable std::string_view bytes_;
};

class RecordQueue {
 public:
  using Element = std::shared_ptr<const QueuedElement>;
  static constexpr std::size_t kChunkSize = 256;

  RecordQueue() = default;
  // Shares everything; from now on neither queue changes what the other sees.
  RecordQueue(const RecordQueue& other);
  RecordQueue& operator=(const RecordQueue& other);
  RecordQueue(RecordQueue&&) noexcept = default;
  RecordQueue& operator=(RecordQueue&&) noexcept = default;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  // Undefined on an empty queue.
  const Element& front() const { return spine_->chunks[first_]->elements[head_]; }
  void pushBack(Element element);
  // Nothing on an empty queue.
  void popFront();

  // Calls f(element) for each, head first.
  template <typename F>
  void forEach(F&& f) const {
    if (!spine_) return;
    std::size_t offset = head_;
    for (std::size_t chunk = first_; chunk < spine_->chunks.size(); ++chunk, offset = 0) {
      const auto& elements = spine_->chunks[chunk]->elements;
      for (std::size_t i = offset; i < elements.size(); ++i) f(elements[i]);
    }
  }

 private:
  struct Chunk {
    std::vector<Element> elements;
  };
  struct Spine {
    std::vector<std::shared_ptr<Chunk>> chunks;
  };
  // The spine, this queue's alone: a shared one is copied (its live chunks).
  Spine& ownSpine();

  std::shared_ptr<Spine> spine_;
  // A copy may see the spine, or the tail chunk: change neither in place.
  mutable bool spineShared_ = false;
  mutable bool tailShared_ = false;
  std::size_t first_ = 0;  // chunks before it are emptied
  std::size_t head_ = 0;   // the head's position in chunk first_
  std::size_t size_ = 0;
};

}  // namespace nyb::session
