// Runs a program to its end as a child process and collects its exit status
// and both output streams. The wait is bounded: a child still running at the
// time-out is killed and reported as such, so a test of a program that
// should have exited fails instead of hanging.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace nyb::test {

using ProgramRun = ChildProcess::Output;  // status -1 when killed or timed out

// argv[0] is the program's path. `environment` holds "NAME=value" entries;
// absent: the test's own environment.
inline ProgramRun runProgram(
    const std::vector<std::string>& argv,
    const std::optional<std::vector<std::string>>& environment = std::nullopt,
    std::chrono::milliseconds timeout = std::chrono::seconds(120)) {
  return ChildProcess(argv, {true, environment}).finish(timeout);
}

}  // namespace nyb::test
