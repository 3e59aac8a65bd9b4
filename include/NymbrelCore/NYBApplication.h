// NYBApplication: the application object's background-task service, which
// keeps work (a request in flight, an archive write) alive when the host is
// about to be suspended.
//
// beginBackgroundTaskWithExpirationHandler() opens a task and gives its
// identifier; endBackgroundTask() closes it. Whoever opens a task ends it
// exactly once, either when the work is done or from the expiration handler,
// which runs when the host's time runs out; ending NYBBackgroundTaskInvalid
// does nothing. The actual bookkeeping is done by a replaceable delegate: a
// host that has a real notion of suspension installs its own, and tests
// install a fresh NYBCountingBackgroundTaskDelegate to check that every task
// was ended exactly once. The default delegate counts open tasks and never
// expires them.
//
// Every operation may be called from any thread (a write queue ends the task
// that the main thread began). Replace the delegate while no task is open:
// a task is ended through the delegate installed at the time of the end.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace nyb {

using NYBBackgroundTaskIdentifier = std::uint64_t;
inline constexpr NYBBackgroundTaskIdentifier NYBBackgroundTaskInvalid = 0;

class NYB_EXPORT NYBBackgroundTaskDelegate {
 public:
  using ExpirationHandler = std::function<void()>;
  virtual ~NYBBackgroundTaskDelegate();
  // Opens a task; never gives NYBBackgroundTaskInvalid unless the task could
  // not be opened.
  virtual NYBBackgroundTaskIdentifier beginBackgroundTask(ExpirationHandler handler) = 0;
  // Never called with NYBBackgroundTaskInvalid.
  virtual void endBackgroundTask(NYBBackgroundTaskIdentifier identifier) = 0;
};

// Counts tasks and keeps their expiration handlers; nothing ever expires a
// task by itself, but expireOpenTasks() lets a test play the host running
// out of time.
class NYB_EXPORT NYBCountingBackgroundTaskDelegate : public NYBBackgroundTaskDelegate {
 public:
  NYBBackgroundTaskIdentifier beginBackgroundTask(ExpirationHandler handler) override;
  void endBackgroundTask(NYBBackgroundTaskIdentifier identifier) override;

  // Tasks begun and not yet ended.
  std::size_t openTaskCount() const;
  // Tasks begun since the delegate was made.
  std::size_t beganTaskCount() const;
  // Ends of an identifier that was not open (never begun, or ended before).
  std::size_t strayEndCount() const;
  // Calls the expiration handler of every task open now, on the calling
  // thread, oldest first; gives how many were called. A handler is expected
  // to end its task.
  std::size_t expireOpenTasks();

 private:
  mutable std::mutex mutex_;
  std::map<NYBBackgroundTaskIdentifier, ExpirationHandler> open_;
  NYBBackgroundTaskIdentifier next_ = 1;
  std::size_t began_ = 0;
  std::size_t strayEnds_ = 0;
};

class NYB_EXPORT NYBApplication {
 public:
  // The process's application object.
  static NYBApplication& sharedApplication();

  NYBBackgroundTaskIdentifier beginBackgroundTaskWithExpirationHandler(
      std::function<void()> handler);
  void endBackgroundTask(NYBBackgroundTaskIdentifier identifier);

  // The delegate in use; never null.
  std::shared_ptr<NYBBackgroundTaskDelegate> backgroundTaskDelegate() const;
  // Installs a delegate; null puts a fresh counting delegate back.
  void setBackgroundTaskDelegate(std::shared_ptr<NYBBackgroundTaskDelegate> delegate);

 private:
  NYBApplication();
  mutable std::mutex mutex_;
  std::shared_ptr<NYBBackgroundTaskDelegate> delegate_;
};

}  // namespace nyb
