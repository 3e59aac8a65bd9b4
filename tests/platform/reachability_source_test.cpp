// The kernel reachability source against this host's real routing table.
#include <gtest/gtest.h>
#include <netdb.h>
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
  for (const char* text : {"127.0.0.1", "127.1.2.3", "::ffff:127.0.0.1"}) {
    addrinfo numeric{}, *found = nullptr;
    numeric.ai_flags = AI_NUMERICHOST;
    ASSERT_EQ(::getaddrinfo(text, nullptr, &numeric, &found), 0) << text;
    const bool answered = source->createWithAddress(found->ai_addr)->getFlags(flags);
    ::freeaddrinfo(found);
    EXPECT_TRUE(answered && flags == here) << text << ": " << flags;
  }
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
