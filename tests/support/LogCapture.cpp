#include "support/LogCapture.h"

#include <algorithm>
#include <mutex>

#include "NymbrelCore/NYBPlatformLog.h"

namespace nyb::test {

struct LogCapture::State {
  mutable std::mutex mutex;
  std::vector<std::string> lines;
};

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  NYBSetPlatformLogSink([state = state_](std::string_view line) {
    std::lock_guard lock(state->mutex);
    state->lines.emplace_back(line);
  });
}

LogCapture::~LogCapture() { NYBSetPlatformLogSink(nullptr); }

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard lock(state_->mutex);
  return state_->lines;
}

bool LogCapture::contains(std::string_view line) const {
  std::lock_guard lock(state_->mutex);
  return std::find(state_->lines.begin(), state_->lines.end(), line) != state_->lines.end();
}

void LogCapture::clear() {
  std::lock_guard lock(state_->mutex);
  state_->lines.clear();
}

}  // namespace nyb::test
