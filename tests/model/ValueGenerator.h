// Random values for round trips: every kind nested to a depth, edge values and
// every range of code points included. In JSON mode only what JSON holds;
// otherwise every kind, with models from model().
#pragma once

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBURL.h"

namespace nyb::test {

class ValueGenerator {
 public:
  ValueGenerator(std::uint64_t seed, bool json) : random_(seed), json_(json) {}
  virtual ~ValueGenerator() = default;

  NYBDynamicValue value(int depth) {
    const int which = pick(depth > 0 ? 10 : 7);
    if (which < 7) return scalar();
    if (which == 7) return array(depth - 1);
    return which == 8 || json_ ? dictionary(depth - 1) : model(depth - 1);
  }

  NYBDynamicValue array(int depth) {
    NYBArray array;
    for (int n = pick(6); n > 0; --n) array.append(value(depth));
    return array;
  }

  NYBDynamicValue dictionary(int depth) {
    NYBDictionary dictionary;
    for (int n = pick(6); n > 0; --n) dictionary.set(json_ ? string() : value(depth), value(depth));
    return dictionary;
  }

  virtual NYBDynamicValue model(int depth) { return array(depth); }

  NYBDynamicValue scalar() {
    using I = std::numeric_limits<std::int64_t>;
    using D = std::numeric_limits<double>;
    // clang-format off
    static const NYBDynamicValue kEdges[] = {  // JSON holds the first kJSONEdges
        NYBDynamicValue::null(), true, false, "", "22 bytes stays inline", "twenty-three bytes long",
        std::string("nul\0inside", 10), 0, -1, 127, 128, -32, -33, I::min(), I::max(), 255u, 256u,
        65536u, 0x100000000ULL, ~0ULL, 0.0, -0.0, 1.0, 0.1, 1e21, 1e-7, D::denorm_min(), D::min(),
        D::max(), D::quiet_NaN(), D::infinity(), -D::infinity(), NYBDecimal::fromString("98.6"),
        NYBDecimal::fromString("-1.5e+60"), NYBDecimal::notANumber(), NYBDate(1456841109.25),
        NYBData(), *NYBURL::URLWithString("https://example.com/a?b=%20"),
        *NYBURL::URLWithString("relative/path")};
    // clang-format on
    constexpr std::size_t kJSONEdges = 29;
    const int which = pick(json_ ? 7 : 9);
    if (which == 0) return static_cast<std::int64_t>(random_());
    if (which == 1) return random_() >> pick(64);  // unsigned, above INT64_MAX now and then
    if (which == 2) {  // any bit pattern, subnormals included; JSON takes the finite ones
      double d;
      do d = std::bit_cast<double>(random_());
      while (json_ && !std::isfinite(d));
      return d;
    }
    if (which == 3) return static_cast<double>(pick(2000000) - 1000000) / 100;  // two decimals
    // Integral, on both sides of 2^53.
    if (which == 4) return std::ldexp(static_cast<double>(pick(1 << 20) + 1), pick(70));
    if (which == 5) return string();
    if (which == 6) return kEdges[pick(json_ ? kJSONEdges : std::size(kEdges))];
    if (which == 7) return NYBDate(std::bit_cast<double>(random_()));
    return NYBData(std::string(pick(40), static_cast<char>(random_())));
  }

  // Code points from every range that escaping and UTF-8 treat differently.
  NYBDynamicValue string() {
    constexpr std::uint32_t kRanges[][2] = {{0, 0x20},         {0x20, 0x80},       {'"', '"' + 1},
                                            {'\\', '\\' + 1},  {0x80, 0x800},      {0x800, 0xD800},
                                            {0xE000, 0x10000}, {0x10000, 0x110000}};
    constexpr unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
    std::string text;
    for (int n = pick(4) == 0 ? pick(300) : pick(10); n > 0; --n) {
      const auto& range = kRanges[pick(std::size(kRanges))];
      const std::uint32_t c = range[0] + static_cast<std::uint32_t>(pick(range[1] - range[0]));
      const int extra = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
      text += static_cast<char>(kLead[extra] | (c >> (6 * extra)));
      for (int i = extra - 1; i >= 0; --i)
        text += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
    }
    return NYBDynamicValue(std::move(text));
  }

 protected:
  int pick(std::size_t n) { return static_cast<int>(random_() % n); }
  std::mt19937_64 random_;

 private:
  bool json_;
};

}  // namespace nyb::test
