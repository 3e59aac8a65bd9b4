// The sleep record: one night's sleep. Its class is NYBSleep.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kSleepFields[] = {
    {"totalSleep", "total_sleep", "total-sleep", FieldKind::Number, "total sleep"},
    {"awake", "awake", "awake", FieldKind::Number, "time awake"},
    {"deep", "deep", "deep", FieldKind::Number, "deep sleep"},
    {"light", "light", "light", FieldKind::Number, "light sleep"},
    {"rem", "rem", "rem", FieldKind::Number, "REM sleep"},
    {"timesWoken", "times_woken", "times-woken", FieldKind::Number, "times woken"},
};

inline constexpr RecordTypeDescription kSleep = {
    7, "sleep", "Sleep", "NYBSleep", "one night's sleep", kSleepFields};

}  // namespace nyb::records
