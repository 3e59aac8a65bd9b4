#include "NymbrelCore/NYBNutrition.h"

namespace nyb {

const NYBRecordClass& NYBNutrition::staticClass() {
  using T = NYBNutrition;
  static const NYBRecordClass nutritionClass({"NYBNutrition",
                                              &NYBRecord::staticClass(),
                                              [] { return std::make_shared<T>(); },
                                              NYBPropertyTable::of<T>()
                                                  .field("calories", &T::calories_)
                                                  .field("carbohydrates", &T::carbohydrates_)
                                                  .field("fat", &T::fat_)
                                                  .field("fiber", &T::fiber_)
                                                  .field("protein", &T::protein_)
                                                  .field("sodium", &T::sodium_)
                                                  .field("water", &T::water_)
                                                  .field("meal", &T::meal_),
                                              [] {
                                                NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                                keys.insert(keys.end(),
                                                            {{"calories", "calories"},
                                                             {"carbohydrates", "carbohydrates"},
                                                             {"fat", "fat"},
                                                             {"fiber", "fiber"},
                                                             {"protein", "protein"},
                                                             {"sodium", "sodium"},
                                                             {"water", "water"},
                                                             {"meal", "meal"}});
                                                return keys;
                                              }(),
                                              {}});
  return nutritionClass;
}

NYBRecordType NYBNutrition::recordType() const { return NYBRecordTypeNutrition; }

}  // namespace nyb
