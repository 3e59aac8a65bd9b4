#include <mutex>

#include "NymbrelCore/NYBMeasurement.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBRecord.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"
#include "NymbrelCore/NYBServerResponse.h"
#include "NymbrelCore/NYBUser.h"
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
    NYBUser::staticClass();
    NYBMedia::staticClass();
    NYBServerResponse::staticClass();
  });
}

}  // namespace nyb
