// NYBLogging and NYBLog: the logging switch and function offered to
// applications and add-on modules.
//
// Both are deliberately inert. The one shared NYBLogging only stores its two
// settings (whether logging is wanted, and a set of flags whose values the
// library does not define); NYBLog ignores its arguments and prints nothing.
// The library's own diagnostics go to the platform log unconditionally and
// never consult the switch. sharedInstance() is created exactly once, also
// under concurrent first calls; the settings are plain values, so setting them
// from several threads at once is not supported.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>

#include "NymbrelCore/NYBObject.h"

namespace nyb {

class NYB_EXPORT NYBLogging : public NYBObject {
 public:
  static const NYBClass& staticClass();
  const NYBClass& classObject() const override { return staticClass(); }

  static NYBLogging& sharedInstance();

  bool isEnabled() const { return isEnabled_; }
  void setIsEnabled(bool isEnabled) { isEnabled_ = isEnabled; }
  std::uint64_t log() const { return log_; }
  void setLog(std::uint64_t log) { log_ = log; }

 private:
  NYBLogging() = default;

  bool isEnabled_ = false;
  std::uint64_t log_ = 0;
};

// Does nothing: it neither reads the switch nor writes anything. The format
// and the arguments that follow it, as for the platform log, are ignored.
NYB_EXPORT void NYBLog(const char* format, ...);

}  // namespace nyb
