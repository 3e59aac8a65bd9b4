#include "RunTool.h"

#include <cstring>
#include <fstream>

#include "DevServer.h"
#include "support/RunProgram.h"

extern char** environ;

namespace nyb::test {

ToolRun runTool(const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment,
                std::chrono::seconds timeout) {
  std::vector<std::string> argv = {NYB_NYMBREL_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environmentStrings;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "NYMBREL_", 8) != 0) environmentStrings.emplace_back(*entry);
  }
  for (const auto& [name, value] : environment) environmentStrings.push_back(name + "=" + value);
  return runProgram(argv, environmentStrings, timeout);
}

std::string writePng(const std::string& path, unsigned width, unsigned height) {
  std::ofstream(path, std::ios::binary) << makePng(width, height);
  return path;
}

}  // namespace nyb::test
