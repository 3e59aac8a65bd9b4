// Inside the library and its tests only: the base URL without the check that
// NYBSetRequestBaseURL makes, for a test whose development server sits on a
// private address in a network namespace of the test's own making.
#pragma once

#include <string>

namespace nyb::service {

void setRequestBaseURLUnchecked(std::string url);

}  // namespace nyb::service
