#include "NymbrelCore/NYBMedia.h"

namespace nyb {

const NYBModelClass& NYBMedia::staticClass() {
  static const NYBModelClass mediaClass({"NYBMedia",
                                         &NYBModel::staticClass(),
                                         [] { return std::make_shared<NYBMedia>(); },
                                         NYBPropertyTable::of<NYBMedia>()
                                             .field("mediaID", &NYBMedia::mediaID_)
                                             .field("mediaURL", &NYBMedia::mediaURL_),
                                         NYBKeyMap{{"mediaID", "id"}, {"mediaURL", "url"}},
                                         {}});
  return mediaClass;
}

}  // namespace nyb
