// The session's class object: the library's version and description.
#include <fmt/format.h>

#include "NymbrelCore/NYBSession.h"
#include "platform/Device.h"

namespace nyb {

const NYBSessionClass& NYBSession::staticClass() {
  static const NYBSessionClass sessionClass("NYBSession", &NYBObject::staticClass());
  return sessionClass;
}

std::optional<std::string> NYBSessionClass::libraryVersion() const {
  return platform::libraryShortVersion();
}

std::string NYBSessionClass::libraryDescription() const {
  std::optional<std::string> version = libraryVersion();
  return fmt::format("NymbrelMobile - Version {}", version ? *version : "(null)");
}

}  // namespace nyb
