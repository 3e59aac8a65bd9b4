// NYBWeight: the record of body weight and composition (weight, height, free
// mass, fat percentage, mass weight, BMI). Record type 3.
//
// weight is always held in kilograms; setWeight(value, unit) converts and
// keeps a value entered in pounds or stones as entered (raw data of "weight"),
// which weightWithUnit() gives back exactly. The other fields are passed
// through unchanged.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <string_view>

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBWeight : public NYBRecord {
  NYB_DECLARE_MODEL(NYBWeight, NYBRecordClass)
 public:
  NYBWeight() = default;

  // NYBRecordTypeWeight.
  NYBRecordType recordType() const override;

  // In kilograms.
  NYB_RECORD_FIELD(weight, Weight)
  NYB_RECORD_FIELD(height, Height)
  NYB_RECORD_FIELD(freeMass, FreeMass)
  NYB_RECORD_FIELD(fatPercent, FatPercent)
  NYB_RECORD_FIELD(massWeight, MassWeight)
  NYB_RECORD_FIELD(bmi, Bmi)

  // The weight as entered when it was entered in that unit (a decimal), else
  // weight converted from kilograms (absent converts as 0).
  NYBDynamicValue weightWithUnit(NYBWeightUnit unit) const;
  // Stores the value converted to kilograms; a value in another unit is also
  // kept as entered. Setting kilograms leaves an earlier entered value in place.
  void setWeight(const NYBDynamicValue& value, NYBWeightUnit unit);

  using NYBRecord::setMeasurementValue;
  // setWeight(value, unit) for the property that the key map sends as
  // "weight"; any other field is ignored.
  void setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                           std::string_view field) override;
};

}  // namespace nyb
