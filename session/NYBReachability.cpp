#include "NymbrelCore/NYBReachability.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <string>
#include <utility>

#include "NymbrelCore/NYBNotificationCenter.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "platform/Log.h"

namespace nyb {

namespace {

bool has(NYBReachabilityFlags flags, NYBReachabilityFlags flag) { return (flags & flag) != 0; }

sockaddr_in ipv4Address(in_addr_t hostOrderAddress) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = 0;
  address.sin_addr.s_addr = htonl(hostOrderAddress);
  return address;
}

}  // namespace

// MARK: - Class-level operations

const NYBReachabilityClass& NYBReachability::staticClass() {
  static const NYBReachabilityClass cls("NYBReachability", &NYBObject::staticClass());
  return cls;
}

std::shared_ptr<NYBReachability> NYBReachabilityClass::reachabilityWithHostName(
    std::string_view hostName) const {
  auto target = NYBReachabilitySource::defaultSource()->createWithName(hostName);
  if (!target) return nullptr;
  return std::make_shared<NYBReachability>(std::move(target));
}

std::shared_ptr<NYBReachability> NYBReachabilityClass::reachabilityWithAddress(
    const sockaddr* hostAddress) const {
  auto target = NYBReachabilitySource::defaultSource()->createWithAddress(hostAddress);
  if (!target) return nullptr;
  return std::make_shared<NYBReachability>(std::move(target));
}

std::shared_ptr<NYBReachability> NYBReachabilityClass::reachabilityForInternetConnection() const {
  const sockaddr_in zeroAddress = ipv4Address(INADDR_ANY);
  return reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&zeroAddress));
}

std::shared_ptr<NYBReachability> NYBReachabilityClass::reachabilityForLocalWiFi() const {
  // 169.254.0.0, the link-local network.
  const sockaddr_in linkLocal = ipv4Address(0xA9FE0000);
  auto monitor = reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&linkLocal));
  if (monitor) monitor->setAlwaysReturnLocalWiFiStatus(true);
  return monitor;
}

// MARK: - Monitor

NYBReachability::NYBReachability(std::unique_ptr<NYBReachabilityTarget> target)
    : reachabilityRef_(std::move(target)) {}

NYBReachability::~NYBReachability() {
  stopNotifier();
  reachabilityRef_.reset();
}

bool NYBReachability::startNotifier() {
  if (!reachabilityRef_) return false;
  NYBReachabilityTarget* target = reachabilityRef_.get();
  void* info = this;  // not owned: the monitor stops the notifier before it goes
  if (!target->setCallback([target, info](NYBReachabilityFlags flags) {
        ReachabilityCallback(target, flags, info);
      })) {
    return false;
  }
  return target->scheduleWithRunLoop(NYBRunLoop::current());
}

void NYBReachability::stopNotifier() {
  if (reachabilityRef_) reachabilityRef_->unscheduleFromRunLoop();
}

NYBReachabilityStatus NYBReachability::currentReachabilityStatus() const {
  NYBReachabilityFlags flags = 0;
  if (!reachabilityRef_ || !reachabilityRef_->getFlags(flags)) return NYBNotReachable;
  return alwaysReturnLocalWiFiStatus_ ? localWiFiStatusForFlags(flags)
                                      : networkStatusForFlags(flags);
}

bool NYBReachability::connectionRequired() const {
  NYBReachabilityFlags flags = 0;
  if (!reachabilityRef_ || !reachabilityRef_->getFlags(flags)) return false;
  return has(flags, kNYBReachabilityFlagsConnectionRequired);
}

NYBReachabilityStatus NYBReachability::networkStatusForFlags(NYBReachabilityFlags flags) const {
  PrintReachabilityFlags(flags, "networkStatusForFlags");
  if (!has(flags, kNYBReachabilityFlagsReachable)) return NYBNotReachable;
  if (has(flags, kNYBReachabilityFlagsIsWWAN)) return NYBReachableViaWWAN;
  // A connection made on demand or on traffic needs no user: usable.
  if ((has(flags, kNYBReachabilityFlagsConnectionOnTraffic) ||
       has(flags, kNYBReachabilityFlagsConnectionOnDemand)) &&
      !has(flags, kNYBReachabilityFlagsInterventionRequired)) {
    return NYBReachableViaWiFi;
  }
  return has(flags, kNYBReachabilityFlagsConnectionRequired) ? NYBNotReachable
                                                             : NYBReachableViaWiFi;
}

NYBReachabilityStatus NYBReachability::localWiFiStatusForFlags(NYBReachabilityFlags flags) const {
  PrintReachabilityFlags(flags, "localWiFiStatusForFlags");
  return has(flags, kNYBReachabilityFlagsReachable) && has(flags, kNYBReachabilityFlagsIsDirect)
             ? NYBReachableViaWiFi
             : NYBNotReachable;
}

// MARK: - Free functions

void ReachabilityCallback(NYBReachabilityTarget* /*target*/, NYBReachabilityFlags /*flags*/,
                          void* info) {
  auto* monitor = static_cast<NYBReachability*>(info);
  NYBDynamicValue object;
  if (monitor != nullptr) {
    if (std::shared_ptr<NYBObject> shared = monitor->weak_from_this().lock()) object = shared;
  }
  NYBNotificationCenter::defaultCenter().postNotificationName(
      std::string(kReachabilityChangedNotification), std::move(object));
}

void PrintReachabilityFlags(NYBReachabilityFlags flags, std::string_view comment) {
  auto letter = [flags](NYBReachabilityFlags flag, char set) {
    return has(flags, flag) ? set : '-';
  };
  log("Reachability Flag Status: {}{} {}{}{}{}{}{}{} {}\n",
      letter(kNYBReachabilityFlagsIsWWAN, 'W'), letter(kNYBReachabilityFlagsReachable, 'R'),
      letter(kNYBReachabilityFlagsTransientConnection, 't'),
      letter(kNYBReachabilityFlagsConnectionRequired, 'c'),
      letter(kNYBReachabilityFlagsConnectionOnTraffic, 'C'),
      letter(kNYBReachabilityFlagsInterventionRequired, 'i'),
      letter(kNYBReachabilityFlagsConnectionOnDemand, 'D'),
      letter(kNYBReachabilityFlagsIsLocalAddress, 'l'), letter(kNYBReachabilityFlagsIsDirect, 'd'),
      comment);
}

}  // namespace nyb
