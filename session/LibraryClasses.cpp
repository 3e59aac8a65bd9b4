#include <mutex>

#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBDiabetes.h"
#include "NymbrelCore/NYBFitness.h"
#include "NymbrelCore/NYBIntraDay.h"
#include "NymbrelCore/NYBMeasurement.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBNutrition.h"
#include "NymbrelCore/NYBPeripheral.h"
#include "NymbrelCore/NYBRecord.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"
#include "NymbrelCore/NYBRoutine.h"
#include "NymbrelCore/NYBServerResponse.h"
#include "NymbrelCore/NYBSessionData.h"
#include "NymbrelCore/NYBSleep.h"
#include "NymbrelCore/NYBUser.h"
#include "NymbrelCore/NYBWeight.h"
#include "platform/ClassRegistry.h"

namespace nyb {

void registerLibraryClasses() {
  static std::once_flag once;
  std::call_once(once, [] {
    NYBObject::staticClass();
    NYBModel::staticClass();
    NYBValueTransformer::staticClass();
    NYBReversibleValueTransformer::staticClass();
    NYBMeasurement::staticClass();
    NYBRecord::staticClass();
    NYBBiometrics::staticClass();
    NYBDiabetes::staticClass();
    NYBWeight::staticClass();
    NYBRoutine::staticClass();
    NYBNutrition::staticClass();
    NYBFitness::staticClass();
    NYBSleep::staticClass();
    NYBIntraDay::staticClass();
    NYBPeripheral::staticClass();
    NYBUser::staticClass();
    NYBMedia::staticClass();
    NYBServerResponse::staticClass();
    NYBSessionData::staticClass();
  });
}

}  // namespace nyb
