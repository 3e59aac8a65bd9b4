// NYBSession: the library's single entry point for an application.
//
// For now it carries only the library's identity, as class-level operations
// of its class object NYBSessionClass: libraryVersion() is the short version
// string of the library's own bundle information, and libraryDescription() the
// one-line description of the library written to the platform log when the
// shared session starts. Both hold no state and may be called from any thread.
#pragma once

#include <optional>
#include <string>

#include "NymbrelCore/NYBObject.h"

namespace nyb {

class NYBSessionClass : public NYBClass {
 public:
  using NYBClass::NYBClass;

  // The "CFBundleShortVersionString" of the library's bundle information,
  // found by the library's bundle identifier; absent when the bundle or the
  // key is missing.
  virtual std::optional<std::string> libraryVersion() const;
  // "NymbrelMobile - Version <libraryVersion>", "(null)" standing for an
  // absent version.
  virtual std::string libraryDescription() const;
};

class NYBSession : public NYBObject {
  NYB_DECLARE_CLASS(NYBSessionClass)
 public:
  static std::optional<std::string> libraryVersion() { return staticClass().libraryVersion(); }
  static std::string libraryDescription() { return staticClass().libraryDescription(); }
};

}  // namespace nyb
