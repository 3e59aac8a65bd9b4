#include "NymbrelCore/NYBRunLoop.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace nyb {

struct NYBRunLoopSource::State {
  std::mutex mutex;
  std::shared_ptr<const std::function<void()>> handler;
  std::weak_ptr<NYBRunLoop::State> loop;
  bool pending = false;
  bool valid = true;
};

struct NYBRunLoop::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Task> tasks;
  std::vector<std::shared_ptr<NYBRunLoopSource::State>> sources;
  bool sourceSignalled = false;
  bool stopRequested = false;
  // The wake-up handler has been told of work since the last pass began.
  bool workAnnounced = false;
  std::shared_ptr<const std::function<void()>> wakeUpHandler;
  bool isMain = false;

  // Called with the lock held after work arrived; gives the handler to call
  // once the lock is released, if the host is to be told.
  std::shared_ptr<const std::function<void()>> announce() {
    changed.notify_all();
    if (workAnnounced || !wakeUpHandler) return nullptr;
    workAnnounced = true;
    return wakeUpHandler;
  }
  bool hasWork() const { return !tasks.empty() || sourceSignalled || stopRequested; }
};

namespace {

std::atomic<std::thread::id> mainThreadID{};

bool isInitialThread() { return ::syscall(SYS_gettid) == ::getpid(); }

std::shared_ptr<NYBRunLoop>& mainLoopPointer() {
  // Never destroyed: other threads may post to it while the process exits.
  static auto* const loop = new std::shared_ptr<NYBRunLoop>(std::make_shared<NYBRunLoop>());
  return *loop;
}

void callHandler(const std::shared_ptr<const std::function<void()>>& handler) {
  if (handler && *handler) (*handler)();
}

}  // namespace

// MARK: - Sources

NYBRunLoopSource::NYBRunLoopSource(std::function<void()> handler)
    : state_(std::make_shared<State>()) {
  state_->handler = std::make_shared<const std::function<void()>>(std::move(handler));
}

NYBRunLoopSource::~NYBRunLoopSource() { invalidate(); }

void NYBRunLoopSource::signal() {
  std::shared_ptr<NYBRunLoop::State> loop;
  {
    std::lock_guard lock(state_->mutex);
    if (!state_->valid) return;
    state_->pending = true;
    loop = state_->loop.lock();
  }
  if (!loop) return;
  std::shared_ptr<const std::function<void()>> handler;
  {
    std::lock_guard lock(loop->mutex);
    loop->sourceSignalled = true;
    handler = loop->announce();
  }
  callHandler(handler);
}

void NYBRunLoopSource::invalidate() {
  std::shared_ptr<NYBRunLoop::State> loop;
  {
    std::lock_guard lock(state_->mutex);
    state_->valid = false;
    state_->pending = false;
    loop = state_->loop.lock();
    state_->loop.reset();
  }
  if (!loop) return;
  std::lock_guard lock(loop->mutex);
  std::erase(loop->sources, state_);
}

bool NYBRunLoopSource::isValid() const {
  std::lock_guard lock(state_->mutex);
  return state_->valid;
}

// MARK: - Run loop

NYBRunLoop& NYBRunLoop::main() {
  static NYBRunLoop& loop = []() -> NYBRunLoop& {
    auto& pointer = mainLoopPointer();
    pointer->state_->isMain = true;
    return *pointer;
  }();
  return loop;
}

std::shared_ptr<NYBRunLoop> NYBRunLoop::current() {
  if (isMainThread()) {
    main();
    return mainLoopPointer();
  }
  thread_local const std::shared_ptr<NYBRunLoop> loop = std::make_shared<NYBRunLoop>();
  return loop;
}

bool NYBRunLoop::isMainThread() {
  const std::thread::id owner = mainThreadID.load(std::memory_order_acquire);
  if (owner != std::thread::id()) return owner == std::this_thread::get_id();
  return isInitialThread();
}

NYBRunLoop::NYBRunLoop() : state_(std::make_shared<State>()) {}

NYBRunLoop::~NYBRunLoop() {
  std::vector<std::shared_ptr<NYBRunLoopSource::State>> sources;
  {
    std::lock_guard lock(state_->mutex);
    sources.swap(state_->sources);
  }
  for (const auto& source : sources) {
    std::lock_guard lock(source->mutex);
    source->loop.reset();
  }
}

void NYBRunLoop::bindIfMain() {
  if (state_->isMain) mainThreadID.store(std::this_thread::get_id(), std::memory_order_release);
}

void NYBRunLoop::perform(Task task) {
  std::shared_ptr<const std::function<void()>> handler;
  {
    std::lock_guard lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
    handler = state_->announce();
  }
  callHandler(handler);
}

