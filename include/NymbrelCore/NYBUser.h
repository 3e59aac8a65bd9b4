// NYBUser: the credentials under which every request to the service is made:
// the service's user identifier, the organisation, the access token and an
// optional second token that no request of the library uses.
//
// Immutable once made (a user is changed by making a new one). It has no key
// map, so it never travels in the service's JSON; it is kept with the session
// state through keyed archiving of its four properties. Shared through
// std::shared_ptr; safe to read from any thread once made.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBModel.h"

namespace nyb {

class NYB_EXPORT NYBUser : public NYBModel {
  NYB_DECLARE_MODEL(NYBUser, NYBModelClass)
 public:
  // An empty user: every field absent. The request builders refuse it.
  NYBUser() = default;
  NYBUser(NYBDynamicValue nymbrelUserID, NYBDynamicValue organizationID,
          NYBDynamicValue accessToken);
  NYBUser(NYBDynamicValue nymbrelUserID, NYBDynamicValue organizationID,
          NYBDynamicValue accessToken, NYBDynamicValue marketplaceToken);

  // The {uid} of every request path.
  const NYBDynamicValue& nymbrelUserID() const { return nymbrelUserID_; }
  // The {org} of every request path.
  const NYBDynamicValue& organizationID() const { return organizationID_; }
  // Sent as the token header, the "authentication_token" body key and query item.
  const NYBDynamicValue& accessToken() const { return accessToken_; }
  // Kept, never sent.
  const NYBDynamicValue& marketplaceToken() const { return marketplaceToken_; }

 private:
  NYBDynamicValue nymbrelUserID_;
  NYBDynamicValue organizationID_;
  NYBDynamicValue accessToken_;
  NYBDynamicValue marketplaceToken_;
};

}  // namespace nyb
