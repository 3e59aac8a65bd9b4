// NYBNumberFormatter: a locale-aware number formatter with default settings:
// the locale's decimal separator, grouping and default count of fraction digits.
//
// A formatter whose locale was never set uses the device's locale. Callers
// share formatters through std::shared_ptr; every member function may be
// called from any thread, and one formatter may be shared by several threads
// (calls are serialised inside).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace nyb {

class NYB_EXPORT NYBNumberFormatter {
 public:
  NYBNumberFormatter();
  ~NYBNumberFormatter();
  NYBNumberFormatter(const NYBNumberFormatter&) = delete;
  NYBNumberFormatter& operator=(const NYBNumberFormatter&) = delete;

  // A locale identifier ("en_US", "de_DE"); absent returns to the device's locale.
  void setLocale(std::optional<std::string> localeID);
  // Absent while the device's locale is in use.
  std::optional<std::string> locale() const;

  // The number in the locale's default style ("1,234.568" in en_US); absent
  // only if the formatting engine fails.
  std::optional<std::string> stringFromNumber(double number) const;
  // The number that the whole text denotes in the locale's style; absent when
  // the text is not wholly a number.
  std::optional<double> numberFromString(std::string_view text) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nyb
