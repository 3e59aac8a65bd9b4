// Test support: runs the real nymbrel binary as a child process and collects
// its exit status and both output streams (bounded wait). The child gets the
// test's environment without any NYMBREL_* variable, plus those given.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "support/RunProgram.h"

namespace nyb::test {

using ToolRun = ProgramRun;

ToolRun runTool(const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment = {},
                std::chrono::seconds timeout = std::chrono::seconds(120));

// Writes a real PNG file (libpng) of the given size; gives its path.
std::string writePng(const std::string& path, unsigned width, unsigned height);

}  // namespace nyb::test
