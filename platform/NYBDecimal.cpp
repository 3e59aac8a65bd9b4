#include "NymbrelCore/NYBDecimal.h"

#include <boost/multiprecision/cpp_dec_float.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/Hashing.h"

namespace nyb {

namespace {

using Float = boost::multiprecision::cpp_dec_float_50;

constexpr int kSignificantDigits = 50;
constexpr std::int64_t kMaxExponent = 9999;  // of the leading digit, either sign
constexpr int kPlainMinExponent = -50;
constexpr int kPlainMaxExponent = 49;

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// A number in the form sign, significant digits d1 d2 ... (d1 != 0, or the
// single digit 0 for zero) and the exponent of d1: d1.d2d3... x 10^exponent.
struct Scientific {
  bool negative = false;
  std::string digits;
  std::int64_t exponent = 0;
};

// Checks that `text` (blanks around it aside) is wholly one decimal number and
// splits it up. Absent for anything else.
std::optional<Scientific> scan(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);

  std::size_t i = 0;
  Scientific result;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    result.negative = text[i] == '-';
    ++i;
  }
  const std::size_t integerStart = i;
  while (i < text.size() && isDigit(text[i])) ++i;
  const std::string_view integer = text.substr(integerStart, i - integerStart);
  std::string_view fraction;
  if (i < text.size() && text[i] == '.') {
    const std::size_t fractionStart = ++i;
    while (i < text.size() && isDigit(text[i])) ++i;
    fraction = text.substr(fractionStart, i - fractionStart);
  }
  if (integer.empty() && fraction.empty()) return std::nullopt;

  std::int64_t exponent = 0;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    bool negativeExponent = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
      negativeExponent = text[i] == '-';
      ++i;
    }
    const std::size_t exponentStart = i;
    while (i < text.size() && isDigit(text[i])) {
      // Saturate: anything this large is out of range whatever the digits say.
      exponent = std::min<std::int64_t>(exponent * 10 + (text[i] - '0'), 1'000'000'000);
      ++i;
    }
    if (i == exponentStart) return std::nullopt;
    if (negativeExponent) exponent = -exponent;
  }
  if (i != text.size()) return std::nullopt;

  std::string all;
  all.reserve(integer.size() + fraction.size());
  all.append(integer).append(fraction);
  const std::size_t firstNonZero = all.find_first_not_of('0');
  if (firstNonZero == std::string::npos) {
    return Scientific{false, "0", 0};
  }
  const std::size_t lastNonZero = all.find_last_not_of('0');
  result.digits = all.substr(firstNonZero, lastNonZero - firstNonZero + 1);
  result.exponent = exponent + static_cast<std::int64_t>(integer.size()) - 1 -
                    static_cast<std::int64_t>(firstNonZero);
  return result;
}

// Reads the scientific text that cpp_dec_float writes ("-9.8600e+01").
Scientific fromScientificText(const std::string& text) {
  Scientific result;
  std::size_t i = 0;
  if (text[i] == '-' || text[i] == '+') {
    result.negative = text[i] == '-';
    ++i;
  }
  const std::size_t e = text.find_first_of("eE", i);
  for (std::size_t j = i; j < e; ++j) {
    if (isDigit(text[j])) result.digits.push_back(text[j]);
  }
  if (e != std::string::npos) result.exponent = std::strtoll(text.c_str() + e + 1, nullptr, 10);
  const std::size_t lastNonZero = result.digits.find_last_not_of('0');
  if (lastNonZero == std::string::npos) return Scientific{false, "0", 0};
  result.digits.resize(lastNonZero + 1);
  return result;
}

std::string canonicalText(const Scientific& number) {
  if (number.digits == "0") return "0";
  std::string out = number.negative ? "-" : "";
  const std::string& digits = number.digits;
  const std::int64_t exponent = number.exponent;
  if (exponent >= kPlainMinExponent && exponent <= kPlainMaxExponent) {
    if (exponent < 0) {
      out.append("0.").append(static_cast<std::size_t>(-exponent - 1), '0').append(digits);
    } else {
      const auto integerDigits = static_cast<std::size_t>(exponent) + 1;
      if (digits.size() <= integerDigits) {
        out.append(digits).append(integerDigits - digits.size(), '0');
      } else {
        out.append(digits, 0, integerDigits).append(".").append(digits, integerDigits);
      }
    }
    return out;
  }
  out.push_back(digits[0]);
  if (digits.size() > 1) out.append(".").append(digits, 1);
  out.append(exponent < 0 ? "e-" : "e+")
      .append(std::to_string(exponent < 0 ? -exponent : exponent));
  return out;
}

}  // namespace

struct NYBDecimal::Impl {
  bool nan = false;
  std::string text;  // canonical; equality and hash go by it
};

NYBDecimal::NYBDecimal() {
  static const auto zero = std::make_shared<const Impl>(Impl{false, "0"});
  impl_ = zero;
}

NYBDecimal::NYBDecimal(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}

NYBDecimal NYBDecimal::notANumber() {
  static const auto nan = std::make_shared<const Impl>(Impl{true, "NaN"});
  return NYBDecimal(nan);
}

NYBDecimal NYBDecimal::fromString(std::string_view text) {
  const std::optional<Scientific> scanned = scan(text);
  if (!scanned || scanned->exponent < -kMaxExponent || scanned->exponent > kMaxExponent) {
    return notANumber();
  }
  if (scanned->digits == "0") return NYBDecimal();

  Scientific number = *scanned;
  if (number.digits.size() > kSignificantDigits) {
    // Round to the precision we keep; the rounding may carry into a new leading digit.
    std::string normalized = (number.negative ? "-" : "") + number.digits.substr(0, 1) + "." +
                             number.digits.substr(1) + "e" + std::to_string(number.exponent);
    const Float value(normalized);
    number = fromScientificText(value.str(kSignificantDigits - 1, std::ios_base::scientific));
    if (number.exponent > kMaxExponent) return notANumber();
  }
  return NYBDecimal(std::make_shared<const Impl>(Impl{false, canonicalText(number)}));
}

NYBDecimal NYBDecimal::fromDouble(double value) {
  if (!std::isfinite(value)) return notANumber();
  char buffer[64];
  const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  if (ec != std::errc()) return notANumber();
  return fromString(std::string_view(buffer, static_cast<std::size_t>(end - buffer)));
}

bool NYBDecimal::isNaN() const { return impl_->nan; }

std::string NYBDecimal::stringValue() const { return impl_->text; }

double NYBDecimal::doubleValue() const {
  if (impl_->nan) return std::numeric_limits<double>::quiet_NaN();
  const std::string& text = impl_->text;
  double value = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  (void)ptr;
  if (ec == std::errc::result_out_of_range) {
    // Too large for a binary real, or too small to be anything but zero.
    const bool negative = text.front() == '-';
    const bool tiny = text.find("e-") != std::string::npos;
    value = tiny ? 0.0 : std::numeric_limits<double>::infinity();
    return negative ? -value : value;
  }
  return value;
}

bool operator==(const NYBDecimal& a, const NYBDecimal& b) {
  return a.impl_ == b.impl_ || a.impl_->text == b.impl_->text;
}

std::size_t NYBDecimal::hash() const { return hashing::bytes(impl_->text); }

}  // namespace nyb
