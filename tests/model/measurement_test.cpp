// The measurement: a number kept as entered, with its unit text.

#include <gtest/gtest.h>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBMeasurement.h"

namespace nyb {
namespace {

TEST(Measurement, DictionaryRepresentationNeedsBothValueAndUnit) {
  NYBMeasurement pounds("150", "lb");
  ASSERT_TRUE(pounds.dictionaryRepresentation());
  EXPECT_EQ(*pounds.dictionaryRepresentation(), (NYBDictionary{{"value", "150"}, {"unit", "lb"}}));
  EXPECT_EQ(pounds.decimalValue(), NYBDecimal::fromString("150"));

  EXPECT_FALSE(NYBMeasurement("150", {}).dictionaryRepresentation());
  EXPECT_FALSE(NYBMeasurement({}, "lb").dictionaryRepresentation());
  // Empty text still counts as present.
  EXPECT_TRUE(NYBMeasurement("", "").dictionaryRepresentation());

  // A measurement carries no key map, so it never reaches JSON by itself.
  EXPECT_TRUE(pounds.JSONObject().empty());
}

TEST(Measurement, BuildingFromADictionaryTakesValueAndUnitExactlyAsTheyAre) {
  auto empty = NYBMeasurement::modelWithDictionary({});
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->value().isAbsent());
  EXPECT_TRUE(empty->unit().isAbsent());

  // Null markers are kept (the generic initialiser would read them as absent),
  // and other keys, even ones no property has, are not looked at.
  auto kept = NYBMeasurement::modelWithDictionary(
      {{"value", NYBDynamicValue::null()}, {"unit", "kg"}, {"decimalValue", 3}, {"bogus", 1}});
  EXPECT_TRUE(kept->value().isNull());
  EXPECT_EQ(kept->unit(), NYBDynamicValue("kg"));
  ASSERT_TRUE(kept->dictionaryRepresentation());
  EXPECT_TRUE((*kept->dictionaryRepresentation())["value"].isNull());
}

TEST(Measurement, DecimalValueIsAnExactParseOfTheTextOrNotANumber) {
  NYBMeasurement fever("98.6", "F");
  EXPECT_EQ(fever.decimalValue().stringValue(), "98.6");
  // More digits than a double holds survive: the parse never goes through a binary real.
  EXPECT_EQ(NYBMeasurement("0.12345678901234567890123", "kg").decimalValue().stringValue(),
            "0.12345678901234567890123");

  EXPECT_EQ(NYBMeasurement("37.0", "C").decimalValue(), NYBDecimal::fromString("37"));
  EXPECT_TRUE(NYBMeasurement("abc", "C").decimalValue().isNaN());
  EXPECT_TRUE(NYBMeasurement("1,5", "C").decimalValue().isNaN());  // the point is the separator
  EXPECT_TRUE(NYBMeasurement(NYBDynamicValue::null(), "C").decimalValue().isNaN());

  // Derived on every read, and visible to the generic machinery.
  fever.setValue("99.1");
  EXPECT_EQ(fever.dictionaryValue()["decimalValue"],
            NYBDynamicValue(NYBDecimal::fromString("99.1")));
}

TEST(Measurement, EqualityAndCopiesTurningAbsentFieldsIntoNullMarkers) {
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
  ASSERT_TRUE(unitlessCopy->dictionaryRepresentation());
  EXPECT_EQ(*unitlessCopy->dictionaryRepresentation(),
            (NYBDictionary{{"value", "150"}, {"unit", NYBDynamicValue::null()}}));
  EXPECT_FALSE(unitless->dictionaryRepresentation());
  EXPECT_FALSE(unitless->isEqual(*unitlessCopy));
}

TEST(Measurement, ArchivingGivesBackAnEqualMeasurement) {
  for (const auto& original : {std::make_shared<NYBMeasurement>("98.6", "F"),
                               std::make_shared<NYBMeasurement>("abc", NYBDynamicValue()),
                               std::make_shared<NYBMeasurement>()}) {
    NYBData archive = NYBKeyedArchiver::archivedDataWithRootObject(original);
    auto decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(archive).objectAs<NYBMeasurement>();
    ASSERT_TRUE(decoded) << original->description();
    EXPECT_TRUE(decoded->isEqual(*original)) << decoded->description();
    // Absent stays absent: the archive leaves unset properties out.
    EXPECT_EQ(decoded->unit().isAbsent(), original->unit().isAbsent());
  }
}

}  // namespace
}  // namespace nyb
