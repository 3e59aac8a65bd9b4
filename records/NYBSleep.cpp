#include "NymbrelCore/NYBSleep.h"

#include <string>

#include "records/DescribedRecord.h"
#include "records/types/Sleep.h"

namespace nyb {

const NYBRecordClass& NYBSleep::staticClass() {
  using T = NYBSleep;
  static const NYBRecordClass sleepClass(
      {std::string(records::kSleep.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kSleep, T>(&T::totalSleep_, &T::awake_, &T::deep_,
                                                        &T::light_, &T::rem_, &T::timesWoken_),
       records::describedKeyMap(records::kSleep),
       {}});
  return sleepClass;
}

NYBRecordType NYBSleep::recordType() const { return NYBRecordType(records::kSleep.type); }

}  // namespace nyb
