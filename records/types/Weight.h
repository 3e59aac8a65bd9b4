// The weight record: body weight and composition. Its class is NYBWeight.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kWeightFields[] = {
    {"weight", "weight", "weight", FieldKind::Number, "body weight, in kg unless --unit lb or st",
     FieldUnit::Weight},
    {"height", "height", "height", FieldKind::Number, "height"},
    {"freeMass", "free_mass", "free-mass", FieldKind::Number, "fat-free mass"},
    {"fatPercent", "fat_percent", "fat-percent", FieldKind::Number, "body fat percentage"},
    {"massWeight", "mass_weight", "mass-weight", FieldKind::Number, "mass weight"},
    {"bmi", "bmi", "bmi", FieldKind::Number, "body-mass index"},
};

inline constexpr RecordTypeDescription kWeight = {
    3, "weight", "Weight", "NYBWeight", "body weight and composition", kWeightFields};

}  // namespace nyb::records
