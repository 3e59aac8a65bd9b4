// The biometrics record: clinical and vital-sign readings. Its class is
// NYBBiometrics; the heart rates travel inside "extras".
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kBiometricsFields[] = {
    {"bloodCalcium", "blood_calcium", "blood-calcium", FieldKind::Number, "blood calcium"},
    {"bloodChromium", "blood_chromium", "blood-chromium", FieldKind::Number, "blood chromium"},
    {"bloodFolicAcid", "blood_folic_acid", "blood-folic-acid", FieldKind::Number,
     "blood folic acid"},
    {"bloodMagnesium", "blood_magnesium", "blood-magnesium", FieldKind::Number, "blood magnesium"},
    {"bloodPotassium", "blood_potassium", "blood-potassium", FieldKind::Number, "blood potassium"},
    {"bloodSodium", "blood_sodium", "blood-sodium", FieldKind::Number, "blood sodium"},
    {"bloodVitaminB12", "blood_vitamin_b12", "blood-vitamin-b12", FieldKind::Number,
     "blood vitamin B12"},
    {"bloodZinc", "blood_zinc", "blood-zinc", FieldKind::Number, "blood zinc"},
    {"creatineKinase", "creatine_kinase", "creatine-kinase", FieldKind::Number, "creatine kinase"},
    {"crp", "crp", "crp", FieldKind::Number, "C-reactive protein"},
    {"diastolic", "diastolic", "diastolic", FieldKind::Number, "diastolic blood pressure",
     FieldUnit::None, 3},
    {"ferritin", "ferritin", "ferritin", FieldKind::Number, "ferritin"},
    {"hdl", "hdl", "hdl", FieldKind::Number, "HDL cholesterol"},
    {"hscrp", "hscrp", "hscrp", FieldKind::Number, "high-sensitivity C-reactive protein"},
    {"il6", "il6", "il6", FieldKind::Number, "interleukin 6"},
    {"ldl", "ldl", "ldl", FieldKind::Number, "LDL cholesterol"},
    {"restingHeartrate", "resting_heartrate", "resting-heartrate", FieldKind::Number,
     "resting heart rate", FieldUnit::None, 4},
    {"systolic", "systolic", "systolic", FieldKind::Number, "systolic blood pressure",
     FieldUnit::None, 2},
    {"testosterone", "testosterone", "testosterone", FieldKind::Number, "testosterone"},
    {"totalCholesterol", "total_cholesterol", "total-cholesterol", FieldKind::Number,
     "total cholesterol"},
    {"tsh", "tsh", "tsh", FieldKind::Number, "thyroid-stimulating hormone"},
    {"uricAcid", "uric_acid", "uric-acid", FieldKind::Number, "uric acid"},
    {"vitaminD", "vitamin_d", "vitamin-d", FieldKind::Number, "vitamin D"},
    {"whiteCellCount", "white_cell_count", "white-cell-count", FieldKind::Number,
     "white cell count"},
    {"spo2", "spo2", "spo2", FieldKind::Number, "oxygen saturation", FieldUnit::None, 5},
    {"temperature", "temperature", "temperature", FieldKind::Number,
     "body temperature, in C unless --unit F", FieldUnit::Temperature, 1},
    {"minHeartRate", "extras.min_heartrate", "min-heart-rate", FieldKind::Number,
     "minimum heart rate"},
    {"maxHeartRate", "extras.max_heartrate", "max-heart-rate", FieldKind::Number,
     "maximum heart rate"},
    {"averageHeartRate", "extras.average_heartrate", "average-heart-rate", FieldKind::Number,
     "average heart rate"},
    {"medianHeartRate", "extras.median_heartrate", "median-heart-rate", FieldKind::Number,
     "median heart rate"},
};

inline constexpr RecordTypeDescription kBiometrics = {
    1,
    "biometrics",
    "Biometrics",
    "NYBBiometrics",
    "clinical and vital-sign readings: blood chemistry, lipids, blood pressure, temperature",
    kBiometricsFields};

}  // namespace nyb::records
