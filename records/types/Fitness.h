// The fitness record: one workout. Its class is NYBFitness.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kFitnessFields[] = {
    {"type", "type", "type", FieldKind::Text, "the kind of workout"},
    {"intensity", "intensity", "intensity", FieldKind::Text, "its intensity"},
    {"startTime", "start_time", "start-time", FieldKind::DateTime,
     "when it started (sent in the device's local time)"},
    {"distance", "distance", "distance", FieldKind::Number, "distance"},
    {"duration", "duration", "duration", FieldKind::Number, "duration"},
    {"calories", "calories", "calories", FieldKind::Number, "calories"},
};

inline constexpr RecordTypeDescription kFitness = {
    6, "fitness", "Fitness", "NYBFitness", "one workout", kFitnessFields};

}  // namespace nyb::records
