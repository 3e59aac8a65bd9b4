#include "NymbrelCore/NYBNutrition.h"

#include <string>

#include "records/DescribedRecord.h"
#include "records/types/Nutrition.h"

namespace nyb {

const NYBRecordClass& NYBNutrition::staticClass() {
  using T = NYBNutrition;
  static const NYBRecordClass nutritionClass(
      {std::string(records::kNutrition.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kNutrition, T>(&T::calories_, &T::carbohydrates_,
                                                            &T::fat_, &T::fiber_, &T::protein_,
                                                            &T::sodium_, &T::water_, &T::meal_),
       records::describedKeyMap(records::kNutrition),
       {}});
  return nutritionClass;
}

NYBRecordType NYBNutrition::recordType() const { return NYBRecordType(records::kNutrition.type); }

}  // namespace nyb
