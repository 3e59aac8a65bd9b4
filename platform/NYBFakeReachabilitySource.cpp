#include "NymbrelCore/NYBFakeReachabilitySource.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "platform/ReachabilityDelivery.h"

namespace nyb {

namespace {

class FakeTarget;

}  // namespace

struct NYBFakeReachabilitySource::State {
  mutable std::mutex mutex;
  NYBReachabilityFlags flags = 0;
  bool readable = true;
  bool failsCreation = false;
  bool failsSettingCallback = false;
  bool failsScheduling = false;
  std::vector<Request> requests;
  std::vector<FakeTarget*> targets;  // alive; each removes itself when destroyed
};

namespace {

class FakeTarget : public NYBReachabilityTarget {
 public:
  explicit FakeTarget(std::shared_ptr<NYBFakeReachabilitySource::State> state)
      : state_(std::move(state)),
        delivery_(
            [weak = std::weak_ptr<NYBFakeReachabilitySource::State>(state_)](
                NYBReachabilityFlags& flags) {
              auto state = weak.lock();
              if (!state) return false;
              std::lock_guard lock(state->mutex);
              flags = state->flags;
              return state->readable;
            },
            /*changesOnly=*/false) {
    std::lock_guard lock(state_->mutex);
    state_->targets.push_back(this);
  }

  ~FakeTarget() override {
    delivery_.unschedule();
    std::lock_guard lock(state_->mutex);
    std::erase(state_->targets, this);
  }

  bool getFlags(NYBReachabilityFlags& flags) override {
    std::lock_guard lock(state_->mutex);
    if (!state_->readable) return false;
    flags = state_->flags;
    return true;
  }

  bool setCallback(Callback callback) override {
    {
      std::lock_guard lock(state_->mutex);
      if (state_->failsSettingCallback) return false;
    }
    delivery_.setCallback(std::move(callback));
    return true;
  }

  bool scheduleWithRunLoop(const std::shared_ptr<NYBRunLoop>& loop) override {
    {
      std::lock_guard lock(state_->mutex);
      if (state_->failsScheduling || !loop) return false;
    }
    delivery_.schedule(loop);
    return true;
  }

  void unscheduleFromRunLoop() override { delivery_.unschedule(); }

  // Called with the state's lock held.
  bool isScheduled() const { return delivery_.isScheduled(); }
  void signal() { delivery_.signal(); }

 private:
  std::shared_ptr<NYBFakeReachabilitySource::State> state_;
  ReachabilityDelivery delivery_;
};

}  // namespace

NYBFakeReachabilitySource::NYBFakeReachabilitySource(NYBReachabilityFlags flags)
    : state_(std::make_shared<State>()) {
  state_->flags = flags;
}

NYBFakeReachabilitySource::~NYBFakeReachabilitySource() = default;

std::unique_ptr<NYBReachabilityTarget> NYBFakeReachabilitySource::createWithName(
    std::string_view hostName) {
  {
    std::lock_guard lock(state_->mutex);
    Request request;
    request.hostName = std::string(hostName);
    state_->requests.push_back(std::move(request));
    if (state_->failsCreation || hostName.empty()) return nullptr;
  }
  return std::make_unique<FakeTarget>(state_);
}

std::unique_ptr<NYBReachabilityTarget> NYBFakeReachabilitySource::createWithAddress(
    const sockaddr* address) {
  {
    std::lock_guard lock(state_->mutex);
    Request request;
    std::size_t length = 0;
    if (address != nullptr && address->sa_family == AF_INET) length = sizeof(sockaddr_in);
    if (address != nullptr && address->sa_family == AF_INET6) length = sizeof(sockaddr_in6);
    if (length != 0) std::memcpy(&request.address, address, length);
    state_->requests.push_back(request);
    if (state_->failsCreation || length == 0) return nullptr;
  }
  return std::make_unique<FakeTarget>(state_);
}

NYBReachabilityFlags NYBFakeReachabilitySource::flags() const {
  std::lock_guard lock(state_->mutex);
  return state_->flags;
}

void NYBFakeReachabilitySource::setFlags(NYBReachabilityFlags flags) {
  std::lock_guard lock(state_->mutex);
  state_->flags = flags;
  // Signalling only marks each target's run-loop source; nothing runs here.
  for (FakeTarget* target : state_->targets) target->signal();
}

void NYBFakeReachabilitySource::setFlagsReadable(bool readable) {
  std::lock_guard lock(state_->mutex);
  state_->readable = readable;
}

void NYBFakeReachabilitySource::setFailsCreation(bool fails) {
  std::lock_guard lock(state_->mutex);
  state_->failsCreation = fails;
}

void NYBFakeReachabilitySource::setFailsSettingCallback(bool fails) {
  std::lock_guard lock(state_->mutex);
  state_->failsSettingCallback = fails;
}

void NYBFakeReachabilitySource::setFailsScheduling(bool fails) {
  std::lock_guard lock(state_->mutex);
  state_->failsScheduling = fails;
}

std::vector<NYBFakeReachabilitySource::Request> NYBFakeReachabilitySource::requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

std::size_t NYBFakeReachabilitySource::liveTargetCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->targets.size();
}

std::size_t NYBFakeReachabilitySource::scheduledTargetCount() const {
  std::lock_guard lock(state_->mutex);
  return static_cast<std::size_t>(std::count_if(state_->targets.begin(), state_->targets.end(),
                                                [](FakeTarget* t) { return t->isScheduled(); }));
}

}  // namespace nyb
