#include "RunProgram.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

extern char** environ;

namespace nyb::test {

ProgramRun runProgram(const std::vector<std::string>& argv,
                      const std::optional<std::vector<std::string>>& environment,
                      std::chrono::milliseconds timeout) {
  auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> list;
    for (auto& entry : strings) list.push_back(entry.data());
    list.push_back(nullptr);
    return list;
  };
  std::vector<std::string> argumentStrings = argv;
  std::vector<char*> arguments = pointers(argumentStrings);
  std::vector<std::string> environmentStrings = environment.value_or(std::vector<std::string>());
  std::vector<char*> envp = pointers(environmentStrings);

  int out[2], err[2];
  if (pipe(out) != 0 || pipe(err) != 0) throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  posix_spawn_file_actions_addclose(&actions, err[0]);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(),
                       environment ? envp.data() : environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  if (rc != 0) {
    close(out[0]);
    close(err[0]);
    throw std::runtime_error("cannot start " + argv.at(0));
  }

  ProgramRun run;
  pollfd streams[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* sinks[2] = {&run.out, &run.err};
  int open = 2;
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (open > 0 && std::chrono::steady_clock::now() < deadline) {
    if (poll(streams, 2, 100) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (streams[i].fd < 0 || (streams[i].revents & (POLLIN | POLLHUP)) == 0) continue;
      char buffer[4096];
      auto n = read(streams[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else {
        close(streams[i].fd);
        streams[i].fd = -1;
        --open;
      }
    }
  }
  bool timedOut = open > 0;
  for (auto& stream : streams) {
    if (stream.fd >= 0) close(stream.fd);
  }
  if (timedOut) kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  run.status = !timedOut && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

}  // namespace nyb::test
