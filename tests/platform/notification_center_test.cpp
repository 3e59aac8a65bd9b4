// Who receives a notification, in which order, and changes during a delivery; a scoped observer
// removes its registration when destroyed, even after its centre is gone.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBNotificationCenter.h"
#include "support/TestModels.h"

namespace nyb {
namespace {

using Calls = std::vector<std::string>;

TEST(NotificationCenter, MatchesByNameAndSenderInRegistrationOrderOnThePostingThread) {
  NYBNotificationCenter center;
  auto sender = std::make_shared<test::TestAddress>();
  auto other = std::make_shared<test::TestAddress>();  // equal values, another object
  Calls calls;
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
  auto post = [&](auto&&... arguments) {
    calls.clear();
    center.postNotificationName(arguments...);
    return calls;
  };

  // Delivered before the post returns, in registration order; an equal but
  // distinct object does not match an object filter.
  EXPECT_EQ(post("changed", sender, info), (Calls{"sender", "any sender", "everything"}));
  EXPECT_EQ(post("changed", "label"), (Calls{"any sender", "everything", "label"}));
  EXPECT_EQ(post("unrelated"), (Calls{"everything"}));

  // An object filter does not keep its object alive, and a new object never
  // matches the filter of one that went, even at the same address.
  std::weak_ptr<test::TestAddress> watched = sender;
  sender.reset();
  EXPECT_TRUE(watched.expired());
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(post("changed", std::make_shared<test::TestAddress>()),
              (Calls{"any sender", "everything"}));
  }
}

TEST(NotificationCenter, RemovalAndRegistrationDuringADelivery) {
  NYBNotificationCenter center;
  Calls calls;
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

  for (int i = 0; i < 2; ++i) center.postNotificationName("tick");
  EXPECT_EQ(calls, (Calls{"first", "self", "first", "late"}));
  // Removing twice, or an empty token, does nothing.
  center.removeObserver(second);
  center.removeObserver(NYBNotificationToken());
  EXPECT_EQ(center.observerCount(), 2U);
}

TEST(ScopedObserver, RegistrationEndsWithTheObjectAndSurvivesItsCentre) {
  NYBNotificationCenter center;
  int calls = 0;
  {
    NYBScopedObserver first =
        center.addScopedObserverForName("ping", {}, [&](const NYBNotification&) { ++calls; });
    center.postNotificationName("ping");
    NYBScopedObserver moved = std::move(first);
    EXPECT_FALSE(first.isActive());
    EXPECT_TRUE(moved.isActive());
    center.postNotificationName("ping");
    EXPECT_EQ(center.observerCount(), 1U);
  }
  center.postNotificationName("ping");
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(center.observerCount(), 0U);

  NYBScopedObserver outliving;
  {
    auto shortLived = std::make_unique<NYBNotificationCenter>();
    outliving = shortLived->addScopedObserverForName({}, {}, [&](const NYBNotification&) {});
    EXPECT_EQ(shortLived->observerCount(), 1U);
  }
  outliving.reset();
  EXPECT_FALSE(outliving.isActive());
}

}  // namespace
}  // namespace nyb
