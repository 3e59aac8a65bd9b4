#include "NymbrelCore/NYBFormatter.h"

#include <optional>
#include <string>

namespace nyb {

namespace {

constexpr const char* kPOSIXLocale = "en_US_POSIX";
constexpr const char* kDateTimePattern = "yyyy-MM-dd'T'HH:mm:ssxxx";

// Settings are applied in the order locale, pattern, time zone; an empty
// optional leaves that setting at the device's.
std::shared_ptr<NYBDateFormatter> makeDateFormatter(std::optional<std::string> locale,
                                                    std::string pattern,
                                                    std::optional<std::string> zone) {
  auto formatter = std::make_shared<NYBDateFormatter>();
  if (locale) formatter->setLocale(std::move(locale));
  formatter->setDateFormat(std::move(pattern));
  if (zone) formatter->setTimeZone(std::move(zone));
  return formatter;
}

}  // namespace

NYBFormatter& NYBFormatter::sharedFormatter() {
  static NYBFormatter* shared = new NYBFormatter();  // lives to the end of the process
  return *shared;
}

std::shared_ptr<NYBDateFormatter> NYBFormatter::ISO8601DateTimeFormatter() {
  std::lock_guard lock(mutex_);
  if (!dateTime_) dateTime_ = makeDateFormatter(kPOSIXLocale, kDateTimePattern, "UTC");
  return dateTime_;
}

std::shared_ptr<NYBDateFormatter> NYBFormatter::ISO8601LocalDateTimeFormatter() {
  std::lock_guard lock(mutex_);
  if (!localDateTime_) localDateTime_ = makeDateFormatter(kPOSIXLocale, kDateTimePattern, {});
  return localDateTime_;
}

std::shared_ptr<NYBDateFormatter> NYBFormatter::ISO8601DateFormatter() {
  std::lock_guard lock(mutex_);
  if (!date_) date_ = makeDateFormatter(kPOSIXLocale, "yyyy-MM-dd", "UTC");
  return date_;
}

std::shared_ptr<NYBDateFormatter> NYBFormatter::timeZoneFormatter() {
  std::lock_guard lock(mutex_);
  if (!timeZone_) timeZone_ = makeDateFormatter({}, "xxx", {});
  return timeZone_;
}

std::shared_ptr<NYBNumberFormatter> NYBFormatter::numberFormatter() {
  std::lock_guard lock(mutex_);
  if (!number_) number_ = std::make_shared<NYBNumberFormatter>();
  return number_;
}

void NYBFormatter::setISO8601DateTimeFormatter(std::shared_ptr<NYBDateFormatter> formatter) {
  std::lock_guard lock(mutex_);
  dateTime_ = std::move(formatter);
}

void NYBFormatter::setISO8601LocalDateTimeFormatter(std::shared_ptr<NYBDateFormatter> formatter) {
  std::lock_guard lock(mutex_);
  localDateTime_ = std::move(formatter);
}

void NYBFormatter::setISO8601DateFormatter(std::shared_ptr<NYBDateFormatter> formatter) {
  std::lock_guard lock(mutex_);
  date_ = std::move(formatter);
}

void NYBFormatter::setTimeZoneFormatter(std::shared_ptr<NYBDateFormatter> formatter) {
  std::lock_guard lock(mutex_);
  timeZone_ = std::move(formatter);
}

void NYBFormatter::setNumberFormatter(std::shared_ptr<NYBNumberFormatter> formatter) {
  std::lock_guard lock(mutex_);
  number_ = std::move(formatter);
}

}  // namespace nyb
