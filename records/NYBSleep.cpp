#include "NymbrelCore/NYBSleep.h"

namespace nyb {

const NYBRecordClass& NYBSleep::staticClass() {
  using T = NYBSleep;
  static const NYBRecordClass sleepClass({"NYBSleep",
                                          &NYBRecord::staticClass(),
                                          [] { return std::make_shared<T>(); },
                                          NYBPropertyTable::of<T>()
                                              .field("totalSleep", &T::totalSleep_)
                                              .field("awake", &T::awake_)
                                              .field("deep", &T::deep_)
                                              .field("light", &T::light_)
                                              .field("rem", &T::rem_)
                                              .field("timesWoken", &T::timesWoken_),
                                          [] {
                                            NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                            keys.insert(keys.end(),
                                                        {{"totalSleep", "total_sleep"},
                                                         {"awake", "awake"},
                                                         {"deep", "deep"},
                                                         {"light", "light"},
                                                         {"rem", "rem"},
                                                         {"timesWoken", "times_woken"}});
                                            return keys;
                                          }(),
                                          {}});
  return sleepClass;
}

NYBRecordType NYBSleep::recordType() const { return NYBRecordTypeSleep; }

}  // namespace nyb
