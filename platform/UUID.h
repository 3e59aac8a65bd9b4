// Universally unique identifiers, as the platform gives them: a new random
// (version 4) UUID in its canonical upper-case string form,
// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F". Callable from any thread.
#pragma once

#include <string>

namespace nyb::platform {

std::string newUUIDString();

}  // namespace nyb::platform
