// The reachability monitor over a fake source: its targets, its two status rules, the flag
// log line and change notifications through the run loop. A real route coming and going is
// proven end to end.
#include <arpa/inet.h>
#include <netinet/in.h>

#include "NymbrelCore/NYBReachability.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

constexpr NYBReachabilityFlags t = kNYBReachabilityFlagsTransientConnection;
constexpr NYBReachabilityFlags R = kNYBReachabilityFlagsReachable;
constexpr NYBReachabilityFlags c = kNYBReachabilityFlagsConnectionRequired;
constexpr NYBReachabilityFlags C = kNYBReachabilityFlagsConnectionOnTraffic;
constexpr NYBReachabilityFlags i = kNYBReachabilityFlagsInterventionRequired;
constexpr NYBReachabilityFlags D = kNYBReachabilityFlagsConnectionOnDemand;
constexpr NYBReachabilityFlags l = kNYBReachabilityFlagsIsLocalAddress;
constexpr NYBReachabilityFlags d = kNYBReachabilityFlagsIsDirect;
constexpr NYBReachabilityFlags W = kNYBReachabilityFlagsIsWWAN;

class Reachability : public ::testing::Test {
 protected:
  void SetUp() override { NYBReachabilitySource::setDefaultSource(fake); }
  void TearDown() override { NYBReachabilitySource::setDefaultSource(nullptr); }

  std::shared_ptr<NYBFakeReachabilitySource> fake = std::make_shared<NYBFakeReachabilitySource>(R);
};

TEST_F(Reachability, FactoriesTargetsStatusRulesAndChangeNotifications) {
  auto internet = NYBReachability::reachabilityForInternetConnection();
  auto wifi = NYBReachability::reachabilityForLocalWiFi();
  auto host = NYBReachability::reachabilityWithHostName("api.example.com");
  ASSERT_TRUE(internet && wifi && host);
  const auto requests = fake->requests();
  ASSERT_EQ(requests.size(), 3U);
  for (std::size_t n : {0U, 1U}) {
    const auto& address = reinterpret_cast<const sockaddr_in&>(requests[n].address);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_port, 0);
    EXPECT_EQ(address.sin_addr.s_addr, ::inet_addr(n == 0 ? "0.0.0.0" : "169.254.0.0"));
  }
  EXPECT_EQ(requests[2].hostName, "api.example.com");

  struct Case {
    NYBReachabilityFlags flags;
    NYBReachabilityStatus network, local;
  };
  const Case cases[] = {
      {0, NYBNotReachable, NYBNotReachable},
      {W | d | l, NYBNotReachable, NYBNotReachable},  // nothing counts without Reachable
      {R, NYBReachableViaWiFi, NYBNotReachable},
      {R | d, NYBReachableViaWiFi, NYBReachableViaWiFi},
      {R | i, NYBReachableViaWiFi, NYBNotReachable},  // intervention needs on-demand/on-traffic
      {R | c, NYBNotReachable, NYBNotReachable},
      {R | c | D, NYBReachableViaWiFi, NYBNotReachable},
      {R | c | D | i, NYBNotReachable, NYBNotReachable},
      {R | c | C, NYBReachableViaWiFi, NYBNotReachable},
      {R | c | C | i, NYBNotReachable, NYBNotReachable},
      {R | W, NYBReachableViaWWAN, NYBNotReachable},
      {R | W | c | i | t, NYBReachableViaWWAN, NYBNotReachable},
      {R | d | c | W, NYBReachableViaWWAN, NYBReachableViaWiFi},
  };
  for (const Case& each : cases) {
    fake->setFlags(each.flags);
    EXPECT_EQ(internet->currentReachabilityStatus(), each.network) << each.flags;
    EXPECT_EQ(wifi->currentReachabilityStatus(), each.local) << each.flags;
    EXPECT_EQ(internet->connectionRequired(), (each.flags & c) != 0) << each.flags;
  }

  // Every status query logs the flags.
  LogCapture log;
  internet->networkStatusForFlags(W | R | t | c | C | i | D | l | d);
  fake->setFlags(R | c);
  wifi->currentReachabilityStatus();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "Reachability Flag Status: WR tcCiDld networkStatusForFlags\n",
                             "Reachability Flag Status: -R -c----- localWiFiStatusForFlags\n"}));

  // Changes are posted on the run loop that started the notifier.
  std::vector<const NYBObject*> changes;
  bool userInfoEmpty = true;
  const auto observer = NYBNotificationCenter::defaultCenter().addScopedObserverForName(
      std::string(kReachabilityChangedNotification), {}, [&](const NYBNotification& n) {
        changes.push_back(n.object().object().get());
        userInfoEmpty = userInfoEmpty && n.userInfo().empty();
      });
  ASSERT_TRUE(internet->startNotifier());
  EXPECT_EQ(fake->scheduledTargetCount(), 1U);

  fake->setFlags(0);
  EXPECT_TRUE(changes.empty());  // not before the loop runs
  ASSERT_TRUE(NYBRunLoop::main().runUntil([&] { return !changes.empty(); }, 10s));
  NYBRunLoop::main().runOnce();
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0], internet.get());  // the monitor itself, not a copy
  EXPECT_TRUE(userInfoEmpty);

  // A change signalled as the monitor goes is never delivered: it stops notifying first.
  fake->setFlags(R);
  internet.reset();
  EXPECT_EQ(fake->liveTargetCount(), 2U);
  NYBRunLoop::main().runOnce();
  EXPECT_EQ(changes.size(), 1U);

  // A target that refuses the callback or the run loop: no start.
  fake->setFailsSettingCallback(true);
  EXPECT_FALSE(wifi->startNotifier());
  fake->setFailsSettingCallback(false);
  fake->setFailsScheduling(true);
  EXPECT_FALSE(wifi->startNotifier());
  EXPECT_EQ(fake->scheduledTargetCount(), 0U);

  fake->setFlagsReadable(false);  // unreadable: not reachable, no connection required
  EXPECT_EQ(host->currentReachabilityStatus(), NYBNotReachable);
  EXPECT_FALSE(host->connectionRequired());

  // No target, no monitor; the local Wi-Fi monitor included.
  fake->setFailsCreation(true);
  EXPECT_EQ(NYBReachability::reachabilityForInternetConnection(), nullptr);
  EXPECT_EQ(NYBReachability::reachabilityForLocalWiFi(), nullptr);
  EXPECT_EQ(NYBReachability::reachabilityWithHostName("api.example.com"), nullptr);
}

}  // namespace
}  // namespace nyb::test
