// A program started as a child process for the tests: the host programs, the nymbrel tool and
// the devserver all start through it.
//
// Its standard output (and, when asked, its standard error) comes back through pipes: read line
// by line while it runs, or whole once it ends. The child gets the test's environment, or exactly
// the one given. It is killed with SIGKILL if still running when the object goes. One thread
// uses an object at a time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace nyb::test {

class ChildProcess {
 public:
  struct Options {
    bool captureStderr = false;
    // "NAME=value" entries replacing the test's environment.
    std::optional<std::vector<std::string>> environment;
  };
  // What a child left behind once it ended.
  struct Output {
    int status = -1;  // the exit code; -1 when it was killed or did not end in time
    std::string out;
    std::string err;
  };

  // Starts argv[0] (looked up in PATH when it has no slash).
  explicit ChildProcess(const std::vector<std::string>& argv);
  ChildProcess(const std::vector<std::string>& argv, const Options& options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next whole line (without its line feed), or absent when the output
  // ended or the timeout passed first.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout);
  // Reads every stream to its end and waits for the exit; past the timeout the child is killed.
  Output finish(std::chrono::milliseconds timeout);
  // Stops reading the standard output; the child's later writes to it fail.
  void closeOutput();
  void kill(int signal);
  // Waits for the end; the exit code, or -1 when it did not exit normally.
  int wait();
  pid_t pid() const { return pid_; }

 private:
  // Reads what one stream has within the wait; closes it (fd -1) once it ended.
  void pump(int& fd, std::string& sink, int waitMilliseconds);

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string buffer_;
  std::string errBuffer_;
};

}  // namespace nyb::test
