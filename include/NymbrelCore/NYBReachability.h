// NYBReachability: watches whether the device can reach the network (the
// internet in general, a host name, a socket address or the link-local
// network) and announces changes.
//
// A monitor owns its reachability target, made by the default reachability
// source (NYBReachabilitySource) and released when the monitor is destroyed.
// After startNotifier(), every change of the target's flags posts
// kReachabilityChangedNotification on the default notification centre, with
// the monitor as object, on the thread whose run loop called startNotifier()
// (so that thread must drive its run loop). Status queries read the flags
// synchronously and write them to the platform log.
//
// A monitor is used from one thread: the one that starts and stops its
// notifier and releases it last. The target's callback does not keep the
// monitor alive, which is why destruction stops the notifier first. The
// class-level factories may be called from any thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBReachabilitySource.h"

namespace nyb {

enum NYBReachabilityStatus : std::int64_t {
  NYBNotReachable = 0,
  NYBReachableViaWiFi = 1,
  NYBReachableViaWWAN = 2,
};

class NYBReachability;

class NYB_EXPORT NYBReachabilityClass : public NYBClass {
 public:
  using NYBClass::NYBClass;

  // Each gives a new monitor, or null when its target cannot be made.
  virtual std::shared_ptr<NYBReachability> reachabilityWithHostName(
      std::string_view hostName) const;
  virtual std::shared_ptr<NYBReachability> reachabilityWithAddress(
      const sockaddr* hostAddress) const;
  // The zero IPv4 address: any route to the internet.
  virtual std::shared_ptr<NYBReachability> reachabilityForInternetConnection() const;
  // The link-local network 169.254.0.0; its status queries use the local
  // Wi-Fi rule.
  virtual std::shared_ptr<NYBReachability> reachabilityForLocalWiFi() const;
};

class NYB_EXPORT NYBReachability : public NYBObject {
  NYB_DECLARE_CLASS(NYBReachabilityClass)
 public:
  static std::shared_ptr<NYBReachability> reachabilityWithHostName(std::string_view hostName) {
    return staticClass().reachabilityWithHostName(hostName);
  }
  static std::shared_ptr<NYBReachability> reachabilityWithAddress(const sockaddr* hostAddress) {
    return staticClass().reachabilityWithAddress(hostAddress);
  }
  static std::shared_ptr<NYBReachability> reachabilityForInternetConnection() {
    return staticClass().reachabilityForInternetConnection();
  }
  static std::shared_ptr<NYBReachability> reachabilityForLocalWiFi() {
    return staticClass().reachabilityForLocalWiFi();
  }

  // Takes ownership of a target (the factories are the usual way in).
  explicit NYBReachability(std::unique_ptr<NYBReachabilityTarget> target);
  ~NYBReachability() override;

  // Starts change notifications on the calling thread's run loop; false when
  // the target refuses the callback or the run loop.
  bool startNotifier();
  // Stops them, wherever they were started. The callback stays set.
  void stopNotifier();

  // NYBNotReachable when the flags cannot be read.
  NYBReachabilityStatus currentReachabilityStatus() const;
  // Whether the flags now hold ConnectionRequired; false when they cannot be
  // read.
  bool connectionRequired() const;
  // The two status rules; each first writes the flags to the platform log.
  NYBReachabilityStatus networkStatusForFlags(NYBReachabilityFlags flags) const;
  NYBReachabilityStatus localWiFiStatusForFlags(NYBReachabilityFlags flags) const;

  bool alwaysReturnLocalWiFiStatus() const { return alwaysReturnLocalWiFiStatus_; }
  void setAlwaysReturnLocalWiFiStatus(bool value) { alwaysReturnLocalWiFiStatus_ = value; }
  // The watched target; owned by the monitor.
  NYBReachabilityTarget* reachabilityRef() const { return reachabilityRef_.get(); }

 private:
  bool alwaysReturnLocalWiFiStatus_ = false;
  std::unique_ptr<NYBReachabilityTarget> reachabilityRef_;
};

// The target's callback: posts kReachabilityChangedNotification with the
// monitor that `info` points to (not owned) as object.
NYB_EXPORT void ReachabilityCallback(NYBReachabilityTarget* target, NYBReachabilityFlags flags,
                                     void* info);

// Writes "Reachability Flag Status: WR tcCiDld comment\n" to the platform
// log: each flag's letter when set, "-" when not.
NYB_EXPORT void PrintReachabilityFlags(NYBReachabilityFlags flags, std::string_view comment);

}  // namespace nyb
