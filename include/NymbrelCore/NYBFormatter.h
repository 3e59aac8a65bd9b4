// NYBFormatter: the process-wide holder of the library's five date and number
// formatters, so that every date in every JSON document is written and read
// the same way.
//
// | formatter                       | locale        | pattern                     | zone   |
// | ISO8601DateTimeFormatter        | en_US_POSIX   | yyyy-MM-dd'T'HH:mm:ssxxx    | UTC    |
// | ISO8601LocalDateTimeFormatter   | en_US_POSIX   | yyyy-MM-dd'T'HH:mm:ssxxx    | device |
// | ISO8601DateFormatter            | en_US_POSIX   | yyyy-MM-dd                  | UTC    |
// | timeZoneFormatter               | device        | xxx                         | device |
// | numberFormatter                 | a default number formatter                          |
//
// Each is made on first use and kept; a formatter installed with a setter is
// returned as it is and never reconfigured, and setting absent makes the next
// get build a fresh default one. sharedFormatter() is created once, also under
// concurrent first calls. Getters and setters may be called from any thread;
// the formatters themselves are safe to share.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <mutex>

#include "NymbrelCore/NYBDateFormatter.h"
#include "NymbrelCore/NYBNumberFormatter.h"

namespace nyb {

class NYB_EXPORT NYBFormatter {
 public:
  static NYBFormatter& sharedFormatter();

  std::shared_ptr<NYBDateFormatter> ISO8601DateTimeFormatter();
  std::shared_ptr<NYBDateFormatter> ISO8601LocalDateTimeFormatter();
  std::shared_ptr<NYBDateFormatter> ISO8601DateFormatter();
  std::shared_ptr<NYBDateFormatter> timeZoneFormatter();
  std::shared_ptr<NYBNumberFormatter> numberFormatter();

  void setISO8601DateTimeFormatter(std::shared_ptr<NYBDateFormatter> formatter);
  void setISO8601LocalDateTimeFormatter(std::shared_ptr<NYBDateFormatter> formatter);
  void setISO8601DateFormatter(std::shared_ptr<NYBDateFormatter> formatter);
  void setTimeZoneFormatter(std::shared_ptr<NYBDateFormatter> formatter);
  void setNumberFormatter(std::shared_ptr<NYBNumberFormatter> formatter);

  NYBFormatter(const NYBFormatter&) = delete;
  NYBFormatter& operator=(const NYBFormatter&) = delete;

 private:
  NYBFormatter() = default;

  std::mutex mutex_;
  std::shared_ptr<NYBDateFormatter> dateTime_;
  std::shared_ptr<NYBDateFormatter> localDateTime_;
  std::shared_ptr<NYBDateFormatter> date_;
  std::shared_ptr<NYBDateFormatter> timeZone_;
  std::shared_ptr<NYBNumberFormatter> number_;
};

}  // namespace nyb
