#include "NymbrelCore/NYBMeasurement.h"

#include "NymbrelCore/NYBConstants.h"

namespace nyb {

const NYBModelClass& NYBMeasurement::staticClass() {
  static const NYBModelClass measurementClass(
      {"NYBMeasurement",
       &NYBModel::staticClass(),
       [] { return std::make_shared<NYBMeasurement>(); },
       NYBPropertyTable::of<NYBMeasurement>()
           .field("value", &NYBMeasurement::value_)
           .field("unit", &NYBMeasurement::unit_)
           .computed("decimalValue", &NYBMeasurement::decimalValueProperty),
       std::nullopt,
       {}});
  return measurementClass;
}

NYBMeasurement::NYBMeasurement(NYBDynamicValue value, NYBDynamicValue unit) {
  initWithValue(std::move(value), std::move(unit));
}

void NYBMeasurement::initWithValue(NYBDynamicValue value, NYBDynamicValue unit) {
  value_ = std::move(value);
  unit_ = std::move(unit);
}

void NYBMeasurement::initWithDictionary(const NYBDictionary& dictionary) {
  initWithValue(dictionary[kNYBRawDataValueKey], dictionary[kNYBRawDataUnitKey]);
}

std::optional<NYBDictionary> NYBMeasurement::dictionaryRepresentation() const {
  if (value_.isAbsent() || unit_.isAbsent()) return std::nullopt;
  return NYBDictionary{{kNYBRawDataValueKey, value_}, {kNYBRawDataUnitKey, unit_}};
}

NYBDecimal NYBMeasurement::decimalValue() const {
  if (!value_.isString()) return NYBDecimal::notANumber();
  return NYBDecimal::fromString(value_.stringView());
}

}  // namespace nyb
