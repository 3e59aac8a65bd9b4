// The platform log: the system log to which the library writes its diagnostics.
//
// Every message goes to one sink, called once per message with the message
// text alone. The default sink writes one line per message to standard error
// in the usual shape, local time with milliseconds, program short name,
// process and thread identifiers, then the text:
//   2026-11-21 23:35:30.123 nymbrel[4242:4243] NYBSession: no user
// A host replaces the sink to route messages elsewhere (journald, its own log),
// and tests replace it to capture them.
//
// Any thread may log and replace the sink. Calls of the sink are serialised:
// it is never called by two threads at once, and once
// NYBSetPlatformLogSink() returns, the sink it replaced is no longer running
// and will not be called again. A message that a sink logs itself, on the
// thread that runs it, goes to the default sink instead. A sink must not
// replace the sink; an exception that escapes a sink is dropped.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <functional>
#include <string_view>

namespace nyb {

using NYBPlatformLogSink = std::function<void(std::string_view line)>;

// Writes one message. The text is passed on as it is; the default sink ends
// the line unless the text already ends with a line feed.
NYB_EXPORT void NYBPlatformLog(std::string_view message);

// Installs the sink that receives every message; an empty function restores
// the default sink.
NYB_EXPORT void NYBSetPlatformLogSink(NYBPlatformLogSink sink);

}  // namespace nyb
