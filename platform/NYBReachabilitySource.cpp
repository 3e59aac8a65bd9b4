// The kernel reachability source: flags from the routing table, read over
// rtnetlink, and a watch thread per scheduled target that listens for the
// kernel's link, address and route announcements.
#include "NymbrelCore/NYBReachabilitySource.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBRunLoop.h"
#include "platform/ReachabilityDelivery.h"

namespace nyb {

namespace {

// An owned file descriptor.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

FileDescriptor openRouteSocket(unsigned groups) {
  FileDescriptor fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!fd.valid()) return fd;
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = groups;
  if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    return FileDescriptor();
  }
  return fd;
}

// ---- Reading routes ---------------------------------------------------------

struct Route {
  unsigned char type = RTN_UNSPEC;
  unsigned char dstLength = 0;
  std::uint32_t table = RT_TABLE_UNSPEC;
  bool hasGateway = false;
  bool unusable = false;  // link down or dead next hop
  bool cloned = false;
};

constexpr unsigned kUnusableNextHop = RTNH_F_DEAD | RTNH_F_LINKDOWN;

Route parseRoute(const nlmsghdr* header) {
  Route route;
  const auto* message = static_cast<const rtmsg*>(NLMSG_DATA(header));
  route.type = message->rtm_type;
  route.dstLength = message->rtm_dst_len;
  route.table = message->rtm_table;
  route.unusable = (message->rtm_flags & kUnusableNextHop) != 0;
  route.cloned = (message->rtm_flags & RTM_F_CLONED) != 0;
  int length = static_cast<int>(RTM_PAYLOAD(header));
  for (const rtattr* attribute = RTM_RTA(message); RTA_OK(attribute, length);
       attribute = RTA_NEXT(attribute, length)) {
    switch (attribute->rta_type) {
      case RTA_GATEWAY:
      case RTA_VIA:
        route.hasGateway = true;
        break;
      case RTA_TABLE:
        if (RTA_PAYLOAD(attribute) >= sizeof(std::uint32_t)) {
          std::memcpy(&route.table, RTA_DATA(attribute), sizeof(std::uint32_t));
        }
        break;
      case RTA_MULTIPATH: {
        // Usable when one next hop is; direct only when no next hop has a
        // gateway.
        bool anyUsable = false;
        auto remaining = static_cast<int>(RTA_PAYLOAD(attribute));
        const auto* hop = static_cast<const rtnexthop*>(RTA_DATA(attribute));
        while (remaining >= static_cast<int>(sizeof(rtnexthop)) &&
               hop->rtnh_len >= sizeof(rtnexthop) && hop->rtnh_len <= remaining) {
          if ((hop->rtnh_flags & kUnusableNextHop) == 0) anyUsable = true;
          int hopLength = hop->rtnh_len - static_cast<int>(sizeof(rtnexthop));
          for (const auto* inner = reinterpret_cast<const rtattr*>(RTNH_DATA(hop));
               RTA_OK(inner, hopLength); inner = RTA_NEXT(inner, hopLength)) {
            if (inner->rta_type == RTA_GATEWAY || inner->rta_type == RTA_VIA) {
              route.hasGateway = true;
            }
          }
          remaining -= static_cast<int>(RTNH_ALIGN(hop->rtnh_len));
          hop = RTNH_NEXT(hop);
        }
        if (!anyUsable) route.unusable = true;
        break;
      }
      default:
        break;
    }
  }
  return route;
}

enum class Answer { Failed, NoRoute, Routes };

