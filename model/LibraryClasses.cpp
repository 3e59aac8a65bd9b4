#include <mutex>

#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"
#include "platform/ClassRegistry.h"

namespace nyb {

void registerLibraryClasses() {
  static std::once_flag once;
  std::call_once(once, [] {
    NYBObject::staticClass();
    NYBModel::staticClass();
    NYBValueTransformer::staticClass();
    NYBReversibleValueTransformer::staticClass();
  });
}

}  // namespace nyb
