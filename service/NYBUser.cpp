#include "NymbrelCore/NYBUser.h"

namespace nyb {

const NYBModelClass& NYBUser::staticClass() {
  static const NYBModelClass userClass({"NYBUser",
                                        &NYBModel::staticClass(),
                                        [] { return std::make_shared<NYBUser>(); },
                                        NYBPropertyTable::of<NYBUser>()
                                            .field("nymbrelUserID", &NYBUser::nymbrelUserID_)
                                            .field("organizationID", &NYBUser::organizationID_)
                                            .field("accessToken", &NYBUser::accessToken_)
                                            .field("marketplaceToken", &NYBUser::marketplaceToken_),
                                        std::nullopt,
                                        {}});
  return userClass;
}

NYBUser::NYBUser(NYBDynamicValue nymbrelUserID, NYBDynamicValue organizationID,
                 NYBDynamicValue accessToken)
    : nymbrelUserID_(std::move(nymbrelUserID)),
      organizationID_(std::move(organizationID)),
      accessToken_(std::move(accessToken)) {}

NYBUser::NYBUser(NYBDynamicValue nymbrelUserID, NYBDynamicValue organizationID,
                 NYBDynamicValue accessToken, NYBDynamicValue marketplaceToken)
    : NYBUser(std::move(nymbrelUserID), std::move(organizationID), std::move(accessToken)) {
  marketplaceToken_ = std::move(marketplaceToken);
}

}  // namespace nyb
