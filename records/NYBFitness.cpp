#include "NymbrelCore/NYBFitness.h"

#include <string>

#include "NymbrelCore/NYBFormatter.h"

#include "records/DescribedRecord.h"
#include "records/types/Fitness.h"

namespace nyb {

namespace {

std::shared_ptr<NYBValueTransformer> makeStartTimeTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& text) -> NYBDynamicValue {
        if (!text.isString()) return {};
        return NYBFormatter::sharedFormatter().ISO8601LocalDateTimeFormatter()->dateFromString(
            text.stringView());
      },
      [](const NYBDynamicValue& date) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601LocalDateTimeFormatter()->stringFromDate(
            date.date());
      });
}

}  // namespace

const NYBRecordClass& NYBFitness::staticClass() {
  using T = NYBFitness;
  static const NYBRecordClass fitnessClass(
      {std::string(records::kFitness.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       records::describedProperties<records::kFitness, T>(
           NYB_DESCRIBED_MEMBER(type), NYB_DESCRIBED_MEMBER(intensity),
           NYB_DESCRIBED_MEMBER(startTime), NYB_DESCRIBED_MEMBER(distance),
           NYB_DESCRIBED_MEMBER(duration), NYB_DESCRIBED_MEMBER(calories)),
       records::describedKeyMap(records::kFitness),
       {{"startTimeTransformer", makeStartTimeTransformer}}});
  return fitnessClass;
}

NYBRecordType NYBFitness::recordType() const { return NYBRecordType(records::kFitness.type); }

}  // namespace nyb
