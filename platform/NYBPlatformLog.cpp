#include "NymbrelCore/NYBPlatformLog.h"

#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <utility>

namespace nyb {

namespace {

std::string programName() {
  std::string name = program_invocation_short_name != nullptr ? program_invocation_short_name : "";
  if (name.empty()) {
    std::ifstream comm("/proc/self/comm");
    std::getline(comm, name);
  }
  return name.empty() ? "unknown" : name;
}

void writeAll(int fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    written += static_cast<std::size_t>(n);
  }
}

// "2026-11-21 23:35:30.123 program[pid:tid] text", written in one go so that
// lines from several processes do not interleave.
void writeToStandardError(std::string_view message) {
  static const std::string program = programName();
  const auto now = std::chrono::system_clock::now();
  const auto sinceEpoch = now.time_since_epoch();
  const time_t seconds =
      static_cast<time_t>(std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count());
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000;
  struct tm local {};
  localtime_r(&seconds, &local);
  char prefix[160];
  const int length =
      std::snprintf(prefix, sizeof prefix, "%04d-%02d-%02d %02d:%02d:%02d.%03d %s[%ld:%ld] ",
                    local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                    local.tm_min, local.tm_sec, static_cast<int>(milliseconds), program.c_str(),
                    static_cast<long>(::getpid()), static_cast<long>(::gettid()));
  std::string line(prefix, length > 0 ? std::min<std::size_t>(length, sizeof prefix - 1) : 0);
  line.append(message);
  if (line.empty() || line.back() != '\n') line.push_back('\n');
  writeAll(STDERR_FILENO, line);
}

struct SinkState {
  std::mutex mutex;
  NYBPlatformLogSink sink;  // empty: the default sink
};

SinkState& state() {
  // Never destroyed: threads may still log while the process exits.
  static SinkState* const instance = new SinkState;
  return *instance;
}

// Set while this thread runs a custom sink.
thread_local bool insideSink = false;

}  // namespace

void NYBPlatformLog(std::string_view message) {
  if (insideSink) {
    writeToStandardError(message);
    return;
  }
  SinkState& s = state();
  std::lock_guard lock(s.mutex);
  if (!s.sink) {
    writeToStandardError(message);
    return;
  }
  insideSink = true;
  try {
    s.sink(message);
  } catch (...) {
    // Logging never fails its caller.
  }
  insideSink = false;
}

void NYBSetPlatformLogSink(NYBPlatformLogSink sink) {
  SinkState& s = state();
  NYBPlatformLogSink previous;
  {
    std::lock_guard lock(s.mutex);
    previous = std::exchange(s.sink, std::move(sink));
  }
  // `previous` is destroyed here, outside the lock, in case its captures log.
}

}  // namespace nyb
