// NYBRoutine: the record of a day's routine activity (steps, distance, floors,
// elevation, calories burned, active duration). Record type 4. The session
// upserts routine records by their activityID. The numbers are passed through
// unchanged.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBRoutine : public NYBRecord {
  NYB_DECLARE_MODEL(NYBRoutine, NYBRecordClass)
 public:
  NYBRoutine() = default;

  // NYBRecordTypeRoutine.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(steps, Steps)
  NYB_RECORD_FIELD(distance, Distance)
  NYB_RECORD_FIELD(floors, Floors)
  NYB_RECORD_FIELD(elevation, Elevation)
  NYB_RECORD_FIELD(caloriesBurned, CaloriesBurned)
  NYB_RECORD_FIELD(activeDuration, ActiveDuration)
};

}  // namespace nyb
