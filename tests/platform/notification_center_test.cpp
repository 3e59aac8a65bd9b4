// Who receives a notification, in which order, and changes during a delivery.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "NymbrelCore/NYBNotificationCenter.h"
#include "support/TestModels.h"

namespace nyb {
namespace {

TEST(NotificationCenter, MatchesByNameAndSenderInRegistrationOrderOnThePostingThread) {
  NYBNotificationCenter center;
  auto sender = std::make_shared<test::TestAddress>();
  auto other = std::make_shared<test::TestAddress>();  // equal values, another object
  std::vector<std::string> calls;
  const NYBDictionary info{{"error", "boom"}};
  auto add = [&](std::optional<std::string> name, NYBDynamicValue object, std::string tag) {
    center.addObserverForName(name, object, [&, tag](const NYBNotification& n) {
      calls.push_back(tag);
      if (tag == "sender") {
        EXPECT_EQ(n.object().object().get(), sender.get());
        EXPECT_EQ(n.userInfo(), info);
      }
    });
  };
  add("changed", sender, "sender");
  add("changed", {}, "any sender");
  add(std::nullopt, {}, "everything");
  add("changed", other, "other");
  add("changed", "label", "label");
  add("other name", {}, "other name");

  // Delivered before the post returns, in registration order; an equal but
  // distinct object does not match an object filter.
  center.postNotificationName("changed", sender, info);
  EXPECT_EQ(calls, (std::vector<std::string>{"sender", "any sender", "everything"}));
  calls.clear();
  center.postNotificationName("changed", "label");
  EXPECT_EQ(calls, (std::vector<std::string>{"any sender", "everything", "label"}));
  calls.clear();
  center.postNotification(NYBNotification("unrelated"));
  EXPECT_EQ(calls, (std::vector<std::string>{"everything"}));

  // An object filter does not keep its object alive, and a new object never
  // matches the filter of one that went, even at the same address.
  std::weak_ptr<test::TestAddress> watched = sender;
  sender.reset();
  EXPECT_TRUE(watched.expired());
  calls.clear();
  for (int i = 0; i < 8; ++i) {
    center.postNotificationName("changed", std::make_shared<test::TestAddress>());
  }
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "sender"), 0);
  EXPECT_EQ(calls.size(), 16u);  // "any sender" and "everything" each time
}

TEST(NotificationCenter, RemovalAndRegistrationDuringADelivery) {
  NYBNotificationCenter center;
  std::vector<std::string> calls;
  NYBNotificationToken second, self;
  bool addedLate = false;
  center.addObserverForName("tick", {}, [&](const NYBNotification&) {
    calls.push_back("first");
    center.removeObserver(second);  // not yet called in this delivery
    if (!addedLate) {
      addedLate = true;
      center.addObserverForName("tick", {},
                                [&](const NYBNotification&) { calls.push_back("late"); });
    }
  });
  second = center.addObserverForName("tick", {},
                                     [&](const NYBNotification&) { calls.push_back("second"); });
  self = center.addObserverForName("tick", {}, [&](const NYBNotification&) {
    calls.push_back("self");
    center.removeObserver(self);
  });

  center.postNotificationName("tick");
  center.postNotificationName("tick");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "self", "first", "late"}));
  // Removing twice, or an empty token, does nothing.
  center.removeObserver(second);
  center.removeObserver(NYBNotificationToken());
  EXPECT_EQ(center.observerCount(), 2U);
}

TEST(NotificationCenter, PostsFromManyThreadsWhileObserversComeAndGo) {
  NYBNotificationCenter center;
  std::atomic<int> steady{0};
  center.addObserverForName("load", {}, [&](const NYBNotification&) { ++steady; });
  std::atomic<bool> done{false};
  std::thread churn([&] {
    while (!done)
      center.removeObserver(center.addObserverForName("load", {}, [](const NYBNotification&) {}));
  });
  std::vector<std::thread> posters;
  for (int t = 0; t < 4; ++t) {
    posters.emplace_back([&] {
      for (int i = 0; i < 500; ++i) center.postNotificationName("load");
    });
  }
  for (auto& poster : posters) poster.join();
  done = true;
  churn.join();
  EXPECT_EQ(steady.load(), 2000);
  EXPECT_EQ(center.observerCount(), 1U);
}

}  // namespace
}  // namespace nyb
