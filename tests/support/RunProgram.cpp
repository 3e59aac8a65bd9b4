#include "RunProgram.h"

#include "ChildProcess.h"

namespace nyb::test {

ProgramRun runProgram(const std::vector<std::string>& argv,
                      const std::optional<std::vector<std::string>>& environment,
                      std::chrono::milliseconds timeout) {
  ChildProcess::Options options{true, environment};
  ChildProcess::Output output = ChildProcess(argv, options).finish(timeout);
  return {output.status, std::move(output.out), std::move(output.err)};
}

}  // namespace nyb::test
