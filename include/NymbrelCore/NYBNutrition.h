// NYBNutrition: the record of one meal's intake (calories, carbohydrates, fat,
// fibre, protein, sodium, water, and the meal's name). Record type 5. The
// numbers are passed through unchanged.
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBNutrition : public NYBRecord {
  NYB_DECLARE_MODEL(NYBNutrition, NYBRecordClass)
 public:
  NYBNutrition() = default;

  // NYBRecordTypeNutrition.
  NYBRecordType recordType() const override;

  NYB_RECORD_FIELD(calories, Calories)
  NYB_RECORD_FIELD(carbohydrates, Carbohydrates)
  NYB_RECORD_FIELD(fat, Fat)
  NYB_RECORD_FIELD(fiber, Fiber)
  NYB_RECORD_FIELD(protein, Protein)
  NYB_RECORD_FIELD(sodium, Sodium)
  NYB_RECORD_FIELD(water, Water)
  NYB_RECORD_FIELD(meal, Meal)
};

}  // namespace nyb
