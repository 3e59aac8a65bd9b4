// NYBMedia: the service's answer to an image upload, an identifier and the
// URL where the image can be fetched (reading it needs the user's token).
//
// Its key map is { mediaID: "id", mediaURL: "url" }. A plain model value made
// from the service's answer and owned by the caller; shared through
// std::shared_ptr, used from one thread at a time. authenticatedURL() reads
// the shared session's user, so it is called on the main thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <optional>

#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBURL.h"

namespace nyb {

class NYB_EXPORT NYBMedia : public NYBModel {
  NYB_DECLARE_MODEL(NYBMedia, NYBModelClass)
 public:
  NYBMedia() = default;

  const NYBDynamicValue& mediaID() const { return mediaID_; }
  void setMediaID(NYBDynamicValue mediaID) { mediaID_ = std::move(mediaID); }
  const NYBDynamicValue& mediaURL() const { return mediaURL_; }
  void setMediaURL(NYBDynamicValue mediaURL) { mediaURL_ = std::move(mediaURL); }

  // mediaURL with its query replaced by the one item "authentication_token"
  // holding the access token of the shared session's user now (the value
  // percent-encoded as the platform encodes a query item: everything outside
  // the query characters, and "&" and "=", is escaped; "+" stays as it is).
  // Absent without mediaURL, without a session user or token, or when mediaURL
  // does not parse as a URL. A fragment is kept.
  std::optional<NYBURL> authenticatedURL() const;

 private:
  NYBDynamicValue mediaID_;
  NYBDynamicValue mediaURL_;
};

}  // namespace nyb
