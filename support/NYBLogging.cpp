#include "NymbrelCore/NYBLogging.h"

namespace nyb {

const NYBClass& NYBLogging::staticClass() {
  static const NYBClass loggingClass("NYBLogging", &NYBObject::staticClass());
  return loggingClass;
}

NYBLogging& NYBLogging::sharedInstance() {
  // Never destroyed, so that it outlives every caller.
  static NYBLogging* shared = new NYBLogging;
  return *shared;
}

void NYBLog(const char* /*format*/, ...) {}

}  // namespace nyb
