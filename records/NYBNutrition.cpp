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
       records::describedProperties<records::kNutrition, T>(
           NYB_DESCRIBED_MEMBER(calories), NYB_DESCRIBED_MEMBER(carbohydrates),
           NYB_DESCRIBED_MEMBER(fat), NYB_DESCRIBED_MEMBER(fiber), NYB_DESCRIBED_MEMBER(protein),
           NYB_DESCRIBED_MEMBER(sodium), NYB_DESCRIBED_MEMBER(water), NYB_DESCRIBED_MEMBER(meal)),
       records::describedKeyMap(records::kNutrition),
       {}});
  return nutritionClass;
}

NYBRecordType NYBNutrition::recordType() const { return NYBRecordType(records::kNutrition.type); }

}  // namespace nyb
