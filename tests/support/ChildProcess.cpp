#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

extern char** environ;

namespace nyb::test {

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
  std::vector<std::string> arguments = argv;
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  int pipeFDs[2];
  if (::pipe2(pipeFDs, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFDs[1], STDOUT_FILENO);
  const int rc = ::posix_spawnp(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFDs[1]);
  if (rc != 0) {
    ::close(pipeFDs[0]);
    throw std::runtime_error("cannot start " + arguments[0]);
  }
  out_ = pipeFDs[0];
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    wait();
  }
  if (out_ >= 0) ::close(out_);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const std::size_t end = buffer_.find('\n');
    if (end != std::string::npos) {
      std::string line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return line;
    }
    if (ended_) return std::nullopt;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd ready{out_, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
    char chunk[4096];
    const ssize_t n = ::read(out_, chunk, sizeof chunk);
    if (n <= 0) {
      ended_ = true;
    } else {
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
  }
}

std::vector<std::string> ChildProcess::drainLines() {
  std::vector<std::string> lines;
  while (auto line = readLine(std::chrono::milliseconds(0))) lines.push_back(*line);
  if (pid_ <= 0) {
    while (auto line = readLine(std::chrono::seconds(5))) lines.push_back(*line);
  }
  return lines;
}

void ChildProcess::kill(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
}

int ChildProcess::wait() {
  if (pid_ <= 0) return -1;
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace nyb::test
