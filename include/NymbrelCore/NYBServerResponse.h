// NYBServerResponse: the service's plain answer object: the answer to a
// delete, and each entry of an "errors" array that the API client turns into
// an error.
//
// Its key map is { code: "code", message: "message", errors: "errors",
// activityID: "activity_id" }. Values are kept as the service sends them: an
// array or object under "errors" stays an array or object. A plain model value
// owned by the caller; shared through std::shared_ptr, used from one thread at
// a time.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBModel.h"

namespace nyb {

class NYB_EXPORT NYBServerResponse : public NYBModel {
  NYB_DECLARE_MODEL(NYBServerResponse, NYBModelClass)
 public:
  NYBServerResponse() = default;

  const NYBDynamicValue& code() const { return code_; }
  void setCode(NYBDynamicValue code) { code_ = std::move(code); }
  const NYBDynamicValue& message() const { return message_; }
  void setMessage(NYBDynamicValue message) { message_ = std::move(message); }
  const NYBDynamicValue& errors() const { return errors_; }
  void setErrors(NYBDynamicValue errors) { errors_ = std::move(errors); }
  // The activity ID of the record that the answer is about.
  const NYBDynamicValue& activityID() const { return activityID_; }
  void setActivityID(NYBDynamicValue activityID) { activityID_ = std::move(activityID); }

 private:
  NYBDynamicValue code_;
  NYBDynamicValue message_;
  NYBDynamicValue errors_;
  NYBDynamicValue activityID_;
};

}  // namespace nyb
