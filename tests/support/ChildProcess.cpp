#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace nyb::test {

ChildProcess::ChildProcess(const std::vector<std::string>& argv) : ChildProcess(argv, Options{}) {}

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const Options& options) {
  std::vector<std::string> strings[2] = {argv, options.environment.value_or(argv)};
  std::vector<char*> pointers[2];
  for (int i : {0, 1}) {
    for (auto& string : strings[i]) pointers[i].push_back(string.data());
    pointers[i].push_back(nullptr);
  }
  int outFDs[2] = {-1, -1}, errFDs[2] = {-1, -1};
  if (::pipe2(outFDs, O_CLOEXEC) != 0 ||
      (options.captureStderr && ::pipe2(errFDs, O_CLOEXEC) != 0)) {
    throw std::runtime_error("pipe failed");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outFDs[1], STDOUT_FILENO);
  if (options.captureStderr) posix_spawn_file_actions_adddup2(&actions, errFDs[1], STDERR_FILENO);
  const int rc = ::posix_spawnp(&pid_, pointers[0][0], &actions, nullptr, pointers[0].data(),
                                options.environment ? pointers[1].data() : environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(outFDs[1]);
  if (errFDs[1] >= 0) ::close(errFDs[1]);
  out_ = outFDs[0];
  err_ = errFDs[0];
  if (rc != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot start " + argv[0]);
  }
}

ChildProcess::~ChildProcess() {
  kill(SIGKILL);
  wait();
  closeOutput();
  if (err_ >= 0) ::close(err_);
}

void ChildProcess::pump(int& fd, std::string& sink, int waitMilliseconds) {
  pollfd ready{fd, POLLIN, 0};
  if (fd < 0 || ::poll(&ready, 1, waitMilliseconds) <= 0) return;
  char chunk[4096];
  const ssize_t n = ::read(fd, chunk, sizeof chunk);
  if (n > 0) sink.append(chunk, static_cast<std::size_t>(n));
  if (n <= 0) ::close(std::exchange(fd, -1));
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
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (out_ < 0 || left.count() <= 0) return std::nullopt;
    pump(out_, buffer_, static_cast<int>(left.count()));
  }
}

ChildProcess::Output ChildProcess::finish(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while ((out_ >= 0 || err_ >= 0) && std::chrono::steady_clock::now() < deadline) {
    // Short waits on each stream, so that neither pipe fills while the other is read.
    pump(out_, buffer_, 50);
    pump(err_, errBuffer_, 50);
  }
  const bool ended = out_ < 0 && err_ < 0;
  if (!ended) kill(SIGKILL);
  const int status = wait();
  return {ended ? status : -1, std::move(buffer_), std::move(errBuffer_)};
}

void ChildProcess::closeOutput() {
  if (out_ >= 0) ::close(std::exchange(out_, -1));
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
