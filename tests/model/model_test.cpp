// The model base through small test models: generic access, dictionaries,
// JSON mapping, copying and equality; value transformers, the shared formatters, and the
// measurement (a number kept as entered, with its unit text).
#include <gtest/gtest.h>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBFormatter.h"
#include "NymbrelCore/NYBMeasurement.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"
#include "support/TestModels.h"

namespace nyb {
namespace {

using test::TestAddress;
using test::TestEmployee;
using test::TestPerson;

constexpr double kMarch1st = 1456841109;  // 2016-03-01T14:05:09Z

std::shared_ptr<TestPerson> samplePerson() {
  auto person = std::make_shared<TestPerson>();
  person->setName("Ada Lovelace");
  person->birthday = NYBDate(kMarch1st);
  auto address = std::make_shared<TestAddress>();
  address->street = "1 Main St";
  address->city = "London";
  person->address = address;
  person->tags = NYBDictionary{{"blood", "A+"}, {"steps", 1200}};
  person->age = 36;
  person->active = true;
  return person;
}

TEST(ModelBase, GenericAccessAndTheDictionaryInitialiserRunSettersAndRefuseWhatTheyCannotSet) {
  TestPerson person;
  person.setValue("Grace Hopper", "name");
  EXPECT_EQ(person.nickname, NYBDynamicValue("Grace")) << "the setter's side effect must run";

  person.setValue(NYBDynamicValue(std::uint64_t{85}), "age");
  EXPECT_EQ(person.age, 85u);
  EXPECT_EQ(person.valueForKey("age").kind(), NYBDynamicValue::Kind::Unsigned);
  person.setValue(true, "active");
  EXPECT_EQ(person.valueForKey("active").kind(), NYBDynamicValue::Kind::Boolean);

  // A read-only property with a field is set through the field.
  person.setValue("abc123", "identifier");
  EXPECT_EQ(person.identifier, NYBDynamicValue("abc123"));

  EXPECT_THROW(person.setValue(NYBDynamicValue(), "age"), NYBInvalidArgumentException);
  EXPECT_EQ(person.age, 85u);
  EXPECT_THROW(person.setValue("x", "noSuchKey"), NYBUnknownKeyException);
  EXPECT_THROW(person.valueForKey("noSuchKey"), NYBUnknownKeyException);
  // A derived property without setter or field is read, written to JSON, never set.
  test::TestCircle circle;
  circle.setValue(2, "radius");
  EXPECT_EQ(circle.valueForKey("area"), NYBDynamicValue(12));
  EXPECT_EQ(circle.JSONObject(), (NYBDictionary{{"r", 2}, {"area", 12}}));
  EXPECT_THROW(circle.setValue(1, "area"), NYBUnknownKeyException);
  EXPECT_THROW(circle.copy(), NYBUnknownKeyException) << "the copy sets every property";

  // No kind checking: a number given for a string property stays a number.
  person.setValue(42, "city");
  EXPECT_EQ(person.JSONObject()["city"].kind(), NYBDynamicValue::Kind::Integer);

  // The dictionary initialiser applies values in order (a later explicit nickname wins over the
  // name's setter) and reads a null marker as absent.
  auto turing = TestPerson::modelWithDictionary(
      {{"name", "Alan Turing"}, {"nickname", "Prof"}, {"city", NYBDynamicValue::null()}});
  EXPECT_EQ(turing->nickname, NYBDynamicValue("Prof"));
  EXPECT_TRUE(turing->city.isAbsent()) << "a null marker clears the initialiser's default";

  EXPECT_THROW(TestPerson::modelWithDictionary({{"bogus", 1}}), NYBUnknownKeyException);
  EXPECT_THROW(TestPerson::modelWithDictionary({{"age", NYBDynamicValue::null()}}),
               NYBInvalidArgumentException);
}

TEST(ModelBase, JSONObjectFollowsTheKeyMapAndLeavesOutWhatIsUnset) {
  auto person = samplePerson();
  person->identifier = NYBDynamicValue::null();
  NYBDictionary json = person->JSONObject();

  // Keys in key-map order; unset, null-marker, one-way-transformed-but-unset and non-property
  // keys left out.
  EXPECT_EQ(json.stringKeys(), (std::vector<std::string>{"name", "birth_day", "address", "tags",
                                                         "city", "age", "active"}));
  NYBDictionary address{{"street", "1 Main St"}, {"city", "London"}};
  EXPECT_EQ(json["address"], NYBDynamicValue(address)) << "the reverse transformer nests it";

  // A one-way transformer is ignored on the way out: the raw value is written.
  person->kind = NYBArray{1, 2};
  EXPECT_EQ(person->JSONObject()["kind"], NYBDynamicValue(NYBArray{1, 2}));
  // A reverse transformer that gives nothing leaves the document unwritable.
  person->birthday = "not a date";
  EXPECT_THROW(person->JSONObject(), NYBInvalidArgumentException);
}

TEST(ModelBase, ModelFromJSONObjectKeepsDefaultsForMissingOrNullKeysUnlessATransformerAnswers) {
  NYBDictionary json{{"name", "Ada Lovelace"},
                     {"birth_day", "2016-03-01T09:05:09-05:00"},
                     {"address", NYBDictionary{{"street", "1 Main St"}}},
                     {"city", NYBDynamicValue::null()},
                     {"age", 36},
                     {"unmapped", "ignored"}};
  // The null city and the missing scalar keep their defaults; the missing "kind" goes through
  // its transformer, which answers for absent.
  TestPerson expected;
  expected.setName("Ada Lovelace");
  expected.birthday = NYBDate(kMarch1st);
  expected.address = TestAddress::modelWithDictionary({{"street", "1 Main St"}});
  expected.age = 36;
  expected.kind = "Person";
  auto person = TestPerson::modelFromJSONObject(json);
  EXPECT_TRUE(person->isEqual(expected)) << person->description();

  EXPECT_THROW(TestPerson::modelFromJSONObject(NYBArray{}), NYBInvalidArgumentException);
  EXPECT_THROW(TestPerson::modelFromJSONObject(NYBDynamicValue()), NYBInvalidArgumentException);

  // Class-level operations dispatch on the receiving class.
  auto employee = TestEmployee::modelFromJSONObject(NYBDictionary{{"employer", "Navy"}});
  ASSERT_EQ(&employee->classObject(), &TestEmployee::staticClass());
  EXPECT_EQ(employee->kind, NYBDynamicValue("Employee"))
      << "the inherited transformer must see the subclass's class object";
  EXPECT_EQ(employee->employer, NYBDynamicValue("Navy"));
  EXPECT_NE(TestEmployee::valueTransformerForKey("birthday"), nullptr) << "inherited";
  EXPECT_EQ(TestEmployee::valueTransformerForKey("employer"), nullptr);
}

TEST(ModelBase, CopiesAndEqualityNeedTheExactClassAndEqualValues) {
  auto person = samplePerson();
  person->city = NYBDynamicValue();  // unset in the source: the copy must not get the default
  auto copy = person->copyAs<TestPerson>();
  EXPECT_NE(copy.get(), person.get());
  EXPECT_TRUE(copy->isEqual(*person) && copy->hash() == person->hash());
  EXPECT_TRUE(copy->city.isAbsent());
  EXPECT_EQ(copy->address.object(), person->address.object()) << "copies are shallow";
  copy->age = 37;
  EXPECT_FALSE(copy->isEqual(*person));

  TestPerson a, b;
  TestEmployee employee;
  EXPECT_FALSE(a.isEqual(employee) || employee.isEqual(a));
  b.tags = NYBDictionary{{"x", 1}};
  EXPECT_FALSE(a.isEqual(b) || b.isEqual(a)) << "an absent value is never equal to a present one";
}

NYBDynamicValue emptyArrayForAbsent(const NYBDynamicValue& v) {
  return v.isAbsent() ? NYBDynamicValue(NYBArray{}) : v;
}

TEST(ValueTransformer, FactoriesGiveTheClassThatDecidesReversal) {
  auto oneWay = NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent);
  EXPECT_EQ(&oneWay->classObject(), &NYBValueTransformer::staticClass());
  EXPECT_FALSE(oneWay->allowsReverseTransformation() || oneWay->reverseBlock());
  // Two functions give the reversible class whatever class is asked, even when the reverse one is
  // null; so does the reversible class's one-function factory. Without a reverse function a
  // transformer claims reversal and fails when asked.
  const std::shared_ptr<NYBValueTransformer> reversible[] = {
      NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent, emptyArrayForAbsent),
      NYBValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent, nullptr),
      NYBReversibleValueTransformer::transformerUsingForwardBlock(emptyArrayForAbsent)};
  for (const auto& transformer : reversible) {
    EXPECT_EQ(&transformer->classObject(), &NYBReversibleValueTransformer::staticClass());
    EXPECT_TRUE(transformer->allowsReverseTransformation());
  }
  for (const auto& trap : {reversible[1], reversible[2]})
    EXPECT_THROW(static_cast<NYBReversibleValueTransformer&>(*trap).reverseTransformedValue(1),
                 NYBInvalidArgumentException);
  // One block serving both ways; blocks see every value, absent included.
  auto both = NYBReversibleValueTransformer::transformerUsingReversibleBlock(emptyArrayForAbsent);
  EXPECT_EQ(static_cast<NYBReversibleValueTransformer&>(*both).reverseTransformedValue({}),
            NYBDynamicValue(NYBArray{}));
  EXPECT_EQ(both->transformedValue(7), NYBDynamicValue(7));
}

