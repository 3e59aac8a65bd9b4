// The diabetes record: glucose-related readings. Its class is NYBDiabetes;
// the event and out-of-range tags travel inside "extras".
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kDiabetesFields[] = {
    {"cPeptide", "c_peptide", "c-peptide", FieldKind::Number, "C-peptide"},
    {"fastingPlasmaGlucoseTest", "fasting_plasma_glucose_test", "fasting-plasma-glucose-test",
     FieldKind::Number, "fasting plasma glucose test"},
    {"hba1c", "hba1c", "hba1c", FieldKind::Number, "HbA1c", FieldUnit::None, 5},
    {"insulin", "insulin", "insulin", FieldKind::Number, "insulin", FieldUnit::None, 6},
    {"oralGlucoseToleranceTest", "oral_glucose_tolerance_test", "oral-glucose-tolerance-test",
     FieldKind::Number, "oral glucose tolerance test"},
    {"randomPlasmaGlucoseTest", "random_plasma_glucose_test", "random-plasma-glucose-test",
     FieldKind::Number, "random plasma glucose test"},
    {"triglyceride", "triglyceride", "triglyceride", FieldKind::Number, "triglycerides"},
    {"bloodGlucose", "blood_glucose", "blood-glucose", FieldKind::Number,
     "blood glucose, in mg/dL unless --unit mmol/L", FieldUnit::Glucose, 1},
    {"relationshipToMeal", "relationship_to_meal", "relationship-to-meal",
     FieldKind::MealRelationship, "when the glucose was measured", FieldUnit::None, 2},
    {"diabetesEvent", "extras.glucose_event_tag", "diabetes-event", FieldKind::DiabetesEvent,
     "what was going on", FieldUnit::None, 3},
    {"outOfRange", "extras.out_of_range", "out-of-range", FieldKind::OutOfRange,
     "the reading is out of range", FieldUnit::None, 4},
};

inline constexpr RecordTypeDescription kDiabetes = {
    2,
    "diabetes",
    "Diabetes",
    "NYBDiabetes",
    "glucose-related readings: blood glucose and its relation to a meal, HbA1c, insulin",
    kDiabetesFields};

}  // namespace nyb::records
