#include "RunTool.h"

#include <cstring>
#include <fstream>

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

std::vector<std::string> withUser(std::vector<std::string> arguments, const std::string& server,
                                  const std::filesystem::path& data, const std::string& user,
                                  const std::string& token) {
  arguments.insert(arguments.end(), {"--server", server, "--data-dir", data.string(), "--org", kOrg,
                                     "--user", user, "--token", token});
  return arguments;
}

std::string writePng(const std::string& path, unsigned width, unsigned height) {
  std::ofstream(path, std::ios::binary) << makePng(width, height);
  return path;
}

}  // namespace nyb::test
