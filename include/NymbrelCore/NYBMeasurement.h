// NYBMeasurement: a number as the user or a device entered it, kept as text,
// with the text of its unit ("lb", "F", "mmol/L").
//
// Records keep one per unit-bearing field in their raw data, so that a value
// entered in pounds or Fahrenheit can be given back exactly as entered while
// the field holds the converted value. A measurement travels as the two-entry
// dictionary of dictionaryRepresentation(); it has no key map, so its
// JSONObject() is empty. decimalValue() is derived from the text on every
// read and is a property of the class (it takes part in dictionaryValue(),
// archiving, equality and hash).
//
// Building from a dictionary takes "value" and "unit" exactly as they are:
// null markers are kept, not read as absent. Copying goes through
// dictionaryValue(), whose absent entries are null markers, so a copy of a
// measurement lacking its value or unit holds the null marker there and has a
// present dictionaryRepresentation(). That is intended.
//
// A plain model value: shared through std::shared_ptr, used from one thread
// at a time.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <optional>

#include "NymbrelCore/NYBDecimal.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBModel.h"

namespace nyb {

class NYB_EXPORT NYBMeasurement : public NYBModel {
  NYB_DECLARE_MODEL(NYBMeasurement, NYBModelClass)
 public:
  // Both absent.
  NYBMeasurement() = default;
  // The value text (such as "98.6") and the unit text, each possibly absent.
  NYBMeasurement(NYBDynamicValue value, NYBDynamicValue unit);

  // Stores both, as given.
  void initWithValue(NYBDynamicValue value, NYBDynamicValue unit);
  // Takes only the entries "value" and "unit", exactly as they are (a null
  // marker is stored as the field's value); missing entries give absent.
  void initWithDictionary(const NYBDictionary& dictionary) override;

  // { "value": value, "unit": unit } when both are present, else absent.
  std::optional<NYBDictionary> dictionaryRepresentation() const;
  // The value text read as an exact decimal (the point is the separator,
  // whatever the locale); not-a-number for text that is no number and for a
  // value that is absent or not text.
  NYBDecimal decimalValue() const;

  const NYBDynamicValue& value() const { return value_; }
  void setValue(NYBDynamicValue value) { value_ = std::move(value); }
  using NYBModel::setValue;
  const NYBDynamicValue& unit() const { return unit_; }
  void setUnit(NYBDynamicValue unit) { unit_ = std::move(unit); }

 private:
  NYBDynamicValue decimalValueProperty() const { return decimalValue(); }

  NYBDynamicValue value_;
  NYBDynamicValue unit_;
};

}  // namespace nyb
