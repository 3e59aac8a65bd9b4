// Captures the platform log for a test: while the object lives, every message
// is kept (the text alone, without date or program prefix) instead of being
// written to standard error; on destruction the default sink is back.
// Messages may arrive from any thread; lines() and contains() may be called
// from any thread while they do.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "NymbrelCore/NYBPlatformLog.h"

namespace nyb::test {

class LogCapture {
 public:
  LogCapture() {
    NYBSetPlatformLogSink([state = state_](std::string_view line) {
      std::lock_guard lock(state->mutex);
      state->lines.emplace_back(line);
    });
  }
  ~LogCapture() { NYBSetPlatformLogSink(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The messages so far, in the order they were logged.
  std::vector<std::string> lines() const {
    std::lock_guard lock(state_->mutex);
    return state_->lines;
  }
  // Whether one message was exactly `line`.
  bool contains(std::string_view line) const {
    const auto all = lines();
    return std::find(all.begin(), all.end(), line) != all.end();
  }
  void clear() {
    std::lock_guard lock(state_->mutex);
    state_->lines.clear();
  }

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::string> lines;
  };
  // Shared with the sink, which may outlive a message in flight.
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace nyb::test
