// The library's own diagnostics: a message formatted with the formatting
// library's "{}" placeholders, written to the platform log as one line.
//   nyb::log("Caught decoding exception: {}", reason);
// Callable from any thread.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "NymbrelCore/NYBPlatformLog.h"

namespace nyb {

template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  NYBPlatformLog(fmt::format(format, std::forward<Args>(args)...));
}

// How much of text that came from elsewhere (an answer's body) a log line
// shows: a hostile or broken server must not fill the log.
inline constexpr std::size_t kLoggedTextBytes = 1024;

// The text whole when it fits; otherwise its first kLoggedTextBytes at most,
// cut between UTF-8 characters, then "... (<length> bytes)".
inline std::string shortenedForLog(std::string_view text) {
  if (text.size() <= kLoggedTextBytes) return std::string(text);
  std::size_t cut = kLoggedTextBytes;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return fmt::format("{}... ({} bytes)", text.substr(0, cut), text.size());
}

}  // namespace nyb