// The record documents prove the shared formatters' patterns; here only their lifecycle.
TEST(SharedFormatter, FormattersAreMadeOnceAndSettersInstallOrReset) {
  NYBFormatter& shared = NYBFormatter::sharedFormatter();
  auto first = shared.ISO8601DateTimeFormatter();
  EXPECT_EQ(first, shared.ISO8601DateTimeFormatter());

  auto mine = std::make_shared<NYBDateFormatter>();
  mine->setDateFormat("yyyy");
  shared.setISO8601DateTimeFormatter(mine);
  EXPECT_EQ(shared.ISO8601DateTimeFormatter(), mine);
  EXPECT_EQ(mine->dateFormat(), "yyyy") << "an installed formatter is never reconfigured";

  shared.setISO8601DateTimeFormatter(nullptr);
  auto fresh = shared.ISO8601DateTimeFormatter();
  EXPECT_TRUE(fresh != mine && fresh != first && fresh->dateFormat() == first->dateFormat());
}

TEST(Measurement, DictionaryNeedsValueAndUnitTakenAsTheyAreTheDecimalIsExactCopiesHoldNull) {
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

  // The decimal value is an exact parse of the text, never through a binary real, or not a number.
  NYBMeasurement fever("98.6", "F");
  EXPECT_EQ(NYBMeasurement("0.12345678901234567890123", "kg").decimalValue().stringValue(),
            "0.12345678901234567890123");

  // Not numbers: the point is the only decimal separator.
  for (const auto& text : {NYBDynamicValue("abc"), NYBDynamicValue("1,5"), NYBDynamicValue::null()})
    EXPECT_TRUE(NYBMeasurement(text, "C").decimalValue().isNaN()) << text.description();

  // Derived on every read, and visible to the generic machinery.
  fever.setValue("99.1");
  EXPECT_EQ(fever.dictionaryValue()["decimalValue"],
            NYBDynamicValue(NYBDecimal::fromString("99.1")));

  // Kept on purpose: the copy of a measurement without a unit holds the null marker there, so its
  // dictionary representation is present. (Copies, equality and the archive are the model base's.)
  NYBMeasurement unitless("150", NYBDynamicValue());
  auto copy = unitless.copyAs<NYBMeasurement>();
  EXPECT_EQ(*copy->dictionaryRepresentation(),
            (NYBDictionary{{"value", "150"}, {"unit", NYBDynamicValue::null()}}));
  EXPECT_FALSE(unitless.isEqual(*copy));
}

}  // namespace
}  // namespace nyb
