#include "NymbrelCore/NYBWeight.h"

#include <string>

#include "records/DescribedRecord.h"
#include "records/RecordSupport.h"
#include "records/types/Weight.h"

namespace nyb {

const NYBRecordClass& NYBWeight::staticClass() {
  using T = NYBWeight;
  static const NYBRecordClass weightClass(
      {std::string(records::kWeight.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kWeight, T>(
           NYB_DESCRIBED_MEMBER(weight), NYB_DESCRIBED_MEMBER(height),
           NYB_DESCRIBED_MEMBER(freeMass), NYB_DESCRIBED_MEMBER(fatPercent),
           NYB_DESCRIBED_MEMBER(massWeight), NYB_DESCRIBED_MEMBER(bmi)),
       records::describedKeyMap(records::kWeight),
       {}});
  return weightClass;
}

NYBRecordType NYBWeight::recordType() const { return NYBRecordType(records::kWeight.type); }

NYBDynamicValue NYBWeight::weightWithUnit(NYBWeightUnit unit) const {
  const NYBRecordClass& cls = classObject();
  NYBDynamicValue entered =
      records::enteredValueInUnit(*this, "weight", cls.unitStringForWeightUnit(unit));
  if (entered.isPresent()) return entered;
  return cls.convertWeightValue(weight_, NYBWeightUnit(kNYBStandardWeightUnit), unit);
}

void NYBWeight::setWeight(const NYBDynamicValue& value, NYBWeightUnit unit) {
  const NYBRecordClass& cls = classObject();
  setWeight(cls.convertWeightValue(value, unit, NYBWeightUnit(kNYBStandardWeightUnit)));
  if (unit != kNYBStandardWeightUnit) {
    records::keepEnteredValue(*this, value, cls.unitStringForWeightUnit(unit), "weight");
  }
}

void NYBWeight::setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                                    std::string_view field) {
  if (records::mappedJSONKey(*this, field) == "weight") setWeight(value, NYBWeightUnit(unit));
}

}  // namespace nyb
