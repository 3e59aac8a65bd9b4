// The record types, in NYBRecordType order (1 to 8): the one list that the
// library, the nymbrel tool and the devserver walk. A new type adds its
// description here.
#pragma once

#include <array>
#include <string_view>

#include "records/RecordTypeDescription.h"
#include "records/types/Biometrics.h"
#include "records/types/Diabetes.h"
#include "records/types/Fitness.h"
#include "records/types/IntraDay.h"
#include "records/types/Nutrition.h"
#include "records/types/Routine.h"
#include "records/types/Sleep.h"
#include "records/types/Weight.h"

namespace nyb::records {

inline constexpr std::array kRecordTypes = {
    &kBiometrics, &kDiabetes, &kWeight, &kRoutine, &kNutrition, &kFitness, &kSleep, &kIntraDay};

// The description of a record type; null for 0 and unknown types.
constexpr const RecordTypeDescription* describeRecordType(std::uint64_t type) {
  for (const RecordTypeDescription* description : kRecordTypes) {
    if (description->type == type) return description;
  }
  return nullptr;
}

}  // namespace nyb::records
