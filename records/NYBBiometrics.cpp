#include "NymbrelCore/NYBBiometrics.h"

#include <string>

#include "records/DescribedRecord.h"
#include "records/RecordSupport.h"
#include "records/types/Biometrics.h"

namespace nyb {

const NYBRecordClass& NYBBiometrics::staticClass() {
  using T = NYBBiometrics;
  static const NYBRecordClass biometricsClass(
      {std::string(records::kBiometrics.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kBiometrics, T>(
           &T::bloodCalcium_, &T::bloodChromium_, &T::bloodFolicAcid_, &T::bloodMagnesium_,
           &T::bloodPotassium_, &T::bloodSodium_, &T::bloodVitaminB12_, &T::bloodZinc_,
           &T::creatineKinase_, &T::crp_, &T::diastolic_, &T::ferritin_, &T::hdl_, &T::hscrp_,
           &T::il6_, &T::ldl_, &T::restingHeartrate_, &T::systolic_, &T::testosterone_,
           &T::totalCholesterol_, &T::tsh_, &T::uricAcid_, &T::vitaminD_, &T::whiteCellCount_,
           &T::spo2_, &T::temperature_)
           // Kept on the object only: it never travels.
           .field("arterialPressure", &T::arterialPressure_),
       records::describedKeyMap(records::kBiometrics),
       {}});
  return biometricsClass;
}

NYBRecordType NYBBiometrics::recordType() const { return NYBRecordType(records::kBiometrics.type); }

NYBDynamicValue NYBBiometrics::minHeartRate() const {
  return records::extraValue(*this, "min_heartrate");
}
void NYBBiometrics::setMinHeartRate(NYBDynamicValue value) {
  setExtraValue(std::move(value), "min_heartrate");
}
NYBDynamicValue NYBBiometrics::maxHeartRate() const {
  return records::extraValue(*this, "max_heartrate");
}
void NYBBiometrics::setMaxHeartRate(NYBDynamicValue value) {
  setExtraValue(std::move(value), "max_heartrate");
}
NYBDynamicValue NYBBiometrics::averageHeartRate() const {
  return records::extraValue(*this, "average_heartrate");
}
void NYBBiometrics::setAverageHeartRate(NYBDynamicValue value) {
  setExtraValue(std::move(value), "average_heartrate");
}
NYBDynamicValue NYBBiometrics::medianHeartRate() const {
  return records::extraValue(*this, "median_heartrate");
}
void NYBBiometrics::setMedianHeartRate(NYBDynamicValue value) {
  setExtraValue(std::move(value), "median_heartrate");
}

NYBDynamicValue NYBBiometrics::temperatureWithUnit(NYBTemperatureUnit unit) const {
  const NYBRecordClass& cls = classObject();
  NYBDynamicValue entered =
      records::enteredValueInUnit(*this, "temperature", cls.unitStringForTemperatureUnit(unit));
  if (entered.isPresent()) return entered;
  return cls.convertTemperatureValue(temperature_, NYBTemperatureUnit(kNYBStandardTemperatureUnit),
                                     unit);
}

void NYBBiometrics::setTemperature(const NYBDynamicValue& value, NYBTemperatureUnit unit) {
  const NYBRecordClass& cls = classObject();
  setTemperature(
      cls.convertTemperatureValue(value, unit, NYBTemperatureUnit(kNYBStandardTemperatureUnit)));
  if (unit != kNYBStandardTemperatureUnit) {
    records::keepEnteredValue(*this, value, cls.unitStringForTemperatureUnit(unit), "temperature");
  }
}

void NYBBiometrics::setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                                        std::string_view field) {
  if (records::mappedJSONKey(*this, field) == "temperature") {
    setTemperature(value, NYBTemperatureUnit(unit));
  }
}

}  // namespace nyb
