#include "DevServerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "Errors.h"

extern char** environ;

namespace nymbrel {

namespace fs = std::filesystem;

DevServerProcess::DevServerProcess(const std::string& binary,
                                   const std::vector<std::string>& extraArguments, bool showLog,
                                   std::chrono::milliseconds timeout) {
  std::vector<std::string> arguments = {binary, "--port", "0"};
  arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  int out[2];
  if (::pipe2(out, O_CLOEXEC) != 0) {
    throw CommandFailure(kExitFailure, std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  if (!showLog) posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  int rc = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  if (rc != 0) {
    ::close(out[0]);
    pid_ = -1;
    throw CommandFailure(kExitFailure, "cannot start " + binary + ": " + std::strerror(rc));
  }

  // The first line is the base URL; wait for it, but not forever.
  std::string line;
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
    pollfd ready{out[0], POLLIN, 0};
    if (::poll(&ready, 1, 100) <= 0) continue;
    char buffer[256];
    auto n = ::read(out[0], buffer, sizeof buffer);
    if (n <= 0) break;
    line.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(out[0]);
  line = line.substr(0, line.find('\n'));
  if (!line.starts_with("http://")) {
    int status = stop();
    std::ostringstream message;
    message << binary << " did not start";
    if (status > 0) message << " (exit status " << status << ")";
    throw CommandFailure(kExitFailure, message.str());
  }
  baseURL_ = line;
}

DevServerProcess::~DevServerProcess() { stop(); }

int DevServerProcess::stop() {
  if (pid_ <= 0) return -1;
  ::kill(pid_, SIGTERM);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::optional<std::string> findDevServer(const std::string& given) {
  auto executable = [](const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
  };
  if (!given.empty()) {
    if (executable(given)) return given;
    return std::nullopt;
  }
  // Never a path this build knew: an installed copy must not start a stale
  // devserver from a build tree, or find one only while that tree exists.
  // The build links one beside nymbrel, as the installation puts it.
  std::vector<fs::path> candidates;
  std::error_code error;
  fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (!error) candidates.push_back(self.parent_path() / "nymbrel-devserver");
  if (const char* path = std::getenv("PATH")) {
    std::stringstream directories(path);
    std::string directory;
    while (std::getline(directories, directory, ':')) {
      if (!directory.empty()) candidates.push_back(fs::path(directory) / "nymbrel-devserver");
    }
  }
  for (const auto& candidate : candidates) {
    if (executable(candidate)) return candidate.string();
  }
  return std::nullopt;
}

}  // namespace nymbrel
