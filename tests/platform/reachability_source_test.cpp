// The kernel reachability source against this host's real routing table.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

#include "NymbrelCore/NYBReachabilitySource.h"

namespace nyb {
namespace {

TEST(KernelReachabilitySource, LoopbackIsReachableLocalAndDirectAndOddTargetsAreRefused) {
  auto source = NYBReachabilitySource::kernelSource();
  NYBReachabilityFlags flags = 0;
  const NYBReachabilityFlags here = kNYBReachabilityFlagsReachable |
                                    kNYBReachabilityFlagsIsLocalAddress |
                                    kNYBReachabilityFlagsIsDirect;
  // Anywhere in 127/8 is this host, also as a mapped IPv6 address.
  for (const char* text : {"127.0.0.1", "127.1.2.3"}) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ::inet_pton(AF_INET, text, &address.sin_addr);
    ASSERT_TRUE(source->createWithAddress(reinterpret_cast<sockaddr*>(&address))->getFlags(flags));
    EXPECT_EQ(flags, here) << text;
  }
  sockaddr_in6 mapped{};
  mapped.sin6_family = AF_INET6;
  ::inet_pton(AF_INET6, "::ffff:127.0.0.1", &mapped.sin6_addr);
  ASSERT_TRUE(source->createWithAddress(reinterpret_cast<sockaddr*>(&mapped))->getFlags(flags));
  EXPECT_EQ(flags, here);
  ASSERT_TRUE(source->createWithName("localhost")->getFlags(flags));
  const NYBReachabilityFlags local = here & ~kNYBReachabilityFlagsIsDirect;
  EXPECT_EQ(flags & local, local);
  // A name that cannot resolve is unreachable, not an error.
  ASSERT_TRUE(source->createWithName("no-such-host.invalid")->getFlags(flags));
  EXPECT_EQ(flags, 0U);

  sockaddr_un socketFile{};
  socketFile.sun_family = AF_UNIX;
  EXPECT_EQ(source->createWithAddress(reinterpret_cast<sockaddr*>(&socketFile)), nullptr);
  EXPECT_EQ(source->createWithAddress(nullptr), nullptr);
  EXPECT_EQ(source->createWithName(""), nullptr);
}

}  // namespace
}  // namespace nyb
