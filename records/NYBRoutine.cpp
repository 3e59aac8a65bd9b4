#include "NymbrelCore/NYBRoutine.h"

namespace nyb {

const NYBRecordClass& NYBRoutine::staticClass() {
  using T = NYBRoutine;
  static const NYBRecordClass routineClass({"NYBRoutine",
                                            &NYBRecord::staticClass(),
                                            [] { return std::make_shared<T>(); },
                                            NYBPropertyTable::of<T>()
                                                .field("steps", &T::steps_)
                                                .field("distance", &T::distance_)
                                                .field("floors", &T::floors_)
                                                .field("elevation", &T::elevation_)
                                                .field("caloriesBurned", &T::caloriesBurned_)
                                                .field("activeDuration", &T::activeDuration_),
                                            [] {
                                              NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                              keys.insert(keys.end(),
                                                          {{"steps", "steps"},
                                                           {"distance", "distance"},
                                                           {"floors", "floors"},
                                                           {"elevation", "elevation"},
                                                           {"caloriesBurned", "calories_burned"},
                                                           {"activeDuration", "active_duration"}});
                                              return keys;
                                            }(),
                                            {}});
  return routineClass;
}

NYBRecordType NYBRoutine::recordType() const { return NYBRecordTypeRoutine; }

}  // namespace nyb
