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
       records::describedProperties<records::kSleep, T>(
           NYB_DESCRIBED_MEMBER(totalSleep), NYB_DESCRIBED_MEMBER(awake),
           NYB_DESCRIBED_MEMBER(deep), NYB_DESCRIBED_MEMBER(light), NYB_DESCRIBED_MEMBER(rem),
           NYB_DESCRIBED_MEMBER(timesWoken)),
       records::describedKeyMap(records::kSleep),
       {}});
  return sleepClass;
}

NYBRecordType NYBSleep::recordType() const { return NYBRecordType(records::kSleep.type); }

}  // namespace nyb
