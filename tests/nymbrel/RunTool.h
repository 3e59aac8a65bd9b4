// Test support: runs the real nymbrel binary as a child process and collects
// its exit status and both output streams (bounded wait). The child gets the
// test's environment without any NYMBREL_* variable, plus those given.
#pragma once

#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "DevServer.h"
#include "support/RunProgram.h"

extern char** environ;

namespace nyb::test {

using ToolRun = ProgramRun;

inline ToolRun runTool(const std::vector<std::string>& arguments,
                       const std::map<std::string, std::string>& environment = {},
                       std::chrono::seconds timeout = std::chrono::seconds(120)) {
  std::vector<std::string> argv = {NYB_NYMBREL_PATH}, environmentStrings;
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "NYMBREL_", 8) != 0) environmentStrings.emplace_back(*entry);
  }
  for (const auto& [name, value] : environment) environmentStrings.push_back(name + "=" + value);
  return runProgram(argv, environmentStrings, timeout);
}

// `arguments` and the options naming the service, the data directory and the user.
inline std::vector<std::string> withUser(std::vector<std::string> arguments,
                                         const std::string& server,
                                         const std::filesystem::path& data,
                                         const std::string& user = kUser,
                                         const std::string& token = kToken) {
  arguments.insert(arguments.end(), {"--server", server, "--data-dir", data.string(), "--org", kOrg,
                                     "--user", user, "--token", token});
  return arguments;
}

// Writes a real PNG file (libpng) of the given size; gives its path.
inline std::string writePng(const std::string& path, unsigned width, unsigned height) {
  std::ofstream(path, std::ios::binary) << makePng(width, height);
  return path;
}

}  // namespace nyb::test
