// A child process for the end-to-end tests (the host programs, a devserver
// inside a network namespace) whose standard output the test reads line by
// line. Killed with SIGKILL if still running when the object goes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace nyb::test {

class ChildProcess {
 public:
  // Starts argv[0] (looked up in PATH when it has no slash).
  explicit ChildProcess(const std::vector<std::string>& argv);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next whole line (without its line feed), or absent when the output
  // ended or the timeout passed first.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout);
  // Lines available now without waiting, plus the rest once the process has
  // ended (after kill or exit).
  std::vector<std::string> drainLines();
  void kill(int signal);
  // Waits for the end; the exit code, or -1 when it did not exit normally.
  int wait();
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string buffer_;
  bool ended_ = false;
};

}  // namespace nyb::test
