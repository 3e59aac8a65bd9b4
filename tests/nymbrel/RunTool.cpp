#include "RunTool.h"

#include <cstring>
#include <fstream>

#include "DevServer.h"
#include "support/ChildProcess.h"

extern char** environ;

namespace nyb::test {

ToolRun runTool(const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment,
                std::chrono::seconds timeout) {
  std::vector<std::string> argv = {NYB_NYMBREL_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  ChildProcess::Options options{true, std::vector<std::string>{}};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "NYMBREL_", 8) != 0) options.environment->emplace_back(*entry);
  }
  for (const auto& [name, value] : environment) options.environment->push_back(name + "=" + value);
  auto output = ChildProcess(argv, options).finish(timeout);
  return {output.status, std::move(output.out), std::move(output.err)};
}

std::string writePng(const std::string& path, unsigned width, unsigned height) {
  std::ofstream(path, std::ios::binary) << makePng(width, height);
  return path;
}

}  // namespace nyb::test
