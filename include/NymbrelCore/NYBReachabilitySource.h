// NYBReachabilitySource and NYBReachabilityTarget: where the reachability
// monitor gets its flags from.
//
// A source makes targets: one host name or one socket address whose
// reachability is watched. A target answers a synchronous flag query and,
// once scheduled on a run loop, calls its callback on that loop's thread with
// the new flags when they may have changed.
//
// The kernel source (the default) reads the routing table: a route to the
// target sets Reachable, a route on the link itself (no gateway) also
// IsDirect, and a target that is one of this host's own addresses
// IsLocalAddress as well; a route whose link is down counts as none. The zero
// address (0.0.0.0 or ::) stands for "any route to the internet": it is
// reachable when a default route exists, for IPv4 or IPv6. A host name is
// resolved at every query (so a query may wait for the resolver) and takes
// the flags of its first address that has a route. A scheduled kernel target
// re-reads its flags on every link, address and route change the kernel
// announces, and calls back only when they differ from the last flags it saw.
// Its queries and its watch use the network namespace of the thread that
// makes them.
//
// NYBFakeReachabilitySource (NYBFakeReachabilitySource.h) stands in for it in
// tests. A host may install a source of its own with setDefaultSource().
//
// Threads: the default source may be read and replaced from any thread; a
// target is used by one thread at a time, and is scheduled, unscheduled and
// destroyed on the thread whose run loop it is scheduled on. Once
// unscheduleFromRunLoop() has returned there, the callback is not called
// again.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace nyb {

class NYBRunLoop;

// A set of reachability flags.
using NYBReachabilityFlags = std::uint32_t;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsTransientConnection = 1U << 0;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsReachable = 1U << 1;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsConnectionRequired = 1U << 2;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsConnectionOnTraffic = 1U << 3;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsInterventionRequired = 1U << 4;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsConnectionOnDemand = 1U << 5;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsIsLocalAddress = 1U << 16;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsIsDirect = 1U << 17;
inline constexpr NYBReachabilityFlags kNYBReachabilityFlagsIsWWAN = 1U << 18;

class NYB_EXPORT NYBReachabilityTarget {
 public:
  using Callback = std::function<void(NYBReachabilityFlags flags)>;

  virtual ~NYBReachabilityTarget();

  // The flags now; false when they cannot be read.
  virtual bool getFlags(NYBReachabilityFlags& flags) = 0;
  // The function called with the new flags; an empty one clears it. False
  // when it cannot be set.
  virtual bool setCallback(Callback callback) = 0;
  // Starts watching, calling back on that run loop's thread (a target moves
  // when scheduled again). False when watching cannot start.
  virtual bool scheduleWithRunLoop(const std::shared_ptr<NYBRunLoop>& loop) = 0;
  // Stops watching; nothing when not scheduled. The callback stays set.
  virtual void unscheduleFromRunLoop() = 0;
};

class NYB_EXPORT NYBReachabilitySource {
 public:
  virtual ~NYBReachabilitySource();

  // A target for a host name; null when none can be made (an empty name).
  virtual std::unique_ptr<NYBReachabilityTarget> createWithName(std::string_view hostName) = 0;
  // A target for an IPv4 or IPv6 socket address (the family says which);
  // null for another family or a null address.
  virtual std::unique_ptr<NYBReachabilityTarget> createWithAddress(const sockaddr* address) = 0;

  // The source the reachability monitor uses.
  static std::shared_ptr<NYBReachabilitySource> defaultSource();
  // Replaces it for monitors made afterwards; null puts the kernel source back.
  static void setDefaultSource(std::shared_ptr<NYBReachabilitySource> source);
  // The source that reads the kernel's routing table.
  static std::shared_ptr<NYBReachabilitySource> kernelSource();
};

}  // namespace nyb
