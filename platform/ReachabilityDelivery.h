// Delivery of one reachability target's flags on the run loop it is
// scheduled on. Any thread may signal() that the flags may have changed; the
// signals fold into one pass on the loop's thread, which reads the flags and
// calls the target's callback with them (only when they differ from the last
// flags seen, for a delivery made with changesOnly).
//
// setCallback(), schedule(), unschedule() and destruction happen on the
// thread that owns the target; signal() from any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "NymbrelCore/NYBReachabilitySource.h"

namespace nyb {

class NYBRunLoop;
class NYBRunLoopSource;

class ReachabilityDelivery {
 public:
  // Reads the flags now; false when they cannot be read (nothing is
  // delivered then).
  using FlagReader = std::function<bool(NYBReachabilityFlags&)>;

  ReachabilityDelivery(FlagReader reader, bool changesOnly);
  ~ReachabilityDelivery();
  ReachabilityDelivery(const ReachabilityDelivery&) = delete;
  ReachabilityDelivery& operator=(const ReachabilityDelivery&) = delete;

  void setCallback(NYBReachabilityTarget::Callback callback);
  // Attaches to the loop (leaving any earlier one); with changesOnly, the
  // flags read now are the baseline.
  void schedule(const std::shared_ptr<NYBRunLoop>& loop);
  void unschedule();
  bool isScheduled() const;
  void signal();

 private:
  struct Shared {
    std::mutex mutex;
    FlagReader reader;
    bool changesOnly = false;
    NYBReachabilityTarget::Callback callback;
    std::optional<NYBReachabilityFlags> last;
    std::shared_ptr<NYBRunLoopSource> source;
    std::weak_ptr<NYBRunLoop> loop;
  };
  static void deliver(const std::shared_ptr<Shared>& shared);
  std::shared_ptr<Shared> shared_;
};

}  // namespace nyb
