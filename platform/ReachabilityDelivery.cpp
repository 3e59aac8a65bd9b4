#include "platform/ReachabilityDelivery.h"

#include <utility>

#include "NymbrelCore/NYBRunLoop.h"

namespace nyb {

NYBReachabilityTarget::~NYBReachabilityTarget() = default;
NYBReachabilitySource::~NYBReachabilitySource() = default;

ReachabilityDelivery::ReachabilityDelivery(FlagReader reader, bool changesOnly)
    : shared_(std::make_shared<Shared>()) {
  shared_->reader = std::move(reader);
  shared_->changesOnly = changesOnly;
}

ReachabilityDelivery::~ReachabilityDelivery() { unschedule(); }

void ReachabilityDelivery::setCallback(NYBReachabilityTarget::Callback callback) {
  std::lock_guard lock(shared_->mutex);
  shared_->callback = std::move(callback);
}

void ReachabilityDelivery::schedule(const std::shared_ptr<NYBRunLoop>& loop) {
  unschedule();
  if (!loop) return;
  std::optional<NYBReachabilityFlags> baseline;
  if (shared_->changesOnly) {
    NYBReachabilityFlags flags = 0;
    if (shared_->reader(flags)) baseline = flags;
  }
  auto source = std::make_shared<NYBRunLoopSource>(
      [weak = std::weak_ptr<Shared>(shared_)] { deliver(weak.lock()); });
  {
    std::lock_guard lock(shared_->mutex);
    shared_->last = baseline;
    shared_->source = source;
    shared_->loop = loop;
  }
  loop->addSource(source);
}

void ReachabilityDelivery::unschedule() {
  std::shared_ptr<NYBRunLoopSource> source;
  std::shared_ptr<NYBRunLoop> loop;
  {
    std::lock_guard lock(shared_->mutex);
    source = std::move(shared_->source);
    loop = shared_->loop.lock();
    shared_->source.reset();
    shared_->loop.reset();
  }
  if (!source) return;
  source->invalidate();
  if (loop) loop->removeSource(source);
}

bool ReachabilityDelivery::isScheduled() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->source != nullptr;
}

void ReachabilityDelivery::signal() {
  std::shared_ptr<NYBRunLoopSource> source;
  {
    std::lock_guard lock(shared_->mutex);
    source = shared_->source;
  }
  if (source) source->signal();
}

void ReachabilityDelivery::deliver(const std::shared_ptr<Shared>& shared) {
  if (!shared) return;
  NYBReachabilityFlags flags = 0;
  if (!shared->reader(flags)) return;
  NYBReachabilityTarget::Callback callback;
  {
    std::lock_guard lock(shared->mutex);
    if (!shared->source) return;  // unscheduled meanwhile
    if (shared->changesOnly && shared->last == flags) return;
    shared->last = flags;
    callback = shared->callback;
  }
  if (callback) callback(flags);
}

}  // namespace nyb
