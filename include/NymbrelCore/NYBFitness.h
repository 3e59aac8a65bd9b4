// NYBFitness: the record of one workout (its type and intensity, when it
// started, distance, duration, calories). Record type 6.
//
// startTime travels in the device's local date-time form
// ("2016-03-01T15:05:09+01:00", the shared ISO8601LocalDateTimeFormatter),
// unlike the record's timestamp, which is written in UTC. The numbers are
// passed through unchanged.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBFitness : public NYBRecord {
  NYB_DECLARE_MODEL(NYBFitness, NYBRecordClass)
 public:
  NYBFitness() = default;

  // Text to date and back through the shared ISO8601LocalDateTimeFormatter.
  static std::shared_ptr<NYBValueTransformer> startTimeTransformer() {
    return staticClass().valueTransformerForKey("startTime");
  }

  // NYBRecordTypeFitness.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(type, Type)
  NYB_RECORD_FIELD(intensity, Intensity)
  // A date.
  NYB_RECORD_FIELD(startTime, StartTime)
  NYB_RECORD_FIELD(distance, Distance)
  NYB_RECORD_FIELD(duration, Duration)
  NYB_RECORD_FIELD(calories, Calories)
};

}  // namespace nyb
