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
       records::describedProperties<records::kRoutine, T>(&T::steps_, &T::distance_, &T::floors_,
                                                          &T::elevation_, &T::caloriesBurned_,
                                                          &T::activeDuration_),
       records::describedKeyMap(records::kRoutine),
       {}});
  return routineClass;
}

NYBRecordType NYBRoutine::recordType() const { return NYBRecordType(records::kRoutine.type); }

}  // namespace nyb
