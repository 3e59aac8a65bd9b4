// NYBDiabetes: the record of glucose-related readings (blood glucose with its
// relation to a meal, laboratory glucose tests, HbA1c, insulin, C-peptide,
// triglycerides), with two tags kept in extras: a diabetes event
// ("glucose_event_tag") and an out-of-range flag ("out_of_range"). Record
// type 2.
//
// bloodGlucose is always held in mg/dL; setBloodGlucose(value, unit) converts
// and keeps a value entered in mmol/L as entered (raw data of
// "blood_glucose"), which bloodGlucoseWithUnit() gives back exactly.
// relationshipToMeal travels as its string ("before", "after", "random",
// "fasting"; "" for none; JSON null for an unknown value). The tags' strings
// are read and written by the record's own class object, NYBDiabetesClass, so
// a subclass that overrides the conversions changes what the tags mean.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord). The class object holds no mutable state.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

enum NYBMealRelationship : std::uint64_t {
  NYBMealRelationshipNone = 0,
  NYBMealRelationshipBefore = 1,
  NYBMealRelationshipAfter = 2,
  NYBMealRelationshipRandom = 3,
  NYBMealRelationshipFasting = 4,
};

// The named events start at 3; 1 and 2 have no string.
enum NYBDiabetesEvent : std::uint64_t {
  NYBDiabetesEventNone = 0,
  NYBDiabetesEventExercise = 3,
  NYBDiabetesEventSick = 4,
  NYBDiabetesEventMedication = 5,
  NYBDiabetesEventOther = 6,
};

enum NYBDiabetesOutOfRange : std::uint64_t {
  NYBDiabetesOutOfRangeNone = 0,
  NYBDiabetesOutOfRangeHigh = 1,
  NYBDiabetesOutOfRangeLow = 2,
};

class NYB_EXPORT NYBDiabetesClass : public NYBRecordClass {
 public:
  using NYBRecordClass::NYBRecordClass;

  // "" for none, "before", "after", "random", "fasting"; absent above 4.
  virtual std::optional<std::string> stringValueForMealRelationship(
      NYBMealRelationship relationship) const;
  // Exact, case-sensitive; anything else (a value that is no string included)
  // gives 0.
  virtual NYBMealRelationship mealRelationshipForstringValue(const NYBDynamicValue& string) const;
  // "None", "Before meal", "After meal", "Random", "Fasting"; absent above 4.
  virtual std::optional<std::string> nameForMealRelationship(
      NYBMealRelationship relationship) const;

  // "exercise", "sick", "medication", "other" for 3 to 6; absent otherwise.
  virtual std::optional<std::string> stringValueForDiabetesEvent(NYBDiabetesEvent event) const;
  virtual NYBDiabetesEvent DiabetesEventForStringValue(const NYBDynamicValue& string) const;
  // "High" for 1, "Low" for 2; absent otherwise. Reading is case-sensitive.
  virtual std::optional<std::string> stringValueForDiabetesOutOfRange(
      NYBDiabetesOutOfRange outOfRange) const;
  virtual NYBDiabetesOutOfRange DiabetesOutOfRangeForStringValue(
      const NYBDynamicValue& string) const;
};

class NYB_EXPORT NYBDiabetes : public NYBRecord {
  NYB_DECLARE_MODEL(NYBDiabetes, NYBDiabetesClass)
 public:
  NYBDiabetes() = default;

  // Class-level conveniences, forwarding to NYBDiabetes's class object.
  static std::optional<std::string> stringValueForMealRelationship(NYBMealRelationship r) {
    return staticClass().stringValueForMealRelationship(r);
  }
  static NYBMealRelationship mealRelationshipForstringValue(const NYBDynamicValue& string) {
    return staticClass().mealRelationshipForstringValue(string);
  }
  static std::optional<std::string> nameForMealRelationship(NYBMealRelationship r) {
    return staticClass().nameForMealRelationship(r);
  }
  static std::optional<std::string> stringValueForDiabetesEvent(NYBDiabetesEvent event) {
    return staticClass().stringValueForDiabetesEvent(event);
  }
  static NYBDiabetesEvent DiabetesEventForStringValue(const NYBDynamicValue& string) {
    return staticClass().DiabetesEventForStringValue(string);
  }
  static std::optional<std::string> stringValueForDiabetesOutOfRange(NYBDiabetesOutOfRange o) {
    return staticClass().stringValueForDiabetesOutOfRange(o);
  }
  static NYBDiabetesOutOfRange DiabetesOutOfRangeForStringValue(const NYBDynamicValue& string) {
    return staticClass().DiabetesOutOfRangeForStringValue(string);
  }
  // Forward, a string through mealRelationshipForstringValue() (boxed as an
  // unsigned number); reverse, the number through
  // stringValueForMealRelationship(), JSON null when that gives no string.
  static std::shared_ptr<NYBValueTransformer> relationshipToMealTransformer() {
    return staticClass().valueTransformerForKey("relationshipToMeal");
  }

  // NYBRecordTypeDiabetes.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(cPeptide, CPeptide)
  NYB_RECORD_FIELD(fastingPlasmaGlucoseTest, FastingPlasmaGlucoseTest)
  NYB_RECORD_FIELD(hba1c, Hba1c)
  NYB_RECORD_FIELD(insulin, Insulin)
  NYB_RECORD_FIELD(oralGlucoseToleranceTest, OralGlucoseToleranceTest)
  NYB_RECORD_FIELD(randomPlasmaGlucoseTest, RandomPlasmaGlucoseTest)
  NYB_RECORD_FIELD(triglyceride, Triglyceride)
  // In mg/dL.
  NYB_RECORD_FIELD(bloodGlucose, BloodGlucose)

  NYBMealRelationship relationshipToMeal() const {
    return NYBMealRelationship(relationshipToMeal_);
  }
  void setRelationshipToMeal(NYBMealRelationship relationship) {
    relationshipToMeal_ = relationship;
  }

  // The extras tag read with the record class's conversion; 0 when missing or
  // unknown.
  NYBDiabetesEvent diabetesEvent() const;
  // 0, and values without a string, remove the tag.
  void setDiabetesEvent(NYBDiabetesEvent event);
  NYBDiabetesOutOfRange outOfRange() const;
  void setOutOfRange(NYBDiabetesOutOfRange outOfRange);

  // The glucose as entered when it was entered in that unit (a decimal), else
  // bloodGlucose converted from mg/dL (absent converts as 0).
  NYBDynamicValue bloodGlucoseWithUnit(NYBGlucoseUnit unit) const;
  // Stores the value converted to mg/dL; a value in another unit is also kept
  // as entered. Setting mg/dL leaves an earlier entered value in place.
  void setBloodGlucose(const NYBDynamicValue& value, NYBGlucoseUnit unit);

  using NYBRecord::setMeasurementValue;
  // setBloodGlucose(value, unit) for the property that the key map sends as
  // "blood_glucose"; any other field is ignored.
  void setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                           std::string_view field) override;

 private:
  std::uint64_t relationshipToMeal_ = NYBMealRelationshipNone;
};

}  // namespace nyb
