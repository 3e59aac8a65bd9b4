#include "NymbrelCore/NYBDiabetes.h"

#include "records/DescribedRecord.h"
#include "records/RecordSupport.h"
#include "records/types/Diabetes.h"

namespace nyb {

namespace {

constexpr const char* kEventKey = "glucose_event_tag";
constexpr const char* kOutOfRangeKey = "out_of_range";

// The value whose string equals the text, trying the table in order; 0 for
// anything else.
template <typename Value, std::size_t N>
Value lookUp(const NYBDynamicValue& text, const std::pair<const char*, Value> (&table)[N]) {
  if (text.isString()) {
    for (const auto& [string, value] : table) {
      if (text.stringView() == string) return value;
    }
  }
  return Value(0);
}

constexpr std::pair<const char*, NYBMealRelationship> kMealRelationships[] = {
    {"before", NYBMealRelationshipBefore},
    {"after", NYBMealRelationshipAfter},
    {"random", NYBMealRelationshipRandom},
    {"fasting", NYBMealRelationshipFasting}};
constexpr std::pair<const char*, NYBDiabetesEvent> kEvents[] = {
    {"exercise", NYBDiabetesEventExercise},
    {"sick", NYBDiabetesEventSick},
    {"medication", NYBDiabetesEventMedication},
    {"other", NYBDiabetesEventOther}};
constexpr std::pair<const char*, NYBDiabetesOutOfRange> kOutOfRanges[] = {
    {"High", NYBDiabetesOutOfRangeHigh}, {"Low", NYBDiabetesOutOfRangeLow}};

std::shared_ptr<NYBValueTransformer> makeRelationshipToMealTransformer(
    const NYBModelClass& receiver) {
  const auto& cls = static_cast<const NYBDiabetesClass&>(receiver);
  return NYBValueTransformer::transformerUsingForwardBlock(
      [&cls](const NYBDynamicValue& string) -> NYBDynamicValue {
        return std::uint64_t{cls.mealRelationshipForstringValue(string)};
      },
      [&cls](const NYBDynamicValue& number) -> NYBDynamicValue {
        std::optional<std::string> string =
            cls.stringValueForMealRelationship(NYBMealRelationship(number.integerValue()));
        return string ? NYBDynamicValue(std::move(*string)) : NYBDynamicValue::null();
      });
}

}  // namespace

// ---- NYBDiabetesClass ------------------------------------------------------

std::optional<std::string> NYBDiabetesClass::stringValueForMealRelationship(
    NYBMealRelationship relationship) const {
  if (relationship == NYBMealRelationshipNone) return "";
  for (const auto& [string, value] : kMealRelationships) {
    if (value == relationship) return string;
  }
  return std::nullopt;
}

NYBMealRelationship NYBDiabetesClass::mealRelationshipForstringValue(
    const NYBDynamicValue& string) const {
  return lookUp(string, kMealRelationships);
}

std::optional<std::string> NYBDiabetesClass::nameForMealRelationship(
    NYBMealRelationship relationship) const {
  switch (relationship) {
    case NYBMealRelationshipNone:
      return "None";
    case NYBMealRelationshipBefore:
      return "Before meal";
    case NYBMealRelationshipAfter:
      return "After meal";
    case NYBMealRelationshipRandom:
      return "Random";
    case NYBMealRelationshipFasting:
      return "Fasting";
  }
  return std::nullopt;
}

std::optional<std::string> NYBDiabetesClass::stringValueForDiabetesEvent(
    NYBDiabetesEvent event) const {
  for (const auto& [string, value] : kEvents) {
    if (value == event) return string;
  }
  return std::nullopt;
}

NYBDiabetesEvent NYBDiabetesClass::DiabetesEventForStringValue(
    const NYBDynamicValue& string) const {
  return lookUp(string, kEvents);
}

std::optional<std::string> NYBDiabetesClass::stringValueForDiabetesOutOfRange(
    NYBDiabetesOutOfRange outOfRange) const {
  for (const auto& [string, value] : kOutOfRanges) {
    if (value == outOfRange) return string;
  }
  return std::nullopt;
}

NYBDiabetesOutOfRange NYBDiabetesClass::DiabetesOutOfRangeForStringValue(
    const NYBDynamicValue& string) const {
  return lookUp(string, kOutOfRanges);
}

// ---- NYBDiabetes -----------------------------------------------------------

const NYBDiabetesClass& NYBDiabetes::staticClass() {
  using T = NYBDiabetes;
  static const NYBDiabetesClass diabetesClass(
      {std::string(records::kDiabetes.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kDiabetes, T>(
           NYB_DESCRIBED_MEMBER(cPeptide), NYB_DESCRIBED_MEMBER(fastingPlasmaGlucoseTest),
           NYB_DESCRIBED_MEMBER(hba1c), NYB_DESCRIBED_MEMBER(insulin),
           NYB_DESCRIBED_MEMBER(oralGlucoseToleranceTest),
           NYB_DESCRIBED_MEMBER(randomPlasmaGlucoseTest), NYB_DESCRIBED_MEMBER(triglyceride),
           NYB_DESCRIBED_MEMBER(bloodGlucose), NYB_DESCRIBED_MEMBER(relationshipToMeal)),
       records::describedKeyMap(records::kDiabetes),
       {{"relationshipToMealTransformer", makeRelationshipToMealTransformer}}});
  return diabetesClass;
}

NYBRecordType NYBDiabetes::recordType() const { return NYBRecordType(records::kDiabetes.type); }

NYBDiabetesEvent NYBDiabetes::diabetesEvent() const {
  NYBDynamicValue tag = records::extraValue(*this, kEventKey);
  return tag.isPresent() ? classObject().DiabetesEventForStringValue(tag) : NYBDiabetesEventNone;
}

void NYBDiabetes::setDiabetesEvent(NYBDiabetesEvent event) {
  NYBDynamicValue tag;
  if (event != NYBDiabetesEventNone) tag = classObject().stringValueForDiabetesEvent(event);
  setExtraValue(std::move(tag), kEventKey);
}

NYBDiabetesOutOfRange NYBDiabetes::outOfRange() const {
  NYBDynamicValue tag = records::extraValue(*this, kOutOfRangeKey);
  return tag.isPresent() ? classObject().DiabetesOutOfRangeForStringValue(tag)
                         : NYBDiabetesOutOfRangeNone;
}

void NYBDiabetes::setOutOfRange(NYBDiabetesOutOfRange outOfRange) {
  NYBDynamicValue tag;
  if (outOfRange != NYBDiabetesOutOfRangeNone) {
    tag = classObject().stringValueForDiabetesOutOfRange(outOfRange);
  }
  setExtraValue(std::move(tag), kOutOfRangeKey);
}

NYBDynamicValue NYBDiabetes::bloodGlucoseWithUnit(NYBGlucoseUnit unit) const {
  const NYBDiabetesClass& cls = classObject();
  NYBDynamicValue entered =
      records::enteredValueInUnit(*this, "blood_glucose", cls.unitStringForGlucoseUnit(unit));
  if (entered.isPresent()) return entered;
  return cls.convertGlucoseValue(bloodGlucose_, NYBGlucoseUnit(kNYBStandardGlucoseUnit), unit);
}

void NYBDiabetes::setBloodGlucose(const NYBDynamicValue& value, NYBGlucoseUnit unit) {
  const NYBDiabetesClass& cls = classObject();
  setBloodGlucose(cls.convertGlucoseValue(value, unit, NYBGlucoseUnit(kNYBStandardGlucoseUnit)));
  if (unit != kNYBStandardGlucoseUnit) {
    // Kept under the JSON key, not the property name.
    records::keepEnteredValue(*this, value, cls.unitStringForGlucoseUnit(unit), "blood_glucose");
  }
}

void NYBDiabetes::setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                                      std::string_view field) {
  if (records::mappedJSONKey(*this, field) == "blood_glucose") {
    setBloodGlucose(value, NYBGlucoseUnit(unit));
  }
}

}  // namespace nyb
