// A scoped observer is called while it lives, follows a move, and removes its
// registration when destroyed, even after its centre is gone.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "NymbrelCore/NYBNotificationCenter.h"

namespace nyb {
namespace {

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
