// Date and number formatters: text in and out, by pattern, zone and locale.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "NymbrelCore/NYBDateFormatter.h"
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

// The record documents prove the date-time pattern itself; here what they do not reach.
TEST(NYBDateFormatterTest, ReadsOnlyWholeValidTextAndWritesOnlyExpressibleInstants) {
  const auto utc = makeFormatter(kDateTime, "UTC");
  EXPECT_EQ(utc->dateFromString("2016-03-01T19:35:09+05:30"), NYBDate(kMarch2016));
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
    EXPECT_EQ(offset->stringFromDate(NYBDate(1467381909)), "-04:00");  // July: summer time
    EXPECT_EQ(makeFormatter(kDateTime, std::nullopt)->stringFromDate(NYBDate(kMarch2016)),
              "2016-03-01T09:05:09-05:00");
    NYBDateFormatter::setDeviceTimeZone("Asia/Kolkata");
    EXPECT_EQ(offset->stringFromDate(NYBDate(kMarch2016)), "+05:30");
    EXPECT_EQ(fixed->stringFromDate(NYBDate(kMarch2016)), "+09:00");
    // A formatter that gives up its own zone follows the device from then on.
    fixed->setTimeZone(std::nullopt);
    EXPECT_EQ(fixed->stringFromDate(NYBDate(kMarch2016)), "+05:30");
  }
  EXPECT_EQ(NYBDateFormatter::deviceTimeZoneID(), before);

  // The locale names the months; an unknown zone is refused and changes nothing.
  const auto french = makeFormatter("d MMMM yyyy", "Europe/Paris", "fr_FR");
  EXPECT_EQ(french->stringFromDate(NYBDate(kMarch2016)), "1 mars 2016");
  EXPECT_EQ(french->dateFromString("1 March 2016"), std::nullopt);
  EXPECT_THROW(french->setTimeZone("Mars/Olympus_Mons"), NYBInvalidArgumentException);
  EXPECT_EQ(french->timeZone(), "Europe/Paris");
  EXPECT_THROW(NYBDateFormatter::setDeviceTimeZone("Mars/Olympus_Mons"),
               NYBInvalidArgumentException);
  EXPECT_EQ(NYBDateFormatter::deviceTimeZoneID(), before);
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

}  // namespace
}  // namespace nyb
