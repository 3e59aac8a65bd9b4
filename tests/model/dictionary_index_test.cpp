// Large dictionaries find every kind of key through their index and stay
// correct across removal, replacement and copying; equality ignores order.
#include <gtest/gtest.h>

#include <string>

#include "NymbrelCore/NYBDictionary.h"

namespace nyb {
namespace {

NYBDynamicValue keyAt(int i) {
  if (i % 3 == 0) return NYBDynamicValue("key-" + std::to_string(i));
  if (i % 3 == 1) return NYBDynamicValue(i);
  return NYBDynamicValue(NYBDictionary{{"nested", i}});
}

TEST(DictionaryIndex, LargeDictionariesFindRemoveAndCompareWhateverTheOrder) {
  constexpr int kCount = 300;
  NYBDictionary forward;
  NYBDictionary backward;
  for (int i = 0; i < kCount; ++i) forward.set(keyAt(i), i);
  for (int i = kCount - 1; i >= 0; --i) backward.set(keyAt(i), i);
  ASSERT_EQ(forward.size(), static_cast<std::size_t>(kCount));
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(forward.hash(), backward.hash());
  for (int i = 0; i < kCount; ++i) {
    ASSERT_NE(forward.find(keyAt(i)), nullptr) << i;
    EXPECT_EQ(*forward.find(keyAt(i)), NYBDynamicValue(i));
  }
  EXPECT_EQ(*forward.find(NYBDynamicValue(4.0)), NYBDynamicValue(4));  // numbers by value
  EXPECT_EQ(forward.find("key-1"), nullptr);
  EXPECT_EQ(forward["key-3"], NYBDynamicValue(3));

  NYBDictionary copy = forward;
  for (int i = 0; i < kCount; i += 2) ASSERT_TRUE(forward.remove(keyAt(i)));
  forward.set(keyAt(1), "replaced");
  EXPECT_EQ(forward.size(), static_cast<std::size_t>(kCount / 2));
  for (int i = 0; i < kCount; ++i) {
    EXPECT_EQ(forward.find(keyAt(i)) != nullptr, i % 2 == 1) << i;
    EXPECT_NE(copy.find(keyAt(i)), nullptr) << i;
  }
  EXPECT_EQ(forward[keyAt(1)], NYBDynamicValue("replaced"));
  EXPECT_EQ(forward.begin()->first, keyAt(1));  // order of insertion kept
  EXPECT_NE(copy, forward);
  EXPECT_EQ(copy, backward);

  backward.set(keyAt(7), -1);
  EXPECT_NE(copy, backward);
}

}  // namespace
}  // namespace nyb
