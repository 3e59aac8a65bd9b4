// The dynamic value and its containers: kinds, value equality, hashing and
// descriptions; URLs.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBURL.h"

namespace nyb {
namespace {

TEST(DynamicValue, KindsAndNumbersCompareAndHashByValue) {
  using Pair = std::pair<NYBDynamicValue, NYBDynamicValue>;
  const std::uint64_t big = std::numeric_limits<std::uint64_t>::max() - 2047;  // exactly a double
  // Numbers meet by value across kinds, beyond int64 too.
  for (const auto& [a, b] :
       {Pair{1, std::uint64_t{1}}, Pair{std::uint64_t{1}, 1.0}, Pair{1.0, true}, Pair{true, 1},
        Pair{0.0, -0.0}, Pair{big, static_cast<double>(big)}}) {
    EXPECT_TRUE(a == b && b == a && a.hash() == b.hash())
        << a.description() << " / " << b.description();
  }
  for (const auto& [a, b] : {Pair{NYBDynamicValue(), NYBDynamicValue::null()},
                             Pair{NYBDynamicValue::null(), ""}, Pair{1, 1.5}, Pair{1, "1"},
                             Pair{std::numeric_limits<std::int64_t>::min(),
                                  std::numeric_limits<std::uint64_t>::max()}}) {
    EXPECT_FALSE(a == b || b == a) << a.description() << " / " << b.description();
  }
  EXPECT_EQ(NYBDynamicValue("Yes").boolValue(), true);
  EXPECT_EQ(NYBDynamicValue(2.9).integerValue(), 2);
  EXPECT_EQ(NYBDynamicValue(1e300).integerValue(), 0) << "out of range reads as 0, no UB";
}

TEST(DynamicValue, ContainersCompareByContentAndDictionariesIgnoreOrder) {
  NYBDictionary ab{{"a", 1}, {"b", NYBArray{1, "two"}}};
  NYBDictionary ba{{"b", NYBArray{1.0, "two"}}, {"a", true}};
  EXPECT_TRUE(ab == ba && ab.hash() == ba.hash());
  EXPECT_EQ(ab.stringKeys(), (std::vector<std::string>{"a", "b"})) << "insertion order kept";
  EXPECT_NE(ab, (NYBDictionary{{"a", 1}}));
  EXPECT_NE((NYBArray{1, 2}), (NYBArray{2, 1})) << "arrays keep order";

  NYBDictionary edited = ab;
  edited.set("a", 5);
  edited.set("c", NYBDynamicValue());  // setting absent adds nothing, and removes
  edited.set("b", NYBDynamicValue());
  EXPECT_EQ(edited, (NYBDictionary{{"a", 5}}));
  EXPECT_EQ(ab["a"], NYBDynamicValue(1)) << "the original is untouched";
}

TEST(DynamicValue, DeeplyNestedKeysCompareInLinearTime) {
  // Each level's key is the dictionary of the level below; a wrong search
  // repeats comparisons and never finishes at this depth.
  auto nest = [](int leaf) {
    NYBDynamicValue value = NYBDictionary{{leaf, 0}};
    for (int depth = 0; depth < 60; ++depth) value = NYBDictionary{{value, 0}};
    return value;
  };
  EXPECT_NE(nest(1), nest(2));
  EXPECT_EQ(nest(1), nest(1));
}

TEST(DynamicValue, DescriptionsFollowThePlatformsShapesAndURLsSplitIntoComponents) {
  const std::pair<NYBDynamicValue, const char*> cases[] = {
      {NYBDictionary{{"plain", "word"}, {"two words", NYBArray{1, NYBDynamicValue::null()}}},
       "{\n    plain = word;\n    \"two words\" = (\n        1,\n        \"<null>\"\n    );\n}"},
      {NYBDynamicValue(), "(null)"},
      {NYBDynamicValue::null(), "<null>"},
      {0.1 + 0.2, "0.30000000000000004"},
      {true, "1"},
      {NYBDate(1456841109), "2016-03-01 14:05:09 +0000"},
      {NYBData(std::string_view("\x01\xff", 2)), "{length = 2, bytes = 0x01ff}"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(value.description(), text);

  // URLs accept only URL characters and split into their components.
  for (const char* bad : {"http://h/a b", "http://h/%zz", "http://h/caf\xc3\xa9"})
    EXPECT_FALSE(NYBURL::URLWithString(bad)) << bad;
  auto url = NYBURL::URLWithString("https://user@api.example.com:8443/v1/x%2Ey?a=1&b=2#frag");
  auto v6 = NYBURL::URLWithString("http://[::1]:80/");
  ASSERT_TRUE(url && v6);
  EXPECT_EQ(std::tuple(url->scheme(), url->host(), url->port(), url->path(), url->query()),
            std::tuple("https", "api.example.com", 8443, "/v1/x%2Ey", "a=1&b=2"));
  EXPECT_EQ(std::tuple(v6->host(), v6->port()), std::tuple("::1", 80));
}

}  // namespace
}  // namespace nyb
