#include "NymbrelCore/NYBServerResponse.h"

namespace nyb {

const NYBModelClass& NYBServerResponse::staticClass() {
  static const NYBModelClass responseClass(
      {"NYBServerResponse",
       &NYBModel::staticClass(),
       [] { return std::make_shared<NYBServerResponse>(); },
       NYBPropertyTable::of<NYBServerResponse>()
           .field("code", &NYBServerResponse::code_)
           .field("message", &NYBServerResponse::message_)
           .field("errors", &NYBServerResponse::errors_)
           .field("activityID", &NYBServerResponse::activityID_),
       NYBKeyMap{{"code", "code"},
                 {"message", "message"},
                 {"errors", "errors"},
                 {"activityID", "activity_id"}},
       {}});
  return responseClass;
}

}  // namespace nyb
