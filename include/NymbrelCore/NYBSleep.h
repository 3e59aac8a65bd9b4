// NYBSleep: the record of one night's sleep (total sleep, time awake, deep,
// light and REM sleep, times woken). Record type 7. The numbers are passed
// through unchanged.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBSleep : public NYBRecord {
  NYB_DECLARE_MODEL(NYBSleep, NYBRecordClass)
 public:
  NYBSleep() = default;

  // NYBRecordTypeSleep.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(totalSleep, TotalSleep)
  NYB_RECORD_FIELD(awake, Awake)
  NYB_RECORD_FIELD(deep, Deep)
  NYB_RECORD_FIELD(light, Light)
  NYB_RECORD_FIELD(rem, Rem)
  NYB_RECORD_FIELD(timesWoken, TimesWoken)
};

}  // namespace nyb
