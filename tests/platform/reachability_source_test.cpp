// The kernel reachability source against this host's real routing table.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

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

TEST(KernelReachabilitySource, LoopbackIsReachableLocalAndDirect) {
  auto source = NYBReachabilitySource::kernelSource();
  NYBReachabilityFlags flags = 0;

  // Anywhere in 127/8 is this host, also as a mapped IPv6 address.
  const sockaddr_in loopback = ipv4("127.0.0.1"), elsewhere = ipv4("127.1.2.3");
  const sockaddr_in6 mapped = ipv6("::ffff:127.0.0.1");
  for (const void* address :
       {static_cast<const void*>(&loopback), static_cast<const void*>(&elsewhere),
        static_cast<const void*>(&mapped)}) {
    auto target = source->createWithAddress(generic(address));
    ASSERT_NE(target, nullptr);
    ASSERT_TRUE(target->getFlags(flags));
    EXPECT_EQ(flags, R | L | D);
  }
  ASSERT_TRUE(source->createWithName("localhost")->getFlags(flags));
  EXPECT_EQ(flags & (R | L), R | L);

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
