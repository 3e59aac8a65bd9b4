// Fuzzes the keyed unarchiver with arbitrary bytes. Whatever decodes must
// archive again, and that archive must decode to a value that archives to the
// very same bytes (archiving is deterministic, so a value that lost or changed
// anything on the way shows up as different bytes).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBModel.h"

namespace {

// A model class the fuzzer can name, with an object property and a scalar one.
class FuzzModel : public nyb::NYBModel {
  NYB_DECLARE_MODEL(FuzzModel, nyb::NYBModelClass)
 public:
  nyb::NYBDynamicValue value;
  std::uint64_t count = 0;
};

}  // namespace

const nyb::NYBModelClass& FuzzModel::staticClass() {
  static const nyb::NYBModelClass cls({"FuzzModel",
                                       &nyb::NYBModel::staticClass(),
                                       [] { return std::make_shared<FuzzModel>(); },
                                       nyb::NYBPropertyTable::of<FuzzModel>()
                                           .field("value", &FuzzModel::value)
                                           .unsignedScalar("count", &FuzzModel::count),
                                       std::nullopt,
                                       {}});
  return cls;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  FuzzModel::staticClass();
  const nyb::NYBData input(std::vector<std::uint8_t>(bytes, bytes + size));
  std::shared_ptr<nyb::NYBError> error;
  const nyb::NYBDynamicValue value =
      nyb::NYBKeyedUnarchiver::unarchivedObjectWithData(input, &error);
  if (error != nullptr) {
    if (value.isPresent()) std::abort();
    return 0;
  }
  const nyb::NYBData first = nyb::NYBKeyedArchiver::archivedDataWithRootObject(value);
  const nyb::NYBDynamicValue again =
      nyb::NYBKeyedUnarchiver::unarchivedObjectWithData(first, &error);
  if (error != nullptr || again.kind() != value.kind()) std::abort();
  if (!(nyb::NYBKeyedArchiver::archivedDataWithRootObject(again) == first)) std::abort();
  return 0;
}
