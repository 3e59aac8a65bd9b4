// NYBDecimal: an exact decimal number with a distinct not-a-number value.
//
// Parsing decimal text is exact: "98.6" is the decimal 98.6, not the nearest
// binary real. The point is always the decimal separator, whatever the
// device's locale. Text that is not a number gives the not-a-number decimal.
// A plain immutable value: copies share one representation, and it is safe to
// read from any thread.
//
// Precision and range: 50 significant digits (longer text is rounded to the
// nearest 50-digit value); the exponent of the leading digit lies within
// -9999 to 9999. A non-zero number outside that range is not-a-number, never
// silently zero or infinite.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace nyb {

class NYB_EXPORT NYBDecimal {
 public:
  // Zero.
  NYBDecimal();

  // The one not-a-number decimal. It equals itself.
  static NYBDecimal notANumber();
  // Exact parse of decimal text ("98.6", "-0.25", "+.5", "1e3", "37.0",
  // "1.5E-7"). Blanks (spaces, tabs, line ends) before and after the number
  // are ignored. Everything else must be the number: text with anything more
  // ("12abc", "1,5", "1 000"), empty text, "inf" and "nan" give notANumber().
  // The text "NaN" that stringValue() writes therefore reads back as NaN.
  static NYBDecimal fromString(std::string_view text);
  // The decimal nearest to a binary real, through its shortest round-trip text
  // (0.1 gives the decimal 0.1). Infinities and NaN give notANumber().
  static NYBDecimal fromDouble(double value);

  bool isNaN() const;
  // Canonical text: no exponent for ordinary magnitudes, no trailing zeros
  // ("37.0" gives "37", "98.60" gives "98.6", "-0" gives "0"), "NaN" for
  // not-a-number. Magnitudes of 1e50 and above or below 1e-50 are written
  // with an exponent ("1.5e+60", "2e-51"). fromString() reads every canonical
  // text back to an equal decimal.
  std::string stringValue() const;
  // The nearest binary real; NaN for not-a-number.
  double doubleValue() const;

  // Equality by value (37 == 37.00); the not-a-number decimal equals only itself.
  friend bool operator==(const NYBDecimal& a, const NYBDecimal& b);
  // Consistent with equality.
  std::size_t hash() const;

 private:
  struct Impl;
  explicit NYBDecimal(std::shared_ptr<const Impl> impl);
  std::shared_ptr<const Impl> impl_;
};

}  // namespace nyb
