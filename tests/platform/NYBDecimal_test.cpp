#include "NymbrelCore/NYBDecimal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace nyb {
namespace {

TEST(NYBDecimalTest, ReadsDecimalTextExactlyAndWritesItCanonically) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"98.6", "98.6"},
      {"37.0", "37"},
      {"98.60", "98.6"},
      {"-0.25", "-0.25"},
      {"+.5", "0.5"},
      {"007.50", "7.5"},
      {"-0", "0"},
      {"0e999999999999", "0"},
      {"1e3", "1000"},
      {"1.5E-7", "0.00000015"},
      {"  12.5\n", "12.5"},
      {"1234567890123456789012345678901234567890.0123456789",
       "1234567890123456789012345678901234567890.0123456789"},
      {"1e49", "1" + std::string(49, '0')},
      {"1e50", "1e+50"},
      {"-2.50e60", "-2.5e+60"},
      {"1e-50", "0." + std::string(49, '0') + "1"},
      {"2.5e-51", "2.5e-51"},
      {"1e-9999", "1e-9999"},
  };
  for (const auto& [text, canonical] : cases) {
    const NYBDecimal decimal = NYBDecimal::fromString(text);
    EXPECT_FALSE(decimal.isNaN()) << text;
    EXPECT_EQ(decimal.stringValue(), canonical) << text;
    // The canonical text reads back to the same value.
    EXPECT_EQ(NYBDecimal::fromString(canonical), decimal) << canonical;
    EXPECT_EQ(NYBDecimal::fromString(canonical).stringValue(), canonical) << canonical;
  }
}

TEST(NYBDecimalTest, AnythingNotWhollyANumberIsNotANumber) {
  for (const char* text :
       {"",    "   ", "abc",   "12abc", "abc12", "1,5", "1 000", "1e",  "e5",  ".",   "-",
        "+-1", "--1", "1e5.5", "1.2.3", "0x10",  "inf", "-inf",  "nan", "NaN", "1e+", "１２"}) {
    const NYBDecimal decimal = NYBDecimal::fromString(text);
    EXPECT_TRUE(decimal.isNaN()) << '"' << text << '"';
    EXPECT_EQ(decimal.stringValue(), "NaN") << text;
    EXPECT_EQ(decimal, NYBDecimal::notANumber()) << text;
  }
  // Beyond the range: not-a-number rather than zero or infinity.
  EXPECT_TRUE(NYBDecimal::fromString("1e10000").isNaN());
  EXPECT_TRUE(NYBDecimal::fromString("0.1e-9999").isNaN());
  EXPECT_TRUE(NYBDecimal::fromString("1e99999999999999999999").isNaN());
  EXPECT_TRUE(NYBDecimal::fromString("-1e-99999999999999999999").isNaN());
}

TEST(NYBDecimalTest, KeepsFiftySignificantDigitsRoundingTheRest) {
  const std::string fifty = "1." + std::string(48, '0') + "1";  // 50 digits, kept as is
  EXPECT_EQ(NYBDecimal::fromString(fifty).stringValue(), fifty);
  EXPECT_EQ(NYBDecimal::fromString(fifty + "4").stringValue(), fifty);
  EXPECT_EQ(NYBDecimal::fromString(fifty + "6").stringValue(), "1." + std::string(48, '0') + "2");
  // Rounding carries into a new leading digit...
  EXPECT_EQ(NYBDecimal::fromString(std::string(51, '9')).stringValue(), "1e+51");
  EXPECT_EQ(NYBDecimal::fromString("-0." + std::string(60, '9')).stringValue(), "-1");
  // ...and out of the range.
  EXPECT_TRUE(NYBDecimal::fromString("9." + std::string(50, '9') + "e9999").isNaN());
}

TEST(NYBDecimalTest, EqualityAndHashGoByValue) {
  const NYBDecimal a = NYBDecimal::fromString("37");
  for (const char* same : {"37.00", "3.7e1", "370e-1", "+037"}) {
    EXPECT_EQ(NYBDecimal::fromString(same), a) << same;
    EXPECT_EQ(NYBDecimal::fromString(same).hash(), a.hash()) << same;
  }
  EXPECT_NE(NYBDecimal::fromString("37.1"), a);
  EXPECT_NE(NYBDecimal::fromString("-37"), a);
  EXPECT_NE(NYBDecimal::fromString("3.7"), a);
  EXPECT_EQ(NYBDecimal(), NYBDecimal::fromString("-0.0"));
  EXPECT_EQ(NYBDecimal().hash(), NYBDecimal::fromString("-0.0").hash());
  EXPECT_NE(NYBDecimal(), NYBDecimal::notANumber());
  EXPECT_EQ(NYBDecimal::notANumber(), NYBDecimal::fromString("abc"));
  EXPECT_EQ(NYBDecimal::notANumber().hash(), NYBDecimal::fromString("abc").hash());
}

TEST(NYBDecimalTest, ConvertsToAndFromBinaryReals) {
  EXPECT_EQ(NYBDecimal::fromString("98.6").doubleValue(), 98.6);
  EXPECT_EQ(NYBDecimal::fromString("1e400").doubleValue(), INFINITY);
  EXPECT_EQ(NYBDecimal::fromString("-1e400").doubleValue(), -INFINITY);
  EXPECT_EQ(NYBDecimal::fromString("1e-400").doubleValue(), 0.0);
  EXPECT_TRUE(std::isnan(NYBDecimal::notANumber().doubleValue()));

  EXPECT_EQ(NYBDecimal::fromDouble(0.1).stringValue(), "0.1");
  EXPECT_EQ(NYBDecimal::fromDouble(0.1 + 0.2).stringValue(), "0.30000000000000004");
  EXPECT_EQ(NYBDecimal::fromDouble(-0.0).stringValue(), "0");
  EXPECT_EQ(NYBDecimal::fromDouble(1e300).stringValue(), "1e+300");
  EXPECT_EQ(NYBDecimal::fromDouble(5e-324).doubleValue(), 5e-324);
  EXPECT_TRUE(NYBDecimal::fromDouble(NAN).isNaN());
  EXPECT_TRUE(NYBDecimal::fromDouble(INFINITY).isNaN());
}

}  // namespace
}  // namespace nyb
