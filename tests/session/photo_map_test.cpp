#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "NymbrelCore/NYBDictionary.h"
#include "session/PhotoMap.h"

namespace {

using nyb::NYBDictionary;
using nyb::NYBDynamicValue;
using nyb::session::PhotoMap;

// A save writes the copy it took, whatever the map does afterwards: random
// changes checked against a plain dictionary after every step, with copies
// taken along the way that must still hold what they held. Enough entries go
// and come for chunks to be shared, copied on change, emptied and packed.
TEST(PhotoMap, BehavesAsADictionaryAndCopiesKeepWhatTheyHeld) {
  std::mt19937 random(7);
  PhotoMap map;
  NYBDictionary expected;
  std::vector<std::pair<PhotoMap, NYBDictionary>> copies;
  const auto name = [](int n) { return NYBDynamicValue(std::to_string(n) + ".png"); };
  for (int step = 0; step < 6000; ++step) {
    const int key = static_cast<int>(random() % 900);
    switch (random() % 8) {
      case 0:
      case 1:
        EXPECT_EQ(map.remove(NYBDynamicValue(key)), expected.remove(NYBDynamicValue(key)));
        break;
      case 2:
        if (step % 40 == 0) copies.emplace_back(map, expected);
        break;
      default: {
        const int file = static_cast<int>(random() % 50);
        map.set(NYBDynamicValue(key), name(file));
        expected.set(NYBDynamicValue(key), name(file));
      }
    }
    const NYBDynamicValue* found = map.find(NYBDynamicValue(key));
    ASSERT_EQ(found != nullptr, expected.find(NYBDynamicValue(key)) != nullptr) << step;
    if (found) {
      EXPECT_TRUE(found->isEqual(expected[NYBDynamicValue(key)]));
    }
    ASSERT_EQ(map.size(), expected.size());
  }
  EXPECT_TRUE(map.dictionary().isEqual(expected));
  std::vector<NYBDynamicValue> order, expectedOrder;
  map.forEachWhile([&](const NYBDynamicValue& key, const NYBDynamicValue&) {
    order.push_back(key);
    return true;
  });
  for (const auto& [key, value] : expected) expectedOrder.push_back(key);
  EXPECT_EQ(order, expectedOrder);
  for (int file = 0; file < 50; ++file) {
    bool named = false;
    for (const auto& [key, value] : expected) named = named || value.isEqual(name(file));
    EXPECT_EQ(map.names(name(file).stringView()), named) << file;
  }
  ASSERT_GT(copies.size(), 10u);
  for (const auto& [copy, held] : copies) {
    EXPECT_TRUE(copy.dictionary().isEqual(held));
    for (const auto& [key, value] : held) EXPECT_TRUE(copy.find(key)->isEqual(value));
  }
}

}  // namespace