void NYBRunLoop::stop() {
  // A block of its own, so that what was posted before the stop still runs.
  perform([state = state_] {
    std::lock_guard lock(state->mutex);
    state->stopRequested = true;
  });
}

void NYBRunLoop::setWakeUpHandler(std::function<void()> handler) {
  std::lock_guard lock(state_->mutex);
  state_->wakeUpHandler =
      handler ? std::make_shared<const std::function<void()>>(std::move(handler)) : nullptr;
  state_->workAnnounced = false;
}

void NYBRunLoop::addSource(const std::shared_ptr<NYBRunLoopSource>& source) {
  if (!source) return;
  std::shared_ptr<State> previous;
  bool pending = false;
  {
    std::lock_guard lock(source->state_->mutex);
    if (!source->state_->valid) return;
    previous = source->state_->loop.lock();
    source->state_->loop = state_;
    pending = source->state_->pending;
  }
  if (previous && previous != state_) {
    std::lock_guard lock(previous->mutex);
    std::erase(previous->sources, source->state_);
  }
  std::shared_ptr<const std::function<void()>> handler;
  {
    std::lock_guard lock(state_->mutex);
    if (std::find(state_->sources.begin(), state_->sources.end(), source->state_) ==
        state_->sources.end()) {
      state_->sources.push_back(source->state_);
    }
    if (pending) {
      state_->sourceSignalled = true;
      handler = state_->announce();
    }
  }
  callHandler(handler);
}

void NYBRunLoop::removeSource(const std::shared_ptr<NYBRunLoopSource>& source) {
  if (!source) return;
  {
    std::lock_guard lock(source->state_->mutex);
    if (source->state_->loop.lock() == state_) source->state_->loop.reset();
  }
  std::lock_guard lock(state_->mutex);
  std::erase(state_->sources, source->state_);
}

std::size_t NYBRunLoop::runOnce(Clock::duration wait) {
  bindIfMain();
  State& s = *state_;
  std::unique_lock lock(s.mutex);
  if (!s.hasWork() && wait > Clock::duration::zero()) {
    s.changed.wait_for(lock, wait, [&] { return s.hasWork(); });
  }
  s.workAnnounced = false;

  // Only the blocks queued now: blocks that post blocks cannot keep a pass
  // going for ever. Each is taken off the queue just before it runs, so a
  // block that throws leaves the rest queued.
  std::size_t ran = 0;
  for (std::size_t count = s.tasks.size(); count > 0; --count) {
    Task task = std::move(s.tasks.front());
    s.tasks.pop_front();
    lock.unlock();
    if (task) task();
    // Released before the lock is taken again: what the block captured may
    // touch this loop when it is destroyed (a monitor stopping its notifier).
    task = nullptr;
    ++ran;
    lock.lock();
    if (s.stopRequested) return ran;  // the rest waits for the next run
  }

  if (!s.sourceSignalled) return ran;
  s.sourceSignalled = false;
  std::vector<std::shared_ptr<NYBRunLoopSource::State>> sources = s.sources;
  lock.unlock();
  std::size_t index = 0;
  try {
    for (; index < sources.size(); ++index) {
      std::shared_ptr<const std::function<void()>> handler;
      {
        std::lock_guard sourceLock(sources[index]->mutex);
        if (!sources[index]->valid || !sources[index]->pending) continue;
        sources[index]->pending = false;
        handler = sources[index]->handler;
      }
      callHandler(handler);
      ++ran;
    }
  } catch (...) {
    // The sources after the one that threw keep their signals for the next pass.
    std::lock_guard relock(s.mutex);
    s.sourceSignalled = true;
    throw;
  }
  return ran;
}

namespace {

// Takes a pending stop request, if any.
bool takeStop(std::mutex& mutex, bool& stopRequested) {
  std::lock_guard lock(mutex);
  return std::exchange(stopRequested, false);
}

}  // namespace

void NYBRunLoop::run() {
  while (!takeStop(state_->mutex, state_->stopRequested)) {
    runOnce(std::chrono::hours(24));
  }
}

void NYBRunLoop::runUntil(Clock::time_point deadline) {
  for (;;) {
    if (takeStop(state_->mutex, state_->stopRequested)) return;
    const auto now = Clock::now();
    if (now >= deadline) return;
    runOnce(deadline - now);
  }
}

bool NYBRunLoop::runUntil(const std::function<bool()>& predicate, Clock::duration timeout) {
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    if (predicate()) return true;
    if (takeStop(state_->mutex, state_->stopRequested)) return predicate();
    const auto now = Clock::now();
    if (now >= deadline) return false;
    runOnce(deadline - now);
  }
}

}  // namespace nyb
