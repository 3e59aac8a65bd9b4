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
           NYB_DESCRIBED_MEMBER(bloodCalcium), NYB_DESCRIBED_MEMBER(bloodChromium),
           NYB_DESCRIBED_MEMBER(bloodFolicAcid), NYB_DESCRIBED_MEMBER(bloodMagnesium),
           NYB_DESCRIBED_MEMBER(bloodPotassium), NYB_DESCRIBED_MEMBER(bloodSodium),
           NYB_DESCRIBED_MEMBER(bloodVitaminB12), NYB_DESCRIBED_MEMBER(bloodZinc),
           NYB_DESCRIBED_MEMBER(creatineKinase), NYB_DESCRIBED_MEMBER(crp),
           NYB_DESCRIBED_MEMBER(diastolic), NYB_DESCRIBED_MEMBER(ferritin),
           NYB_DESCRIBED_MEMBER(hdl), NYB_DESCRIBED_MEMBER(hscrp), NYB_DESCRIBED_MEMBER(il6),
           NYB_DESCRIBED_MEMBER(ldl), NYB_DESCRIBED_MEMBER(restingHeartrate),
           NYB_DESCRIBED_MEMBER(systolic), NYB_DESCRIBED_MEMBER(testosterone),
           NYB_DESCRIBED_MEMBER(totalCholesterol), NYB_DESCRIBED_MEMBER(tsh),
           NYB_DESCRIBED_MEMBER(uricAcid), NYB_DESCRIBED_MEMBER(vitaminD),
           NYB_DESCRIBED_MEMBER(whiteCellCount), NYB_DESCRIBED_MEMBER(spo2),
           NYB_DESCRIBED_MEMBER(temperature))
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
