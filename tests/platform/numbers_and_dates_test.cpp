// Numbers and dates as text: exact decimals, and formatters by pattern, zone and locale.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBDateFormatter.h"
#include "NymbrelCore/NYBDecimal.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBNumberFormatter.h"
#include "support/TimeZoneOverride.h"

namespace nyb {
namespace {

constexpr double kMarch2016 = 1456841109;  // 2016-03-01 14:05:09 UTC
const char* const kDateTime = "yyyy-MM-dd'T'HH:mm:ssxxx";

std::unique_ptr<NYBDateFormatter> makeFormatter(const std::string& pattern,
                                                std::optional<std::string> zone,
                                                std::optional<std::string> locale = "en_US_POSIX") {
  auto formatter = std::make_unique<NYBDateFormatter>();
  formatter->setLocale(std::move(locale));
  formatter->setDateFormat(pattern);
  formatter->setTimeZone(std::move(zone));
  return formatter;
}

// The record documents prove the date-time pattern and the device's offset through the seasons;
// here what they do not reach.
TEST(NYBDateFormatterTest, ReadsOnlyWholeValidTextAndWritesOnlyExpressibleInstants) {
  const auto utc = makeFormatter(kDateTime, "UTC");
  const auto millis = makeFormatter("yyyy-MM-dd HH:mm:ss.SSS", "UTC");
  EXPECT_EQ(millis->dateFromString("2016-03-01 14:05:09.250"), NYBDate(kMarch2016 + 0.25));
  EXPECT_EQ(millis->stringFromDate(NYBDate(-86400.5)), "1969-12-30 23:59:59.500");

  for (const char* text :
       {"", "2016-03-01T09:05", "2016-03-01T09:05:09", "2016-03-01T09:05:09-05:00 and more",
        "2016-02-30T09:05:09-05:00", "2016-03-01T25:05:09-05:00", "2016/03/01T09:05:09-05:00"}) {
    EXPECT_EQ(utc->dateFromString(text), std::nullopt) << '"' << text << '"';
  }
  EXPECT_EQ(makeFormatter("yyyy-MM-dd", "UTC")->dateFromString("2016-03-01T00:00"), std::nullopt);
  EXPECT_EQ(utc->stringFromDate(std::nullopt), std::nullopt);
  for (double instant : {double(NAN), double(INFINITY), 1e300}) {
    EXPECT_EQ(utc->stringFromDate(NYBDate(instant)), std::nullopt) << instant;
  }
  // A malformed pattern (an unquoted letter that is no field) makes nothing.
  const auto malformed = makeFormatter("yyyy-MM-ddTHH", "UTC");
  EXPECT_EQ(malformed->stringFromDate(NYBDate(kMarch2016)), std::nullopt);
  EXPECT_EQ(malformed->dateFromString("2016-03-01T14"), std::nullopt);
}

TEST(NYBDateFormatterTest, FormattersWithoutAZoneFollowTheDeviceZone) {
  const auto offset = makeFormatter("xxx", std::nullopt, std::nullopt);
  const auto fixed = makeFormatter("xxx", "Asia/Tokyo");
  const std::string before = NYBDateFormatter::deviceTimeZoneID();
  {
    test::TimeZoneOverride zone("America/New_York");
    EXPECT_EQ(offset->stringFromDate(NYBDate(kMarch2016)), "-05:00");
    NYBDateFormatter::setDeviceTimeZone("Asia/Kolkata");  // a formatter in use follows a change
    EXPECT_EQ(offset->stringFromDate(NYBDate(kMarch2016)), "+05:30");
    EXPECT_EQ(fixed->stringFromDate(NYBDate(kMarch2016)), "+09:00");
    // A formatter that gives up its own zone follows the device from then on.
    fixed->setTimeZone(std::nullopt);
    EXPECT_EQ(fixed->stringFromDate(NYBDate(kMarch2016)), "+05:30");
  }

  // The locale names the months; an unknown zone is refused and changes nothing.
  const auto french = makeFormatter("d MMMM yyyy", "Europe/Paris", "fr_FR");
  EXPECT_EQ(french->stringFromDate(NYBDate(kMarch2016)), "1 mars 2016");
  EXPECT_EQ(french->dateFromString("1 March 2016"), std::nullopt);
  EXPECT_THROW(french->setTimeZone("Mars/Olympus_Mons"), NYBInvalidArgumentException);
  EXPECT_EQ(french->timeZone(), "Europe/Paris");
  EXPECT_THROW(NYBDateFormatter::setDeviceTimeZone("Mars/Olympus_Mons"),
               NYBInvalidArgumentException);
  EXPECT_EQ(NYBDateFormatter::deviceTimeZoneID(), before);  // the override put it back, too
}

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
