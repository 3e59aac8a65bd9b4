// NYBRunLoop: a thread's loop of work: blocks posted to it and sources
// signalled to it run, one at a time, on the thread that drives it.
//
// The main run loop (NYBRunLoop::main()) is the one the host drives, with
// run(), runUntil(), runOnce(), or from its own event loop through the wake-up
// handler (called whenever work arrives for an idle loop; the host then calls
// runOnce() on its thread). The thread that drives the main run loop is "the
// main thread"; before it has ever been driven, the process's initial thread
// is. Every other thread has a run loop of its own, made on first use of
// current() and driven by that thread; work posted to it after the thread has
// ended is dropped.
//
// perform(), stop(), the wake-up handler and NYBRunLoopSource::signal() may
// be used from any thread. run(), runUntil() and runOnce() are called by the
// one thread that drives the loop, never by two threads at once; a block may
// not drive its own loop again. A block that throws leaves the loop with the
// exception; blocks not yet run stay queued.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace nyb {

class NYBRunLoop;

// A source of work on a run loop: signal() from any thread makes its handler
// run once on the loop's thread soon after; signals that arrive before it
// runs are folded into one call. Once invalidate() has returned on the loop's
// thread the handler is never called again (invalidated from another thread,
// a call already under way may still finish).
class NYB_EXPORT NYBRunLoopSource {
 public:
  explicit NYBRunLoopSource(std::function<void()> handler);
  ~NYBRunLoopSource();
  NYBRunLoopSource(const NYBRunLoopSource&) = delete;
  NYBRunLoopSource& operator=(const NYBRunLoopSource&) = delete;

  void signal();
  void invalidate();
  bool isValid() const;

 private:
  friend class NYBRunLoop;
  struct State;
  std::shared_ptr<State> state_;
};

class NYB_EXPORT NYBRunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;

  // The main run loop; lives as long as the process.
  static NYBRunLoop& main();
  // The run loop of the calling thread (the main run loop on the main thread).
  static std::shared_ptr<NYBRunLoop> current();
  static bool isMainThread();

  NYBRunLoop();
  ~NYBRunLoop();
  NYBRunLoop(const NYBRunLoop&) = delete;
  NYBRunLoop& operator=(const NYBRunLoop&) = delete;

  // Queues a block; blocks run in the order they were posted.
  void perform(Task task);

  // Runs until stop() is called.
  void run();
  // Runs until the deadline passes or stop() is called.
  void runUntil(Clock::time_point deadline);
  // Runs until the predicate holds (checked before waiting and after each
  // pass) or the timeout passes or stop() is called; gives the predicate's
  // last value. The predicate runs on the driving thread; a change made by
  // another thread without posting to the loop is seen only at the next
  // pass.
  bool runUntil(const std::function<bool()>& predicate, Clock::duration timeout);
  // One pass: waits up to `wait` for work, then runs the blocks queued at that
  // moment and the signalled sources. Gives how many ran.
  std::size_t runOnce(Clock::duration wait = Clock::duration::zero());
  // Makes the run() or runUntil() under way return once the blocks posted
  // before the stop have run; with none under way, the next one returns at
  // that point.
  void stop();

  // Adds a source; its signals run its handler on this loop. A source belongs
  // to one loop at a time.
  void addSource(const std::shared_ptr<NYBRunLoopSource>& source);
  void removeSource(const std::shared_ptr<NYBRunLoopSource>& source);

  // Called, on the posting thread, when work arrives while none was pending
  // since the last pass; a host answers by calling runOnce() on the driving
  // thread. Must be cheap and must not call back into the loop. An empty
  // function removes it.
  void setWakeUpHandler(std::function<void()> handler);

 private:
  friend class NYBRunLoopSource;
  struct State;
  void bindIfMain();
  std::shared_ptr<State> state_;
};

}  // namespace nyb
