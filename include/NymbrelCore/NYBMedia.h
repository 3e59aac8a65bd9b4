// NYBMedia: the service's answer to an image upload, an identifier and the
// URL where the image can be fetched (reading it needs the user's token).
//
// Its key map is { mediaID: "id", mediaURL: "url" }. A plain model value made
// from the service's answer and owned by the caller; shared through
// std::shared_ptr, used from one thread at a time.
#pragma once

#include "NymbrelCore/NYBModel.h"

namespace nyb {

class NYBMedia : public NYBModel {
  NYB_DECLARE_MODEL(NYBMedia, NYBModelClass)
 public:
  NYBMedia() = default;

  const NYBDynamicValue& mediaID() const { return mediaID_; }
  void setMediaID(NYBDynamicValue mediaID) { mediaID_ = std::move(mediaID); }
  const NYBDynamicValue& mediaURL() const { return mediaURL_; }
  void setMediaURL(NYBDynamicValue mediaURL) { mediaURL_ = std::move(mediaURL); }

 private:
  NYBDynamicValue mediaID_;
  NYBDynamicValue mediaURL_;
};

}  // namespace nyb
