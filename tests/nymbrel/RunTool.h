// Test support: runs the real nymbrel binary as a child process and collects
// its exit status and both output streams (bounded wait). The child gets the
// test's environment without any NYMBREL_* variable, plus those given.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "DevServer.h"
#include "support/RunProgram.h"

namespace nyb::test {

using ToolRun = ProgramRun;

ToolRun runTool(const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment = {},
                std::chrono::seconds timeout = std::chrono::seconds(120));

// `arguments` and the options naming the service, the data directory and the user.
std::vector<std::string> withUser(std::vector<std::string> arguments, const std::string& server,
                                  const std::filesystem::path& data,
                                  const std::string& user = kUser,
                                  const std::string& token = kToken);

// Writes a real PNG file (libpng) of the given size; gives its path.
std::string writePng(const std::string& path, unsigned width, unsigned height);

}  // namespace nyb::test
