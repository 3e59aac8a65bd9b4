// Captures the platform log for a test: while the object lives, every message
// is kept (the text alone, without date or program prefix) instead of being
// written to standard error; on destruction the default sink is back.
// Messages may arrive from any thread; lines() and contains() may be called
// from any thread while they do.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nyb::test {

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The messages so far, in the order they were logged.
  std::vector<std::string> lines() const;
  // Whether one message was exactly `line`.
  bool contains(std::string_view line) const;
  void clear();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace nyb::test
