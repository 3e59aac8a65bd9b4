// The measurement: a number kept as entered, with its unit text.
#include <gtest/gtest.h>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBMeasurement.h"

namespace nyb {
namespace {

TEST(Measurement, DictionaryRepresentationNeedsBothValueAndUnitTakenAsTheyAre) {
  // The record tests show complete and incomplete measurements in a record's raw data.
  EXPECT_FALSE(NYBMeasurement({}, "lb").dictionaryRepresentation());
  EXPECT_TRUE(NYBMeasurement("150", "lb").JSONObject().empty()) << "never JSON by itself";

  // Null markers are kept (the generic initialiser would read them as absent),
  // and other keys, even ones no property has, are not looked at.
  auto kept = NYBMeasurement::modelWithDictionary(
      {{"value", NYBDynamicValue::null()}, {"unit", "kg"}, {"decimalValue", 3}, {"bogus", 1}});
  EXPECT_TRUE(kept->value().isNull());
  ASSERT_TRUE(kept->dictionaryRepresentation());
  EXPECT_TRUE((*kept->dictionaryRepresentation())["value"].isNull());
}

TEST(Measurement, DecimalValueIsAnExactParseOfTheTextOrNotANumber) {
  NYBMeasurement fever("98.6", "F");
  // More digits than a double holds survive: the parse never goes through a binary real.
  EXPECT_EQ(NYBMeasurement("0.12345678901234567890123", "kg").decimalValue().stringValue(),
            "0.12345678901234567890123");

  EXPECT_TRUE(NYBMeasurement("abc", "C").decimalValue().isNaN());
  EXPECT_TRUE(NYBMeasurement("1,5", "C").decimalValue().isNaN());  // the point is the separator
  EXPECT_TRUE(NYBMeasurement(NYBDynamicValue::null(), "C").decimalValue().isNaN());

  // Derived on every read, and visible to the generic machinery.
  fever.setValue("99.1");
  EXPECT_EQ(fever.dictionaryValue()["decimalValue"],
            NYBDynamicValue(NYBDecimal::fromString("99.1")));
}

TEST(Measurement, EqualityCopiesAndTheArchive) {
  auto complete = std::make_shared<NYBMeasurement>("150", "lb");
  auto copy = complete->copyAs<NYBMeasurement>();
  EXPECT_TRUE(copy != complete && copy->isEqual(*complete) && copy->hash() == complete->hash());
  // The texts count, not only the numbers they hold.
  EXPECT_FALSE(complete->isEqual(NYBMeasurement("150.0", "lb")));
  EXPECT_FALSE(complete->isEqual(NYBMeasurement("150", "kg")));

  // Kept on purpose: the copy of a measurement without a unit holds the null
  // marker there, so its dictionary representation is present.
  auto unitless = std::make_shared<NYBMeasurement>("150", NYBDynamicValue());
  auto unitlessCopy = unitless->copyAs<NYBMeasurement>();
  EXPECT_EQ(*unitlessCopy->dictionaryRepresentation(),
            (NYBDictionary{{"value", "150"}, {"unit", NYBDynamicValue::null()}}));
  EXPECT_FALSE(unitless->isEqual(*unitlessCopy));

  // The archive leaves unset properties out, so absent stays absent.
  for (const auto& original : {complete, unitless, std::make_shared<NYBMeasurement>()}) {
    auto decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(
                       NYBKeyedArchiver::archivedDataWithRootObject(original))
                       .objectAs<NYBMeasurement>();
    ASSERT_TRUE(decoded) << original->description();
    EXPECT_TRUE(decoded->isEqual(*original)) << decoded->description();
    EXPECT_EQ(decoded->unit().isAbsent(), original->unit().isAbsent());
  }
}

}  // namespace
}  // namespace nyb
