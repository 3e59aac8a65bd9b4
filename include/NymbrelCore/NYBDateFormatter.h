// NYBDateFormatter: writes instants as text and reads them back through a
// date-format pattern of Unicode Technical Standard #35 ("yyyy-MM-dd'T'HH:mm:ssxxx"),
// in a locale and a time zone.
//
// A formatter whose locale was never set uses the device's locale; one whose
// time zone was never set uses the device's time zone as it is at each call,
// so it follows setDeviceTimeZone(). Parsing is strict: text that the whole
// pattern does not match gives absent (no lenient guessing of impossible
// dates, nothing left over after the match). Callers share formatters through
// std::shared_ptr; every member function may be called from any thread, and
// one formatter may be shared by several threads (calls are serialised inside).
//
// The device's time zone is the process's default zone: detected from the host
// (TZ, /etc/localtime) on first use, then whatever setDeviceTimeZone() last set.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBDate.h"

namespace nyb {

class NYB_EXPORT NYBDateFormatter {
 public:
  // Pattern "", the device's locale and the device's time zone.
  NYBDateFormatter();
  ~NYBDateFormatter();
  NYBDateFormatter(const NYBDateFormatter&) = delete;
  NYBDateFormatter& operator=(const NYBDateFormatter&) = delete;

  // A locale identifier ("en_US_POSIX", "de_DE"); absent returns to the
  // device's locale.
  void setLocale(std::optional<std::string> localeID);
  // Absent while the device's locale is in use.
  std::optional<std::string> locale() const;

  void setDateFormat(std::string pattern);
  std::string dateFormat() const;

  // A time-zone identifier ("UTC", "America/New_York", "GMT+05:30"); absent
  // returns to the device's current zone. Throws NYBInvalidArgumentException
  // for an identifier the time-zone database does not know.
  void setTimeZone(std::optional<std::string> zoneID);
  // Absent while the device's zone is in use.
  std::optional<std::string> timeZone() const;

  // The instant as text; absent for an absent instant or one that the calendar
  // cannot express (not finite, beyond its range).
  std::optional<std::string> stringFromDate(const std::optional<NYBDate>& date) const;
  // The instant that the text denotes; absent unless the pattern matches the
  // whole text. (Blanks before a numeric field are skipped, as the underlying
  // date-format engine does.)
  std::optional<NYBDate> dateFromString(std::string_view text) const;

  // The device's time zone, for hosts and tests: every formatter without a zone
  // of its own uses the new zone from its next call on. Throws
  // NYBInvalidArgumentException for an unknown identifier.
  static void setDeviceTimeZone(const std::string& zoneID);
  // The identifier of the device's current time zone ("Etc/UTC", "Europe/Paris").
  static std::string deviceTimeZoneID();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nyb
