// NYBError: a failure delivered as a value: a domain, a signed code and a
// user-information dictionary whose "NSLocalizedDescription" entry carries the
// text; further entries carry data ("errorRecords", "error").
//
// Errors are immutable once made and shared through std::shared_ptr, so they
// may cross threads freely (a completion may receive one on another thread).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBObject.h"

namespace nyb {

inline constexpr std::string_view kNYBLocalizedDescriptionKey = "NSLocalizedDescription";

class NYB_EXPORT NYBError : public NYBObject {
  NYB_DECLARE_CLASS(NYBClass)
 public:
  NYBError(std::string domain, std::int64_t code, NYBDictionary userInfo = {});
  static std::shared_ptr<NYBError> errorWithDomain(std::string domain, std::int64_t code,
                                                   NYBDictionary userInfo = {});
  // An error whose user information holds only the localized description.
  static std::shared_ptr<NYBError> errorWithDescription(std::string domain, std::int64_t code,
                                                        std::string description);

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const NYBDictionary& userInfo() const { return userInfo_; }
  // The "NSLocalizedDescription" entry, or the platform's generic text
  // "The operation couldn’t be completed. (<domain> error <code>.)".
  std::string localizedDescription() const;

  std::string description() const override;
  std::size_t hash() const override;
  bool isEqual(const NYBObject& other) const override;

 private:
  std::string domain_;
  std::int64_t code_;
  NYBDictionary userInfo_;
};

}  // namespace nyb
