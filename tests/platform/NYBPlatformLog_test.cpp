#include "NymbrelCore/NYBPlatformLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/Log.h"
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

// Lines from many threads arrive whole and once, and a replaced sink is never called again.
TEST(NYBPlatformLogTest, ManyThreadsLogWhileTheSinkIsReplaced) {
  std::atomic<bool> replaced{false}, stop{false};
  std::atomic<int> lateCalls{0}, calls{0};
  NYBSetPlatformLogSink([&](std::string_view) {
    if (replaced) ++lateCalls;
    ++calls;
  });
  std::thread busy([&] {
    while (!stop) NYBPlatformLog("busy");
  });
  while (calls < 50) std::this_thread::yield();
  std::set<std::string> lines;
  {
    test::LogCapture capture;  // replaces the sink above while the thread logs
    replaced = true;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < 200; ++i) log("thread {} message {}", t, i);
      });
    }
    for (auto& thread : threads) thread.join();
    stop = true;
    busy.join();
    for (const auto& line : capture.lines()) {
      EXPECT_TRUE(line == "busy" || lines.insert(line).second) << line;
    }
  }
  EXPECT_EQ(lines.size(), 800U);
  EXPECT_EQ(lines.count("thread 3 message 199"), 1U);
  EXPECT_EQ(lateCalls, 0);
}

}  // namespace
}  // namespace nyb
