#include "NymbrelCore/NYBBiometrics.h"

#include "records/RecordSupport.h"

namespace nyb {

namespace {

NYBKeyMap biometricsKeyPaths() {
  NYBKeyMap keys = NYBRecord::commonKeyPaths();
  keys.insert(keys.end(), {{"bloodCalcium", "blood_calcium"},
                           {"bloodChromium", "blood_chromium"},
                           {"bloodFolicAcid", "blood_folic_acid"},
                           {"bloodMagnesium", "blood_magnesium"},
                           {"bloodPotassium", "blood_potassium"},
                           {"bloodSodium", "blood_sodium"},
                           {"bloodVitaminB12", "blood_vitamin_b12"},
                           {"bloodZinc", "blood_zinc"},
                           {"creatineKinase", "creatine_kinase"},
                           {"crp", "crp"},
                           {"diastolic", "diastolic"},
                           {"ferritin", "ferritin"},
                           {"hdl", "hdl"},
                           {"hscrp", "hscrp"},
                           {"il6", "il6"},
                           {"ldl", "ldl"},
                           {"restingHeartrate", "resting_heartrate"},
                           {"systolic", "systolic"},
                           {"testosterone", "testosterone"},
                           {"totalCholesterol", "total_cholesterol"},
                           {"tsh", "tsh"},
                           {"uricAcid", "uric_acid"},
                           {"vitaminD", "vitamin_d"},
                           {"whiteCellCount", "white_cell_count"},
                           {"spo2", "spo2"},
                           {"temperature", "temperature"}});
  // arterialPressure stays out: it never travels.
  return keys;
}

}  // namespace

const NYBRecordClass& NYBBiometrics::staticClass() {
  using T = NYBBiometrics;
  static const NYBRecordClass biometricsClass(
      {"NYBBiometrics",
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       NYBPropertyTable::of<T>()
           .field("bloodCalcium", &T::bloodCalcium_)
           .field("bloodChromium", &T::bloodChromium_)
           .field("bloodFolicAcid", &T::bloodFolicAcid_)
           .field("bloodMagnesium", &T::bloodMagnesium_)
           .field("bloodPotassium", &T::bloodPotassium_)
           .field("bloodSodium", &T::bloodSodium_)
           .field("bloodVitaminB12", &T::bloodVitaminB12_)
           .field("bloodZinc", &T::bloodZinc_)
           .field("creatineKinase", &T::creatineKinase_)
           .field("crp", &T::crp_)
           .field("diastolic", &T::diastolic_)
           .field("ferritin", &T::ferritin_)
           .field("hdl", &T::hdl_)
           .field("hscrp", &T::hscrp_)
           .field("il6", &T::il6_)
           .field("ldl", &T::ldl_)
           .field("restingHeartrate", &T::restingHeartrate_)
           .field("systolic", &T::systolic_)
           .field("testosterone", &T::testosterone_)
           .field("totalCholesterol", &T::totalCholesterol_)
           .field("tsh", &T::tsh_)
           .field("uricAcid", &T::uricAcid_)
           .field("vitaminD", &T::vitaminD_)
           .field("whiteCellCount", &T::whiteCellCount_)
           .field("spo2", &T::spo2_)
           .field("temperature", &T::temperature_)
           .field("arterialPressure", &T::arterialPressure_),
       biometricsKeyPaths(),
       {}});
  return biometricsClass;
}

NYBRecordType NYBBiometrics::recordType() const { return NYBRecordTypeBiometrics; }

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
