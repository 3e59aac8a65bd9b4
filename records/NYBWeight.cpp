#include "NymbrelCore/NYBWeight.h"

#include "records/RecordSupport.h"

namespace nyb {

const NYBRecordClass& NYBWeight::staticClass() {
  using T = NYBWeight;
  static const NYBRecordClass weightClass({"NYBWeight",
                                           &NYBRecord::staticClass(),
                                           [] { return std::make_shared<T>(); },
                                           NYBPropertyTable::of<T>()
                                               .field("weight", &T::weight_)
                                               .field("height", &T::height_)
                                               .field("freeMass", &T::freeMass_)
                                               .field("fatPercent", &T::fatPercent_)
                                               .field("massWeight", &T::massWeight_)
                                               .field("bmi", &T::bmi_),
                                           [] {
                                             NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                             keys.insert(keys.end(), {{"weight", "weight"},
                                                                      {"height", "height"},
                                                                      {"freeMass", "free_mass"},
                                                                      {"fatPercent", "fat_percent"},
                                                                      {"massWeight", "mass_weight"},
                                                                      {"bmi", "bmi"}});
                                             return keys;
                                           }(),
                                           {}});
  return weightClass;
}

NYBRecordType NYBWeight::recordType() const { return NYBRecordTypeWeight; }

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
