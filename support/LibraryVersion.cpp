#include <fmt/format.h>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Device.h"

// The version symbols every framework of the platform exports.
extern "C" __attribute__((visibility("default"))) const double NymbrelCoreVersionNumber = 1.0;
extern "C" __attribute__((visibility("default"))) const unsigned char NymbrelCoreVersionString[] =
    "@(#)PROGRAM:NymbrelCore  PROJECT:NymbrelCore-1\n";

namespace nyb {

const NYBSessionClass& NYBSession::staticClass() {
  static const NYBSessionClass sessionClass("NYBSession", &NYBObject::staticClass());
  return sessionClass;
}

std::optional<std::string> NYBSessionClass::libraryVersion() const {
  std::optional<NYBDictionary> info =
      platform::bundleInfoDictionary(platform::libraryBundleIdentifier());
  if (!info) return std::nullopt;
  return (*info)["CFBundleShortVersionString"].string();
}

std::string NYBSessionClass::libraryDescription() const {
  std::optional<std::string> version = libraryVersion();
  return fmt::format("NymbrelMobile - Version {}", version ? *version : "(null)");
}

}  // namespace nyb
