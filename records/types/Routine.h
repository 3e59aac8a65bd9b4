// The routine record: a day's routine activity. Its class is NYBRoutine.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kRoutineFields[] = {
    {"steps", "steps", "steps", FieldKind::Number, "steps"},
    {"distance", "distance", "distance", FieldKind::Number, "distance"},
    {"floors", "floors", "floors", FieldKind::Number, "floors climbed"},
    {"elevation", "elevation", "elevation", FieldKind::Number, "elevation"},
    {"caloriesBurned", "calories_burned", "calories-burned", FieldKind::Number, "calories burned"},
    {"activeDuration", "active_duration", "active-duration", FieldKind::Number, "active duration"},
};

inline constexpr RecordTypeDescription kRoutine = {
    4, "routine", "Routine", "NYBRoutine", "a day's routine activity", kRoutineFields};

}  // namespace nyb::records
