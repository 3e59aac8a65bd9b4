#include "NymbrelCore/NYBNotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBObject.h"

namespace nyb {

NYBNotification::NYBNotification(std::string name, NYBDynamicValue object, NYBDictionary userInfo)
    : name_(std::move(name)), object_(std::move(object)), userInfo_(std::move(userInfo)) {}

namespace {

struct Observer {
  std::uint64_t id = 0;
  std::optional<std::string> name;
  // An object filter: held weakly, matched by identity.
  bool filtersObject = false;
  std::weak_ptr<NYBObject> object;
  // Any other filter value, matched by equality; absent for no filter.
  NYBDynamicValue value;
  NYBNotificationCenter::Block block;
  std::atomic<bool> removed{false};

  bool matches(const NYBNotification& notification) const {
    if (name && *name != notification.name()) return false;
    if (filtersObject) {
      const std::shared_ptr<NYBObject>& posted = notification.object().object();
      if (!posted) return false;
      // Same control block: the very object that was registered, never a
      // later object at a reused address.
      return !object.owner_before(posted) && !posted.owner_before(object) && !object.expired();
    }
    return value.isAbsent() || value.isEqual(notification.object());
  }
};

}  // namespace

struct NYBNotificationCenter::State {
  mutable std::mutex mutex;
  std::vector<std::shared_ptr<Observer>> observers;
  std::uint64_t nextID = 1;
};

NYBNotificationCenter& NYBNotificationCenter::defaultCenter() {
  // Never destroyed: observers may post while the process exits.
  static auto* const center = new NYBNotificationCenter();
  return *center;
}

NYBNotificationCenter::NYBNotificationCenter() : state_(std::make_shared<State>()) {}

NYBNotificationCenter::~NYBNotificationCenter() = default;

NYBNotificationToken NYBNotificationCenter::addObserverForName(std::optional<std::string> name,
                                                               const NYBDynamicValue& object,
                                                               Block block) {
  auto observer = std::make_shared<Observer>();
  observer->name = std::move(name);
  if (object.isObject()) {
    observer->filtersObject = true;
    observer->object = object.object();
  } else {
    observer->value = object;
  }
  observer->block = std::move(block);
  std::lock_guard lock(state_->mutex);
  observer->id = state_->nextID++;
  state_->observers.push_back(observer);
  return NYBNotificationToken(observer->id);
}

NYBScopedObserver NYBNotificationCenter::addScopedObserverForName(std::optional<std::string> name,
                                                                  const NYBDynamicValue& object,
                                                                  Block block) {
  NYBNotificationToken token = addObserverForName(std::move(name), object, std::move(block));
  return NYBScopedObserver(std::weak_ptr<void>(state_), token);
}

NYBScopedObserver::NYBScopedObserver(NYBScopedObserver&& other) noexcept
    : center_(std::move(other.center_)), token_(std::exchange(other.token_, {})) {}

NYBScopedObserver& NYBScopedObserver::operator=(NYBScopedObserver&& other) noexcept {
  if (this != &other) {
    reset();
    center_ = std::move(other.center_);
    token_ = std::exchange(other.token_, {});
  }
  return *this;
}

void NYBScopedObserver::reset() {
  const NYBNotificationToken token = std::exchange(token_, {});
  if (auto center = center_.lock()) {
    NYBNotificationCenter::removeObserver(
        *std::static_pointer_cast<NYBNotificationCenter::State>(center), token);
  }
  center_.reset();
}

void NYBNotificationCenter::removeObserver(const NYBNotificationToken& token) {
  removeObserver(*state_, token);
}

void NYBNotificationCenter::removeObserver(State& state, const NYBNotificationToken& token) {
  if (!token.isValid()) return;
  std::shared_ptr<Observer> removed;
  {
    std::lock_guard lock(state.mutex);
    auto& observers = state.observers;
    auto it = std::find_if(observers.begin(), observers.end(),
                           [&](const auto& o) { return o->id == token.id_; });
    if (it == observers.end()) return;
    removed = std::move(*it);
    observers.erase(it);
  }
  removed->removed.store(true, std::memory_order_release);
  // The block (and what it captured) is released here, outside the lock,
  // unless a delivery under way still holds the observer.
}

void NYBNotificationCenter::postNotification(const NYBNotification& notification) {
  std::vector<std::shared_ptr<Observer>> matching;
  {
    std::lock_guard lock(state_->mutex);
    for (const auto& observer : state_->observers) {
      if (observer->matches(notification)) matching.push_back(observer);
    }
  }
  for (const auto& observer : matching) {
    if (observer->removed.load(std::memory_order_acquire)) continue;
    if (observer->block) observer->block(notification);
  }
}

void NYBNotificationCenter::postNotificationName(std::string name, NYBDynamicValue object,
                                                 NYBDictionary userInfo) {
  postNotification(NYBNotification(std::move(name), std::move(object), std::move(userInfo)));
}

std::size_t NYBNotificationCenter::observerCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->observers.size();
}

}  // namespace nyb
