#include "NymbrelCore/NYBError.h"

#include "platform/Hashing.h"

namespace nyb {

const NYBClass& NYBError::staticClass() {
  static const NYBClass errorClass("NSError", &NYBObject::staticClass());
  return errorClass;
}

NYBError::NYBError(std::string domain, std::int64_t code, NYBDictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

std::shared_ptr<NYBError> NYBError::errorWithDomain(std::string domain, std::int64_t code,
                                                    NYBDictionary userInfo) {
  return std::make_shared<NYBError>(std::move(domain), code, std::move(userInfo));
}

std::shared_ptr<NYBError> NYBError::errorWithDescription(std::string domain, std::int64_t code,
                                                         std::string description) {
  NYBDictionary info;
  info.set(kNYBLocalizedDescriptionKey, std::move(description));
  return errorWithDomain(std::move(domain), code, std::move(info));
}

std::string NYBError::localizedDescription() const {
  const NYBDynamicValue& text = userInfo_[kNYBLocalizedDescriptionKey];
  if (text.isString()) return std::string(text.stringView());
  return "The operation couldn\u2019t be completed. (" + domain_ + " error " +
         std::to_string(code_) + ".)";
}

std::string NYBError::description() const {
  std::string out = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
                    localizedDescription() + "\"";
  if (!userInfo_.empty()) out += " UserInfo=" + userInfo_.description();
  return out;
}

std::size_t NYBError::hash() const {
  return hashing::bytes(domain_) ^ static_cast<std::size_t>(code_);
}

bool NYBError::isEqual(const NYBObject& other) const {
  if (this == &other) return true;
  const auto* e = dynamic_cast<const NYBError*>(&other);
  return e != nullptr && e->domain_ == domain_ && e->code_ == code_ && e->userInfo_ == userInfo_;
}

}  // namespace nyb
