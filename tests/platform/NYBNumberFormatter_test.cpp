#include "NymbrelCore/NYBNumberFormatter.h"

#include <gtest/gtest.h>

namespace nyb {
namespace {

TEST(NYBNumberFormatterTest, FormatsAndParsesInTheLocalesStyle) {
  NYBNumberFormatter formatter;
  EXPECT_EQ(formatter.locale(), std::nullopt);
  EXPECT_TRUE(formatter.stringFromNumber(1.5).has_value());  // the device's locale

  formatter.setLocale("en_US");
  EXPECT_EQ(formatter.stringFromNumber(1234.5), "1,234.5");
  EXPECT_EQ(formatter.numberFromString("1,234.5"), 1234.5);
  EXPECT_EQ(formatter.numberFromString("-98.6"), -98.6);
  EXPECT_EQ(formatter.numberFromString("12abc"), std::nullopt);
  EXPECT_EQ(formatter.numberFromString(""), std::nullopt);

  formatter.setLocale("de_DE");
  EXPECT_EQ(formatter.stringFromNumber(1234.5), "1.234,5");
  EXPECT_EQ(formatter.numberFromString("1.234,5"), 1234.5);
}

}  // namespace
}  // namespace nyb
