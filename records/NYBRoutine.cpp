#include "NymbrelCore/NYBRoutine.h"

#include <string>

#include "records/DescribedRecord.h"
#include "records/types/Routine.h"

namespace nyb {

const NYBRecordClass& NYBRoutine::staticClass() {
  using T = NYBRoutine;
  static const NYBRecordClass routineClass(
      {std::string(records::kRoutine.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kRoutine, T>(
           NYB_DESCRIBED_MEMBER(steps), NYB_DESCRIBED_MEMBER(distance),
           NYB_DESCRIBED_MEMBER(floors), NYB_DESCRIBED_MEMBER(elevation),
           NYB_DESCRIBED_MEMBER(caloriesBurned), NYB_DESCRIBED_MEMBER(activeDuration)),
       records::describedKeyMap(records::kRoutine),
       {}});
  return routineClass;
}

NYBRecordType NYBRoutine::recordType() const { return NYBRecordType(records::kRoutine.type); }

}  // namespace nyb
