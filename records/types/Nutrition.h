// The nutrition record: one meal's intake. Its class is NYBNutrition.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kNutritionFields[] = {
    {"calories", "calories", "calories", FieldKind::Number, "calories"},
    {"carbohydrates", "carbohydrates", "carbohydrates", FieldKind::Number, "carbohydrates"},
    {"fat", "fat", "fat", FieldKind::Number, "fat"},
    {"fiber", "fiber", "fiber", FieldKind::Number, "fibre"},
    {"protein", "protein", "protein", FieldKind::Number, "protein"},
    {"sodium", "sodium", "sodium", FieldKind::Number, "sodium"},
    {"water", "water", "water", FieldKind::Number, "water"},
    {"meal", "meal", "meal", FieldKind::Text, "the meal's name", FieldUnit::None, 1},
};

inline constexpr RecordTypeDescription kNutrition = {
    5, "nutrition", "Nutrition", "NYBNutrition", "one meal's intake", kNutritionFields};

}  // namespace nyb::records
