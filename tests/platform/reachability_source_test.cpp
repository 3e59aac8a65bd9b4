// The kernel reachability source reads the real routing table of this host.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <fstream>
#include <sstream>
#include <string>

#include "NymbrelCore/NYBReachabilitySource.h"

namespace nyb {
namespace {

constexpr NYBReachabilityFlags R = kNYBReachabilityFlagsReachable;
constexpr NYBReachabilityFlags L = kNYBReachabilityFlagsIsLocalAddress;
constexpr NYBReachabilityFlags D = kNYBReachabilityFlagsIsDirect;

sockaddr_in ipv4(const char* text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ::inet_pton(AF_INET, text, &address.sin_addr);
  return address;
}

sockaddr_in6 ipv6(const char* text) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  ::inet_pton(AF_INET6, text, &address.sin6_addr);
  return address;
}

const sockaddr* generic(const void* address) { return static_cast<const sockaddr*>(address); }

// Whether the kernel's tables hold a default route, read from /proc, the
// way `route -n` does, independently of rtnetlink.
bool procHasDefaultRoute() {
  std::ifstream ipv4Routes("/proc/net/route");
  std::string line;
  std::getline(ipv4Routes, line);  // header
  while (std::getline(ipv4Routes, line)) {
    std::istringstream fields(line);
    std::string interface, destination, gateway, flags, refs, use, metric, mask;
    fields >> interface >> destination >> gateway >> flags >> refs >> use >> metric >> mask;
    const unsigned long routeFlags = std::stoul(flags, nullptr, 16);
    if (destination == "00000000" && mask == "00000000" && (routeFlags & 0x1) != 0 &&
        (routeFlags & 0x200) == 0) {
      return true;
    }
  }
  std::ifstream ipv6Routes("/proc/net/ipv6_route");
  while (std::getline(ipv6Routes, line)) {
    std::istringstream fields(line);
    std::string destination, length, source, sourceLength, next, metric, refs, use, flags, device;
    fields >> destination >> length >> source >> sourceLength >> next >> metric >> refs >> use >>
        flags >> device;
    const unsigned long routeFlags = std::stoul(flags, nullptr, 16);
    // Up (0x1) and not a reject route (0x200); the loopback's catch-all
    // "unreachable" entries are reject routes.
    if (destination == std::string(32, '0') && length == "00" && (routeFlags & 0x1) != 0 &&
        (routeFlags & 0x200) == 0 && device != "lo") {
      return true;
    }
  }
  return false;
}

bool hasIPv6Loopback() {
  std::ifstream addresses("/proc/net/if_inet6");
  std::string line;
  while (std::getline(addresses, line)) {
    if (line.rfind("00000000000000000000000000000001", 0) == 0) return true;
  }
  return false;
}

TEST(KernelReachabilitySource, LoopbackIsReachableLocalAndDirect) {
  auto source = NYBReachabilitySource::kernelSource();
  NYBReachabilityFlags flags = 0;

  const sockaddr_in loopback = ipv4("127.0.0.1");
  auto target = source->createWithAddress(generic(&loopback));
  ASSERT_NE(target, nullptr);
  ASSERT_TRUE(target->getFlags(flags));
  EXPECT_EQ(flags, R | L | D);

  // Anywhere in 127/8 is this host too, and so is the name "localhost".
  const sockaddr_in elsewhere = ipv4("127.1.2.3");
  ASSERT_TRUE(source->createWithAddress(generic(&elsewhere))->getFlags(flags));
  EXPECT_EQ(flags, R | L | D);
  ASSERT_TRUE(source->createWithName("localhost")->getFlags(flags));
  EXPECT_EQ(flags & (R | L), R | L);
  const sockaddr_in6 mapped = ipv6("::ffff:127.0.0.1");
  ASSERT_TRUE(source->createWithAddress(generic(&mapped))->getFlags(flags));
  EXPECT_EQ(flags, R | L | D);
  if (hasIPv6Loopback()) {
    const sockaddr_in6 loopback6 = ipv6("::1");
    ASSERT_TRUE(source->createWithAddress(generic(&loopback6))->getFlags(flags));
    EXPECT_EQ(flags, R | L | D);
  }

  // The zero address is "the internet": reachable exactly when there is a
  // default route.
  const sockaddr_in any = ipv4("0.0.0.0");
  ASSERT_TRUE(source->createWithAddress(generic(&any))->getFlags(flags));
  EXPECT_EQ((flags & R) != 0, procHasDefaultRoute());
  EXPECT_EQ(flags & L, 0U);

  // A name that cannot resolve is unreachable, not an error.
  ASSERT_TRUE(source->createWithName("no-such-host.invalid")->getFlags(flags));
  EXPECT_EQ(flags, 0U);
}

TEST(KernelReachabilitySource, RefusesTargetsItCannotWatch) {
  auto source = NYBReachabilitySource::kernelSource();
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  EXPECT_EQ(source->createWithAddress(generic(&local)), nullptr);
  EXPECT_EQ(source->createWithAddress(nullptr), nullptr);
  EXPECT_EQ(source->createWithName(""), nullptr);
}

}  // namespace
}  // namespace nyb
