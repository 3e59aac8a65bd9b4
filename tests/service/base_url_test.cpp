// The base URL comes from the build or from the host's explicit call, never
// from the process's environment, and plain http only reaches this machine.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBException.h"

namespace nyb {
namespace {

TEST(RequestBaseURL, BuildValueUntilTheHostSaysOtherwiseAndNeverClearTextOffThisMachine) {
  const std::string before = kNYBRequestBaseURLString;
  ::setenv("NYMBREL_BASE_URL", "http://attacker.example/v1", 1);
  EXPECT_EQ(kNYBRequestBaseURLString.value(), before);
  EXPECT_NE(before, "http://attacker.example/v1");

  for (const char* accepted :
       {"http://127.0.0.1:41873/v1", "http://127.8.9.10/v1", "http://localhost:8080/v1",
        "http://[::1]:9/v1", "https://api.example.org/v1"}) {
    EXPECT_NO_THROW(NYBSetRequestBaseURL(accepted)) << accepted;
    EXPECT_EQ(std::string(kNYBRequestBaseURLString), accepted);
  }
  for (const char* refused : {"http://10.0.0.7/v1", "http://128.0.0.1/v1", "http://127.example/v1",
                              "ftp://127.0.0.1/v1", "not a url", ""}) {
    EXPECT_THROW(NYBSetRequestBaseURL(refused), NYBInvalidArgumentException) << refused;
    EXPECT_EQ(kNYBRequestBaseURLString.value(), "https://api.example.org/v1") << refused;
  }
  ::unsetenv("NYMBREL_BASE_URL");
  NYBSetRequestBaseURL(before);
}

}  // namespace
}  // namespace nyb
