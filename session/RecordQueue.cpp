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

RecordQueue::RecordQueue(const RecordQueue& other)
    : spine_(other.spine_),
      spineShared_(true),
      tailShared_(true),
      first_(other.first_),
      head_(other.head_),
      size_(other.size_) {
  other.spineShared_ = other.tailShared_ = true;
}

RecordQueue& RecordQueue::operator=(const RecordQueue& other) {
  if (this != &other) *this = RecordQueue(other);
  return *this;
}

RecordQueue::Spine& RecordQueue::ownSpine() {
  if (!spine_) {
    spine_ = std::make_shared<Spine>();
    first_ = 0;
  } else if (spineShared_) {
    auto copy = std::make_shared<Spine>();
    copy->chunks.assign(spine_->chunks.begin() + static_cast<std::ptrdiff_t>(first_),
                        spine_->chunks.end());
    spine_ = std::move(copy);
    first_ = 0;
  }
  spineShared_ = false;
  return *spine_;
}

void RecordQueue::pushBack(Element element) {
  auto& chunks = ownSpine().chunks;
  if (chunks.size() == first_ || chunks.back()->elements.size() == kChunkSize) {
    chunks.push_back(std::make_shared<Chunk>());
    chunks.back()->elements.reserve(kChunkSize);
  } else if (tailShared_) {
    auto copy = std::make_shared<Chunk>();
    copy->elements.reserve(kChunkSize);
    copy->elements = chunks.back()->elements;
    chunks.back() = std::move(copy);
  }
  tailShared_ = false;
  chunks.back()->elements.push_back(std::move(element));
  ++size_;
}

void RecordQueue::popFront() {
  if (size_ == 0) return;
  --size_;
  if (++head_ < spine_->chunks[first_]->elements.size()) return;
  ++first_;
  head_ = 0;
  if (size_ == 0) {
    spine_.reset();
    first_ = 0;
  } else if (first_ * 2 > spine_->chunks.size()) {
    // Amortised: the live chunks are fewer than the emptied ones.
    if (spineShared_) {
      ownSpine();
    } else {
      spine_->chunks.erase(spine_->chunks.begin(),
                           spine_->chunks.begin() + static_cast<std::ptrdiff_t>(first_));
      first_ = 0;
    }
  }
}

}  // namespace nyb::session
