// Helpers that the record types share: extras entries, key-map lookups, and
// the unit-bearing fields (temperature, blood glucose, weight), which hold the
// value in the standard unit while a value entered in another unit is also
// kept as entered, as a raw measurement.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBMeasurement.h"
#include "NymbrelCore/NYBRecord.h"

namespace nyb::records {

// The extras entry under key; absent when there is none.
inline NYBDynamicValue extraValue(const NYBRecord& record, std::string_view key) {
  const NYBDictionary* extras = record.extras().dictionary();
  return extras != nullptr ? (*extras)[key] : NYBDynamicValue();
}

// The number's text as entered ("98.6", "150"); absent for no number.
inline NYBDynamicValue enteredText(const NYBDynamicValue& value) {
  if (value.isNumber() || value.decimal() != nullptr) return value.description();
  if (value.isString()) return value;
  return {};
}

// The raw measurement of rawField as entered (its decimal value) when it was
// entered in the unit of that text; otherwise absent, and the caller converts
// the standard-unit field.
inline NYBDynamicValue enteredValueInUnit(const NYBRecord& record, std::string_view rawField,
                                          const std::optional<std::string>& unitText) {
  std::shared_ptr<NYBMeasurement> raw = record.rawMeasurementForField(rawField);
  if (unitText && raw->unit().isString() && raw->unit().stringView() == *unitText) {
    return raw->decimalValue();
  }
  return {};
}

// Keeps a value entered in a unit other than the standard one as the raw
// measurement of rawField.
inline void keepEnteredValue(NYBRecord& record, const NYBDynamicValue& value,
                             const std::optional<std::string>& unitText,
                             std::string_view rawField) {
  record.setRawMeasurement(std::make_shared<NYBMeasurement>(enteredText(value), unitText),
                           rawField);
}

// The JSON key that the receiving class's key map gives a property; absent
// when the property is in no pair.
inline std::optional<std::string_view> mappedJSONKey(const NYBRecord& record,
                                                     std::string_view property) {
  if (const NYBKeyMap* keyMap = record.classObject().JSONKeyPaths()) {
    for (const auto& [name, jsonKey] : *keyMap) {
      if (name == property) return jsonKey;
    }
  }
  return std::nullopt;
}

}  // namespace nyb::records
