// Unit conversions and unit texts. Expected results are computed here from the
// conversion table (to the standard unit, then to the target, in double
// precision, in the table's order) and must match to the last bit.

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>

#include "NymbrelCore/NYBRecord.h"

namespace nyb {
namespace {

using Formula = double (*)(double x, std::uint64_t unit);
using Conversion = NYBDynamicValue (*)(double x, std::uint64_t from, std::uint64_t to);

// Stored through memory so that the compiler cannot fuse a multiplication with
// the addition that follows it.
double rounded(double v) {
  volatile double r = v;
  return r;
}

std::uint64_t bits(double v) { return std::bit_cast<std::uint64_t>(v); }

struct Table {
  const char* name;
  std::uint64_t units;
  Conversion convert;
  Formula toStandard;
  Formula fromStandard;
};

const Table kTables[] = {
    {"weight", 3,
     [](double x, std::uint64_t f, std::uint64_t t) {
       return NYBRecord::convertWeightValue(x, NYBWeightUnit(f), NYBWeightUnit(t));
     },
     [](double x, std::uint64_t u) {
       return u == 0 ? x : u == 1 ? x * 0.45359237 : x * 6.35029318;
     },
     [](double x, std::uint64_t u) {
       return u == 0 ? x : u == 1 ? x / 0.45359237 : x / 6.35029318;
     }},
    {"temperature", 2,
     [](double x, std::uint64_t f, std::uint64_t t) {
       return NYBRecord::convertTemperatureValue(x, NYBTemperatureUnit(f), NYBTemperatureUnit(t));
     },
     [](double x, std::uint64_t u) { return u == 0 ? x : (x + (-32.0)) * 0.5555555555555556; },
     [](double x, std::uint64_t u) { return u == 0 ? x : rounded(x * 1.8) + 32.0; }},
    {"glucose", 2,
     [](double x, std::uint64_t f, std::uint64_t t) {
       return NYBRecord::convertGlucoseValue(x, NYBGlucoseUnit(f), NYBGlucoseUnit(t));
     },
     [](double x, std::uint64_t u) { return u == 0 ? x : x * 18.0; },
     [](double x, std::uint64_t u) { return u == 0 ? x : x / 18.0; }},
};

TEST(Units, ConversionsMatchTheTableBitForBit) {
  const double values[] = {0.0,     1.0,  -1.0,      0.1,        37.0,  98.6,
                           150.0,   10.0, 5.5,       90.0,       212.0, -40.0,
                           -273.15, 1e-3, 12345.678, 68.0388555, 1e300, 4.9e-324};
  for (const Table& table : kTables) {
    for (double x : values) {
      for (std::uint64_t from = 0; from < table.units; ++from) {
        for (std::uint64_t to = 0; to < table.units; ++to) {
          NYBDynamicValue result = table.convert(x, from, to);
          EXPECT_EQ(result.kind(), NYBDynamicValue::Kind::Real);
          EXPECT_EQ(bits(result.doubleValue()),
                    bits(table.fromStandard(table.toStandard(x, from), to)))
              << table.name << " " << x << " from " << from << " to " << to;
        }
      }
      // An unknown unit on either side gives 0, even where the target's formula
      // would add an offset (0 Celsius is 32 Fahrenheit).
      for (std::uint64_t unknown : {table.units, std::uint64_t{5}, kNYBNoUnitFlag}) {
        EXPECT_EQ(bits(table.convert(x, unknown, 1).doubleValue()), bits(0.0)) << table.name;
        EXPECT_EQ(bits(table.convert(x, 1, unknown).doubleValue()), bits(0.0)) << table.name;
      }
    }
  }
  // Fahrenheit to Celsius multiplies by the rounded constant; dividing by 1.8
  // would differ in the last bit here.
  ASSERT_NE((98.6 - 32.0) / 1.8, (98.6 + (-32.0)) * 0.5555555555555556);

  // The familiar values, up to double rounding.
  EXPECT_NEAR(kTables[0].convert(150, 1, 0).doubleValue(), 68.0388555, 1e-12);
  EXPECT_NEAR(kTables[0].convert(10, 2, 1).doubleValue(), 140.0, 1e-12);
  EXPECT_NEAR(kTables[1].convert(98.6, 1, 0).doubleValue(), 37.0, 1e-12);
  EXPECT_EQ(kTables[1].convert(100, 0, 1).doubleValue(), 212.0);
  EXPECT_EQ(kTables[2].convert(5.5, 1, 0).doubleValue(), 99.0);
  EXPECT_EQ(kTables[2].convert(90, 0, 1).doubleValue(), 5.0);

  // Absent reads as 0; integers and booleans are read as reals.
  EXPECT_EQ(NYBRecord::convertTemperatureValue({}, NYBTemperatureUnitCelsius,
                                               NYBTemperatureUnitFahrenheit),
            NYBDynamicValue(32.0));
  EXPECT_EQ(NYBRecord::convertGlucoseValue(std::int64_t{2}, NYBGlucoseUnitMmolL, NYBGlucoseUnitMgdL)
                .kind(),
            NYBDynamicValue::Kind::Real);
}

}  // namespace
}  // namespace nyb
