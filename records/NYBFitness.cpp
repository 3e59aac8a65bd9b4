#include "NymbrelCore/NYBFitness.h"

#include "NymbrelCore/NYBFormatter.h"

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
  static const NYBRecordClass fitnessClass({"NYBFitness",
                                            &NYBRecord::staticClass(),
                                            [] { return std::make_shared<T>(); },
                                            NYBPropertyTable::of<T>()
                                                .field("type", &T::type_)
                                                .field("intensity", &T::intensity_)
                                                .field("startTime", &T::startTime_)
                                                .field("distance", &T::distance_)
                                                .field("duration", &T::duration_)
                                                .field("calories", &T::calories_),
                                            [] {
                                              NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                              keys.insert(keys.end(), {{"type", "type"},
                                                                       {"intensity", "intensity"},
                                                                       {"startTime", "start_time"},
                                                                       {"distance", "distance"},
                                                                       {"duration", "duration"},
                                                                       {"calories", "calories"}});
                                              return keys;
                                            }(),
                                            {{"startTimeTransformer", makeStartTimeTransformer}}});
  return fitnessClass;
}

NYBRecordType NYBFitness::recordType() const { return NYBRecordTypeFitness; }

}  // namespace nyb
