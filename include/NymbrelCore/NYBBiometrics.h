// NYBBiometrics: the record of clinical and vital-sign readings (blood
// chemistry, lipids, hormones, blood pressure, oxygen saturation, resting heart
// rate and body temperature). Record type 1.
//
// Every field is an optional number sent under its snake-case JSON key, except
// arterialPressure, which is kept on the object only: it is in no key map, so
// it is never written to a JSON document nor read from one. temperature is
// always held in Celsius; setTemperature(value, unit) converts and keeps a
// value entered in Fahrenheit as entered (extras "raw_data"), which
// temperatureWithUnit() gives back exactly. The minimum, maximum, average and
// median heart rates are extras entries, so they travel inside "extras".
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <string_view>

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBBiometrics : public NYBRecord {
  NYB_DECLARE_MODEL(NYBBiometrics, NYBRecordClass)
 public:
  NYBBiometrics() = default;

  // NYBRecordTypeBiometrics.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(bloodCalcium, BloodCalcium)
  NYB_RECORD_FIELD(bloodChromium, BloodChromium)
  NYB_RECORD_FIELD(bloodFolicAcid, BloodFolicAcid)
  NYB_RECORD_FIELD(bloodMagnesium, BloodMagnesium)
  NYB_RECORD_FIELD(bloodPotassium, BloodPotassium)
  NYB_RECORD_FIELD(bloodSodium, BloodSodium)
  NYB_RECORD_FIELD(bloodVitaminB12, BloodVitaminB12)
  NYB_RECORD_FIELD(bloodZinc, BloodZinc)
  NYB_RECORD_FIELD(creatineKinase, CreatineKinase)
  NYB_RECORD_FIELD(crp, Crp)
  NYB_RECORD_FIELD(diastolic, Diastolic)
  NYB_RECORD_FIELD(ferritin, Ferritin)
  NYB_RECORD_FIELD(hdl, Hdl)
  NYB_RECORD_FIELD(hscrp, Hscrp)
  NYB_RECORD_FIELD(il6, Il6)
  NYB_RECORD_FIELD(ldl, Ldl)
  NYB_RECORD_FIELD(restingHeartrate, RestingHeartrate)
  NYB_RECORD_FIELD(systolic, Systolic)
  NYB_RECORD_FIELD(testosterone, Testosterone)
  NYB_RECORD_FIELD(totalCholesterol, TotalCholesterol)
  NYB_RECORD_FIELD(tsh, Tsh)
  NYB_RECORD_FIELD(uricAcid, UricAcid)
  NYB_RECORD_FIELD(vitaminD, VitaminD)
  NYB_RECORD_FIELD(whiteCellCount, WhiteCellCount)
  NYB_RECORD_FIELD(spo2, Spo2)
  // In Celsius.
  NYB_RECORD_FIELD(temperature, Temperature)
  // Never in a JSON document.
  NYB_RECORD_FIELD(arterialPressure, ArterialPressure)

  // Extras "min_heartrate", "max_heartrate", "average_heartrate" and
  // "median_heartrate"; setting absent removes the entry.
  NYBDynamicValue minHeartRate() const;
  void setMinHeartRate(NYBDynamicValue value);
  NYBDynamicValue maxHeartRate() const;
  void setMaxHeartRate(NYBDynamicValue value);
  NYBDynamicValue averageHeartRate() const;
  void setAverageHeartRate(NYBDynamicValue value);
  NYBDynamicValue medianHeartRate() const;
  void setMedianHeartRate(NYBDynamicValue value);

  // The temperature as entered when it was entered in that unit (a decimal),
  // else temperature converted from Celsius (absent converts as 0).
  NYBDynamicValue temperatureWithUnit(NYBTemperatureUnit unit) const;
  // Stores the value converted to Celsius; a value in another unit is also
  // kept as entered. Setting Celsius leaves an earlier entered value in place.
  void setTemperature(const NYBDynamicValue& value, NYBTemperatureUnit unit);

  using NYBRecord::setMeasurementValue;
  // setTemperature(value, unit) for the field that the key map sends as
  // "temperature"; any other field is ignored.
  void setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                           std::string_view field) override;
};

}  // namespace nyb
