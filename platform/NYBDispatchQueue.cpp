#include "NymbrelCore/NYBDispatchQueue.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

#include "NymbrelCore/NYBRunLoop.h"

namespace nyb {

struct NYBDispatchQueue::Worker {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Task> tasks;
  bool stopping = false;
  std::thread thread;
  std::thread::id threadID;

  // Runs on the queue's thread until stopped and drained. The worker is kept
  // alive by the thread itself, so a queue destroyed by its own block is safe.
  static void loop(const std::shared_ptr<Worker>& self) {
    std::unique_lock lock(self->mutex);
    for (;;) {
      self->changed.wait(lock, [&] { return self->stopping || !self->tasks.empty(); });
      if (self->tasks.empty()) return;
      Task task = std::move(self->tasks.front());
      self->tasks.pop_front();
      lock.unlock();
      if (task) task();
      task = nullptr;  // its captures are released on the queue's thread
      lock.lock();
    }
  }
};

NYBDispatchQueue& NYBDispatchQueue::main() {
  // Never destroyed: blocks may be posted to it while the process exits.
  static NYBDispatchQueue* const queue = new NYBDispatchQueue(MainTag{});
  return *queue;
}

NYBDispatchQueue::NYBDispatchQueue(MainTag) : label_("main") {}

NYBDispatchQueue::NYBDispatchQueue(std::string label)
    : label_(std::move(label)), worker_(std::make_shared<Worker>()) {
  std::lock_guard lock(worker_->mutex);
  worker_->thread = std::thread(&Worker::loop, worker_);
  worker_->threadID = worker_->thread.get_id();
}

NYBDispatchQueue::~NYBDispatchQueue() {
  if (!worker_) return;
  {
    std::lock_guard lock(worker_->mutex);
    worker_->stopping = true;
  }
  worker_->changed.notify_all();
  if (worker_->thread.get_id() == std::this_thread::get_id()) {
    worker_->thread.detach();
  } else {
    worker_->thread.join();
  }
}

const std::string& NYBDispatchQueue::label() const { return label_; }

void NYBDispatchQueue::async(Task task) {
  if (!worker_) {
    NYBRunLoop::main().perform(std::move(task));
    return;
  }
  {
    std::lock_guard lock(worker_->mutex);
    worker_->tasks.push_back(std::move(task));
  }
  worker_->changed.notify_one();
}

bool NYBDispatchQueue::isCurrent() const {
  if (!worker_) return NYBRunLoop::isMainThread();
  std::lock_guard lock(worker_->mutex);
  return worker_->threadID == std::this_thread::get_id();
}

void NYBDispatchQueue::sync(const Task& task) {
  if (isCurrent()) {
    if (task) task();
    return;
  }
  std::promise<void> done;
  async([&] {
    try {
      if (task) task();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  done.get_future().get();
}

void NYBDispatchQueue::flush() { sync(Task()); }

}  // namespace nyb
