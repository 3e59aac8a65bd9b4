// nymbrel-devserver as a child process, for the demo: started on a free
// loopback port, its base URL read from the first line it prints, stopped
// with SIGTERM.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace nymbrel {

class DevServerProcess {
 public:
  // Starts the binary with "--port 0" and the extra arguments and waits (up
  // to the timeout) for its base URL. Its standard error goes to ours when
  // `showLog`, else nowhere. Failure to start is a CommandFailure.
  DevServerProcess(const std::string& binary, const std::vector<std::string>& extraArguments,
                   bool showLog, std::chrono::milliseconds timeout = std::chrono::seconds(30));
  ~DevServerProcess();
  DevServerProcess(const DevServerProcess&) = delete;
  DevServerProcess& operator=(const DevServerProcess&) = delete;

  // "http://127.0.0.1:41873/v1"
  const std::string& baseURL() const { return baseURL_; }
  // Sends SIGTERM and waits; the exit status, or -1 when it did not exit by itself.
  int stop();

 private:
  pid_t pid_ = -1;
  std::string baseURL_;
};

// Where the devserver binary is: `given` when not empty, else next to this
// program (symbolic links to it followed), else on PATH. Absent when none
// exists.
std::optional<std::string> findDevServer(const std::string& given);

}  // namespace nymbrel
