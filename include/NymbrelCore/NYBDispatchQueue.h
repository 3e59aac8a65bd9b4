// NYBDispatchQueue: a serial queue of blocks.
//
// NYBDispatchQueue::main() is the main queue: its blocks run on the main run
// loop (NYBRunLoop::main()), on the main thread, when the host drives it.
// A queue made with a label runs its blocks one at a time, in order, on a
// thread of its own that it starts when made; destroying it runs the blocks
// already queued, then ends the thread (destroyed by one of its own blocks, it
// lets the thread finish on its own).
//
// async() may be called from any thread. sync() runs a block and waits for
// it; called on the queue's own thread it runs the block at once instead of
// waiting for itself. flush() waits until every block queued before it has
// run. The main queue's sync() and flush() need the main run loop to be
// driven by another thread, unless called on the main thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <functional>
#include <memory>
#include <string>

namespace nyb {

class NYB_EXPORT NYBDispatchQueue {
 public:
  using Task = std::function<void()>;

  // The main queue; lives as long as the process.
  static NYBDispatchQueue& main();

  explicit NYBDispatchQueue(std::string label);
  ~NYBDispatchQueue();
  NYBDispatchQueue(const NYBDispatchQueue&) = delete;
  NYBDispatchQueue& operator=(const NYBDispatchQueue&) = delete;

  const std::string& label() const;
  void async(Task task);
  void sync(const Task& task);
  void flush();
  // Whether the calling thread is the one that runs this queue's blocks.
  bool isCurrent() const;

 private:
  struct MainTag {};
  explicit NYBDispatchQueue(MainTag);
  struct Worker;
  std::string label_;
  std::shared_ptr<Worker> worker_;  // null for the main queue
};

}  // namespace nyb
