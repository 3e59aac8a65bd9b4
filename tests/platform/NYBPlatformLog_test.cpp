#include "NymbrelCore/NYBPlatformLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace nyb {
namespace {

TEST(NYBPlatformLogTest, TheDefaultSinkWritesOneDatedLinePerMessageToStandardError) {
  { test::LogCapture capture; }  // and restores the default on destruction
  testing::internal::CaptureStderr();
  NYBPlatformLog("first message");
  NYBPlatformLog("second message\n");
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_THAT(written,
              testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                    "\\.[0-9]{3} platform_tests\\[[0-9]+:[0-9]+\\] "
                                    "first message\n"
                                    "[-0-9]{10} [:.0-9]{12} platform_tests\\[[0-9]+:[0-9]+\\] "
                                    "second message\n"));

  // A sink that logs does not deadlock: its own line goes to standard error.
  std::vector<std::string> seen;
  NYBSetPlatformLogSink([&](std::string_view line) {
    seen.emplace_back(line);
    NYBPlatformLog("from inside the sink");
  });
  testing::internal::CaptureStderr();
  NYBPlatformLog("outer");
  const std::string inner = testing::internal::GetCapturedStderr();
  NYBSetPlatformLogSink(nullptr);
  EXPECT_EQ(seen, std::vector<std::string>{"outer"});
  EXPECT_THAT(inner, testing::HasSubstr("] from inside the sink\n"));
}

}  // namespace
}  // namespace nyb
