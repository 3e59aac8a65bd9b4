// Sets the device's time zone for a test and restores the one before on
// destruction. Date formatters without a zone of their own follow it.
#pragma once

#include <string>

#include "NymbrelCore/NYBDateFormatter.h"

namespace nyb::test {

class TimeZoneOverride {
 public:
  explicit TimeZoneOverride(const std::string& zoneID)
      : previous_(NYBDateFormatter::deviceTimeZoneID()) {
    NYBDateFormatter::setDeviceTimeZone(zoneID);
  }
  ~TimeZoneOverride() { NYBDateFormatter::setDeviceTimeZone(previous_); }
  TimeZoneOverride(const TimeZoneOverride&) = delete;
  TimeZoneOverride& operator=(const TimeZoneOverride&) = delete;

 private:
  std::string previous_;
};

}  // namespace nyb::test