// Sends one rtnetlink request and hands every route message of the answer to
// `onRoute`. An error answer from the kernel means there is no route; a
// failure to talk to the kernel is Failed.
template <typename OnRoute>
Answer exchange(nlmsghdr* request, OnRoute&& onRoute) {
  FileDescriptor fd = openRouteSocket(0);
  if (!fd.valid()) return Answer::Failed;
  timeval timeout{2, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

  static std::atomic<std::uint32_t> sequence{1};
  request->nlmsg_seq = sequence.fetch_add(1, std::memory_order_relaxed);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (::sendto(fd.get(), request, request->nlmsg_len, 0, reinterpret_cast<const sockaddr*>(&kernel),
               sizeof kernel) < 0) {
    return Answer::Failed;
  }
  const bool dump = (request->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
  alignas(nlmsghdr) std::array<char, 32768> buffer{};
  for (;;) {
    const ssize_t received = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
    if (received < 0) {
      if (errno == EINTR) continue;
      return Answer::Failed;
    }
    auto length = static_cast<unsigned>(received);
    for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(header, length);
         header = NLMSG_NEXT(header, length)) {
      if (header->nlmsg_seq != request->nlmsg_seq) continue;
      if (header->nlmsg_type == NLMSG_DONE) return Answer::Routes;
      if (header->nlmsg_type == NLMSG_ERROR) {
        const auto* error = static_cast<const nlmsgerr*>(NLMSG_DATA(header));
        return error->error == 0 ? Answer::Routes : Answer::NoRoute;
      }
      if (header->nlmsg_type == RTM_NEWROUTE && header->nlmsg_len >= NLMSG_LENGTH(sizeof(rtmsg))) {
        onRoute(parseRoute(header));
        if (!dump) return Answer::Routes;
      }
    }
  }
}

struct RouteRequest {
  nlmsghdr header;
  rtmsg message;
  std::array<char, 64> attributes;
};

NYBReachabilityFlags flagsOfRoute(const Route& route) {
  switch (route.type) {
    case RTN_LOCAL:
      return kNYBReachabilityFlagsReachable | kNYBReachabilityFlagsIsLocalAddress |
             kNYBReachabilityFlagsIsDirect;
    case RTN_UNICAST:
    case RTN_BROADCAST:
    case RTN_MULTICAST:
    case RTN_ANYCAST:
      if (route.unusable) return 0;
      return kNYBReachabilityFlagsReachable |
             (route.hasGateway ? 0 : kNYBReachabilityFlagsIsDirect);
    default:  // unreachable, blackhole, prohibit, throw
      return 0;
  }
}

// The route the kernel would use to send to the address.
bool lookUp(int family, const void* address, std::size_t length, NYBReachabilityFlags& flags) {
  RouteRequest request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.message.rtm_family = static_cast<unsigned char>(family);
  request.message.rtm_dst_len = static_cast<unsigned char>(length * 8);
  auto* attribute = reinterpret_cast<rtattr*>(reinterpret_cast<char*>(&request.header) +
                                              NLMSG_ALIGN(request.header.nlmsg_len));
  attribute->rta_type = RTA_DST;
  attribute->rta_len = static_cast<unsigned short>(RTA_LENGTH(length));
  std::memcpy(RTA_DATA(attribute), address, length);
  request.header.nlmsg_len = NLMSG_ALIGN(request.header.nlmsg_len) + RTA_ALIGN(attribute->rta_len);

  flags = 0;
  const Answer answer =
      exchange(&request.header, [&](const Route& route) { flags = flagsOfRoute(route); });
  return answer != Answer::Failed;
}

// Whether a usable default route exists for the family; sets IsDirect when
// the first one has no gateway.
bool defaultRoute(int family, NYBReachabilityFlags& flags) {
  RouteRequest request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.message.rtm_family = static_cast<unsigned char>(family);
  flags = 0;
  const Answer answer = exchange(&request.header, [&](const Route& route) {
    if (flags != 0 || route.dstLength != 0 || route.cloned || route.table == RT_TABLE_LOCAL ||
        route.type != RTN_UNICAST || route.unusable) {
      return;
    }
    flags = kNYBReachabilityFlagsReachable | (route.hasGateway ? 0 : kNYBReachabilityFlagsIsDirect);
  });
  return answer != Answer::Failed;
}

bool flagsForAddress(const sockaddr_storage& storage, NYBReachabilityFlags& flags) {
  if (storage.ss_family == AF_INET) {
    const auto& address = reinterpret_cast<const sockaddr_in&>(storage);
    if (address.sin_addr.s_addr == htonl(INADDR_ANY)) {
      // Any route to the internet, over IPv4 or IPv6.
      if (!defaultRoute(AF_INET, flags)) return false;
      return flags != 0 || defaultRoute(AF_INET6, flags);
    }
    return lookUp(AF_INET, &address.sin_addr, sizeof address.sin_addr, flags);
  }
  if (storage.ss_family == AF_INET6) {
    const auto& address = reinterpret_cast<const sockaddr_in6&>(storage);
    if (IN6_IS_ADDR_UNSPECIFIED(&address.sin6_addr)) {
      if (!defaultRoute(AF_INET6, flags)) return false;
      return flags != 0 || defaultRoute(AF_INET, flags);
    }
    if (IN6_IS_ADDR_V4MAPPED(&address.sin6_addr)) {
      return lookUp(AF_INET, &address.sin6_addr.s6_addr[12], 4, flags);
    }
    return lookUp(AF_INET6, &address.sin6_addr, sizeof address.sin6_addr, flags);
  }
  return false;
}

bool flagsForName(const std::string& hostName, NYBReachabilityFlags& flags) {
  flags = 0;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* results = nullptr;
  if (::getaddrinfo(hostName.c_str(), nullptr, &hints, &results) != 0) {
    return true;  // a name that does not resolve cannot be reached
  }
  bool read = false;
  for (const addrinfo* result = results; result != nullptr; result = result->ai_next) {
    if (result->ai_addrlen > sizeof(sockaddr_storage)) continue;
    sockaddr_storage storage{};
    std::memcpy(&storage, result->ai_addr, result->ai_addrlen);
    NYBReachabilityFlags candidate = 0;
    if (!flagsForAddress(storage, candidate)) continue;
    read = true;
    if ((candidate & kNYBReachabilityFlagsReachable) != 0) {
      flags = candidate;
      break;
    }
  }
  ::freeaddrinfo(results);
  return read;
}

// ---- Watching for changes ---------------------------------------------------

// A thread that calls `changed` after every batch of link, address or route
// announcements (and after the kernel dropped some for lack of buffer).
class RouteWatcher {
 public:
  static std::unique_ptr<RouteWatcher> start(std::function<void()> changed) {
    FileDescriptor netlink = openRouteSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE |
                                             RTMGRP_IPV6_IFADDR | RTMGRP_IPV6_ROUTE);
    FileDescriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!netlink.valid() || !wake.valid()) return nullptr;
    const int bufferSize = 1 << 18;
    ::setsockopt(netlink.get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
    return std::unique_ptr<RouteWatcher>(
        new RouteWatcher(std::move(netlink), std::move(wake), std::move(changed)));
  }

  ~RouteWatcher() {
    const std::uint64_t one = 1;
    while (::write(wake_.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    thread_.join();
  }

  RouteWatcher(const RouteWatcher&) = delete;
  RouteWatcher& operator=(const RouteWatcher&) = delete;

 private:
  RouteWatcher(FileDescriptor netlink, FileDescriptor wake, std::function<void()> changed)
      : netlink_(std::move(netlink)), wake_(std::move(wake)), changed_(std::move(changed)) {
    // Made by the scheduling thread, so it shares its network namespace.
    thread_ = std::thread([this] { run(); });
  }

  void run() {
    std::array<pollfd, 2> fds{{{netlink_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    alignas(nlmsghdr) std::array<char, 16384> buffer{};
    for (;;) {
      if (::poll(fds.data(), fds.size(), -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[1].revents != 0) return;
      if ((fds[0].revents & (POLLHUP | POLLNVAL)) != 0) return;
      bool announced = false;
      for (;;) {
        const ssize_t received = ::recv(netlink_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (received > 0 || (received < 0 && errno == ENOBUFS)) {
          announced = true;
          continue;
        }
        if (received < 0 && errno == EINTR) continue;
        break;
      }
      if (announced) changed_();
    }
  }

  FileDescriptor netlink_;
  FileDescriptor wake_;
  std::function<void()> changed_;
  std::thread thread_;
};

class KernelTarget : public NYBReachabilityTarget {
 public:
  explicit KernelTarget(const sockaddr_storage& address)
      : delivery_(
            [address](NYBReachabilityFlags& flags) { return flagsForAddress(address, flags); },
            /*changesOnly=*/true),
        read_([address](NYBReachabilityFlags& flags) { return flagsForAddress(address, flags); }) {}
  explicit KernelTarget(std::string hostName)
      : delivery_([hostName](NYBReachabilityFlags& flags) { return flagsForName(hostName, flags); },
                  /*changesOnly=*/true),
        read_([hostName](NYBReachabilityFlags& flags) { return flagsForName(hostName, flags); }) {}

  ~KernelTarget() override { unscheduleFromRunLoop(); }

  bool getFlags(NYBReachabilityFlags& flags) override { return read_(flags); }

  bool setCallback(Callback callback) override {
    delivery_.setCallback(std::move(callback));
    return true;
  }

  bool scheduleWithRunLoop(const std::shared_ptr<NYBRunLoop>& loop) override {
    if (!loop) return false;
    unscheduleFromRunLoop();
    // Watching starts before the baseline is read, so no change falls between.
    auto watcher = RouteWatcher::start([delivery = &delivery_] { delivery->signal(); });
    if (!watcher) return false;
    delivery_.schedule(loop);
    watcher_ = std::move(watcher);
    return true;
  }

  void unscheduleFromRunLoop() override {
    watcher_.reset();  // joins the thread: no signal after this
    delivery_.unschedule();
  }

 private:
  ReachabilityDelivery delivery_;
  ReachabilityDelivery::FlagReader read_;
  std::unique_ptr<RouteWatcher> watcher_;
};

class KernelSource : public NYBReachabilitySource {
 public:
  std::unique_ptr<NYBReachabilityTarget> createWithName(std::string_view hostName) override {
    if (hostName.empty() || hostName.find('\0') != std::string_view::npos) return nullptr;
    return std::make_unique<KernelTarget>(std::string(hostName));
  }

  std::unique_ptr<NYBReachabilityTarget> createWithAddress(const sockaddr* address) override {
    if (address == nullptr) return nullptr;
    sockaddr_storage storage{};
    if (address->sa_family == AF_INET) {
      std::memcpy(&storage, address, sizeof(sockaddr_in));
    } else if (address->sa_family == AF_INET6) {
      std::memcpy(&storage, address, sizeof(sockaddr_in6));
    } else {
      return nullptr;
    }
    return std::make_unique<KernelTarget>(storage);
  }
};

struct DefaultSource {
  std::mutex mutex;
  std::shared_ptr<NYBReachabilitySource> source;
};

DefaultSource& defaultSourceState() {
  static auto* const state = new DefaultSource();
  return *state;
}

}  // namespace

std::shared_ptr<NYBReachabilitySource> NYBReachabilitySource::kernelSource() {
  static const auto* const source =
      new std::shared_ptr<NYBReachabilitySource>(std::make_shared<KernelSource>());
  return *source;
}

std::shared_ptr<NYBReachabilitySource> NYBReachabilitySource::defaultSource() {
  DefaultSource& state = defaultSourceState();
  std::lock_guard lock(state.mutex);
  if (!state.source) state.source = kernelSource();
  return state.source;
}

void NYBReachabilitySource::setDefaultSource(std::shared_ptr<NYBReachabilitySource> source) {
  DefaultSource& state = defaultSourceState();
  std::lock_guard lock(state.mutex);
  state.source.swap(source);
}

}  // namespace nyb
