#include "NymbrelCore/NYBDecimal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace nyb {
namespace {

TEST(NYBDecimalTest, ReadsDecimalTextExactlyAndWritesItCanonically) {
  const std::string fifty = "1." + std::string(48, '0') + "1";  // 50 digits, kept as is
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"37.0", "37"},
      {"-0.25", "-0.25"},
      {"+.5", "0.5"},
      {"007.50", "7.5"},
      {"-0", "0"},
      {"0e999999999999", "0"},
      {"1.5E-7", "0.00000015"},
      {"  12.5\n", "12.5"},
      {"1234567890123456789012345678901234567890.0123456789",
       "1234567890123456789012345678901234567890.0123456789"},
      // Plain notation up to 1e49 and down to 1e-50, exponents beyond.
      {"1e49", "1" + std::string(49, '0')},
      {"1e50", "1e+50"},
      {"-2.50e60", "-2.5e+60"},
      {"1e-50", "0." + std::string(49, '0') + "1"},
      {"2.5e-51", "2.5e-51"},
      {"1e-9999", "1e-9999"},
      // Fifty significant digits, the rest rounded, carrying into a new leading digit.
      {fifty, fifty},
      {fifty + "4", fifty},
      {fifty + "6", "1." + std::string(48, '0') + "2"},
      {std::string(51, '9'), "1e+51"},
      {"-0." + std::string(60, '9'), "-1"}};
  for (const auto& [text, canonical] : cases) {
    const NYBDecimal decimal = NYBDecimal::fromString(text);
    EXPECT_EQ(decimal.stringValue(), canonical) << text;
    // The canonical text reads back to an equal value with an equal hash.
    const NYBDecimal again = NYBDecimal::fromString(canonical);
    EXPECT_EQ(again, decimal) << canonical;
    EXPECT_EQ(again.hash(), decimal.hash()) << canonical;
    EXPECT_EQ(again.stringValue(), canonical) << canonical;
  }
  EXPECT_NE(NYBDecimal::fromString("37.1"), NYBDecimal::fromString("37"));
  EXPECT_NE(NYBDecimal::fromString("-37"), NYBDecimal::fromString("37"));
  EXPECT_EQ(NYBDecimal(), NYBDecimal::fromString("-0.0"));
  EXPECT_NE(NYBDecimal(), NYBDecimal::notANumber());
}

TEST(NYBDecimalTest, AnythingNotWhollyANumberIsNotANumber) {
  for (const char* text :
       {"", "   ", "abc", "12abc", "1,5", "1 000", "1e", "e5", ".", "-", "+-1", "--1", "1e5.5",
        "1.2.3", "0x10", "inf", "nan", "1e+", "１２",
        // Beyond the range: not-a-number rather than zero or infinity.
        "1e10000", "0.1e-9999", "1e99999999999999999999", "-1e-99999999999999999999"}) {
    const NYBDecimal decimal = NYBDecimal::fromString(text);
    EXPECT_TRUE(decimal.isNaN()) << '"' << text << '"';
    EXPECT_EQ(decimal.stringValue(), "NaN") << text;
    EXPECT_EQ(decimal, NYBDecimal::notANumber()) << text;
    EXPECT_EQ(decimal.hash(), NYBDecimal::notANumber().hash()) << text;
  }
  // Rounding to fifty digits carries out of the range.
  EXPECT_TRUE(NYBDecimal::fromString("9." + std::string(50, '9') + "e9999").isNaN());
}

TEST(NYBDecimalTest, ConvertsToAndFromBinaryReals) {
  EXPECT_EQ(NYBDecimal::fromString("98.6").doubleValue(), 98.6);
  EXPECT_EQ(NYBDecimal::fromString("-1e400").doubleValue(), -INFINITY);
  EXPECT_EQ(NYBDecimal::fromString("1e-400").doubleValue(), 0.0);
  EXPECT_TRUE(std::isnan(NYBDecimal::notANumber().doubleValue()));
  EXPECT_EQ(NYBDecimal::fromDouble(0.1 + 0.2).stringValue(), "0.30000000000000004");
  EXPECT_EQ(NYBDecimal::fromDouble(-0.0).stringValue(), "0");
  EXPECT_EQ(NYBDecimal::fromDouble(1e300).stringValue(), "1e+300");
  EXPECT_EQ(NYBDecimal::fromDouble(5e-324).doubleValue(), 5e-324);
  EXPECT_TRUE(NYBDecimal::fromDouble(NAN).isNaN());
  EXPECT_TRUE(NYBDecimal::fromDouble(INFINITY).isNaN());
}

}  // namespace
}  // namespace nyb
