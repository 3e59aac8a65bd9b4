// The library's own diagnostics: a message formatted with the formatting
// library's "{}" placeholders, written to the platform log as one line.
//   nyb::log("Caught decoding exception: {}", reason);
// Callable from any thread.
#pragma once

#include <fmt/format.h>

#include <utility>

#include "NymbrelCore/NYBPlatformLog.h"

namespace nyb {

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  NYBPlatformLog(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace nyb
