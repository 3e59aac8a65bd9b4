#include "session/RecordQueue.h"

#include "model/ArchiveElements.h"

namespace nyb::session {

NYBDynamicValue QueuedElement::value() const {
  std::lock_guard lock(mutex_);
  if (value_.isAbsent()) value_ = archive::decodeElement(bytes_);
  return value_;
}

std::string_view QueuedElement::encoded() const {
  std::lock_guard lock(mutex_);
  if (!archive_) {
    archive_ = std::make_shared<const NYBData>(archive::encodedElement(value_));
    bytes_ = std::string_view(reinterpret_cast<const char*>(archive_->bytes()), archive_->length());
  }
  return bytes_;
}

// Only the live chunks are copied, so a copy never carries the emptied ones.
RecordQueue::RecordQueue(const RecordQueue& other)
    : chunks_(other.chunks_.begin() + static_cast<std::ptrdiff_t>(other.first_),
              other.chunks_.end()),
      head_(other.head_),
      size_(other.size_) {}

RecordQueue& RecordQueue::operator=(const RecordQueue& other) {
  if (this != &other) *this = RecordQueue(other);
  return *this;
}

void RecordQueue::pushBack(Element element) {
  if (chunks_.size() == first_ || chunks_.back()->elements.size() == kChunkSize) {
    chunks_.push_back(std::make_shared<Chunk>());
    chunks_.back()->elements.reserve(kChunkSize);
  } else if (chunks_.back().use_count() > 1) {
    // Shared with a copy: appending in place would change what it holds.
    auto copy = std::make_shared<Chunk>();
    copy->elements.reserve(kChunkSize);
    copy->elements = chunks_.back()->elements;
    chunks_.back() = std::move(copy);
  }
  chunks_.back()->elements.push_back(std::move(element));
  ++size_;
}

void RecordQueue::popFront() {
  if (size_ == 0) return;
  --size_;
  if (++head_ < chunks_[first_]->elements.size()) return;
  chunks_[first_++].reset();
  head_ = 0;
  if (size_ == 0) {
    chunks_.clear();
    first_ = 0;
  } else if (first_ * 2 > chunks_.size()) {
    // Amortised: each emptied slot is moved at most once.
    chunks_.erase(chunks_.begin(), chunks_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
  }
}

}  // namespace nyb::session
