#include "RunProgram.h"

namespace nyb::test {

ProgramRun runProgram(const std::vector<std::string>& argv,
                      const std::optional<std::vector<std::string>>& environment,
                      std::chrono::milliseconds timeout) {
  return ChildProcess(argv, {true, environment}).finish(timeout);
}

}  // namespace nyb::test
