#include <utility>
#include <vector>

#include "NymbrelCore/NYBApplication.h"

namespace nyb {

NYBBackgroundTaskDelegate::~NYBBackgroundTaskDelegate() = default;

// MARK: - The counting delegate

NYBBackgroundTaskIdentifier NYBCountingBackgroundTaskDelegate::beginBackgroundTask(
    ExpirationHandler handler) {
  std::lock_guard lock(mutex_);
  const NYBBackgroundTaskIdentifier identifier = next_++;
  open_.emplace(identifier, std::move(handler));
  ++began_;
  return identifier;
}

void NYBCountingBackgroundTaskDelegate::endBackgroundTask(NYBBackgroundTaskIdentifier identifier) {
  ExpirationHandler released;
  std::lock_guard lock(mutex_);
  auto it = open_.find(identifier);
  if (it == open_.end()) {
    ++strayEnds_;
    return;
  }
  released = std::move(it->second);
  open_.erase(it);
}

std::size_t NYBCountingBackgroundTaskDelegate::openTaskCount() const {
  std::lock_guard lock(mutex_);
  return open_.size();
}

std::size_t NYBCountingBackgroundTaskDelegate::beganTaskCount() const {
  std::lock_guard lock(mutex_);
  return began_;
}

std::size_t NYBCountingBackgroundTaskDelegate::strayEndCount() const {
  std::lock_guard lock(mutex_);
  return strayEnds_;
}

std::size_t NYBCountingBackgroundTaskDelegate::expireOpenTasks() {
  std::vector<ExpirationHandler> handlers;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [identifier, handler] : open_) handlers.push_back(handler);
  }
  // Outside the lock: each handler ends its own task.
  for (const auto& handler : handlers) {
    if (handler) handler();
  }
  return handlers.size();
}

// MARK: - The application object

NYBApplication& NYBApplication::sharedApplication() {
  // Never destroyed: a write queue may end its task while the process exits.
  static auto* const application = new NYBApplication();
  return *application;
}

NYBApplication::NYBApplication()
    : delegate_(std::make_shared<NYBCountingBackgroundTaskDelegate>()) {}

NYBBackgroundTaskIdentifier NYBApplication::beginBackgroundTaskWithExpirationHandler(
    std::function<void()> handler) {
  return backgroundTaskDelegate()->beginBackgroundTask(std::move(handler));
}

void NYBApplication::endBackgroundTask(NYBBackgroundTaskIdentifier identifier) {
  if (identifier == NYBBackgroundTaskInvalid) return;
  backgroundTaskDelegate()->endBackgroundTask(identifier);
}

std::shared_ptr<NYBBackgroundTaskDelegate> NYBApplication::backgroundTaskDelegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void NYBApplication::setBackgroundTaskDelegate(
    std::shared_ptr<NYBBackgroundTaskDelegate> delegate) {
  if (!delegate) delegate = std::make_shared<NYBCountingBackgroundTaskDelegate>();
  std::lock_guard lock(mutex_);
  delegate_.swap(delegate);
  // The previous delegate is released after the lock, with `delegate`.
}

}  // namespace nyb
