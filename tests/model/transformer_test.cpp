// Value transformers and the shared formatters.
#include <gtest/gtest.h>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBFormatter.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"

namespace nyb {
namespace {

constexpr double kMarch1st = 1456841109;  // 2016-03-01T14:05:09Z

NYBDynamicValue emptyArrayForAbsent(const NYBDynamicValue& v) {
  return v.isAbsent() ? NYBDynamicValue(NYBArray{}) : v;
}

TEST(ValueTransformer, FactoriesGiveTheClassThatDecidesReversal) {
  auto oneWay = NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent);
  EXPECT_EQ(&oneWay->classObject(), &NYBValueTransformer::staticClass());
  EXPECT_FALSE(oneWay->allowsReverseTransformation());
  EXPECT_FALSE(oneWay->reverseBlock());

  // Two functions always give the reversible class, whatever class is asked.
  auto twoWay =
      NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent, emptyArrayForAbsent);
  EXPECT_EQ(&twoWay->classObject(), &NYBReversibleValueTransformer::staticClass());
  EXPECT_TRUE(twoWay->allowsReverseTransformation());

  // Asked of the reversible class, one function gives a reversible transformer
  // with no reverse function: it claims reversal and fails when asked.
  auto trap = NYBReversibleValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent);
  EXPECT_TRUE(trap->allowsReverseTransformation());
  EXPECT_THROW(static_cast<NYBReversibleValueTransformer&>(*trap).reverseTransformedValue("x"),
               NYBInvalidArgumentException);
  auto trap2 = NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent, nullptr);
  EXPECT_TRUE(trap2->allowsReverseTransformation());
  // One block serving both ways; blocks see every value, absent included.
  auto both = NYBReversibleValueTransformer::transformerUsingReversibleBlock(emptyArrayForAbsent);
  EXPECT_EQ(static_cast<NYBReversibleValueTransformer&>(*both).reverseTransformedValue({}),
            NYBDynamicValue(NYBArray{}));
  EXPECT_EQ(both->transformedValue(7), NYBDynamicValue(7));
}

// The record documents prove the shared formatters' patterns; here only their lifecycle.
TEST(SharedFormatter, FormattersAreMadeOnceAndSettersInstallOrReset) {
  NYBFormatter& shared = NYBFormatter::sharedFormatter();
  auto first = shared.ISO8601DateTimeFormatter();
  EXPECT_EQ(first, shared.ISO8601DateTimeFormatter());

  auto mine = std::make_shared<NYBDateFormatter>();
  mine->setDateFormat("yyyy");
  shared.setISO8601DateTimeFormatter(mine);
  EXPECT_EQ(shared.ISO8601DateTimeFormatter(), mine);
  EXPECT_EQ(mine->dateFormat(), "yyyy") << "an installed formatter is never reconfigured";

  shared.setISO8601DateTimeFormatter(nullptr);
  auto fresh = shared.ISO8601DateTimeFormatter();
  EXPECT_NE(fresh, mine);
  EXPECT_NE(fresh, first);
  EXPECT_EQ(fresh->stringFromDate(NYBDate(kMarch1st)), "2016-03-01T14:05:09+00:00");
}

}  // namespace
}  // namespace nyb
