// What a host sets up or leaves at the default: where the library keeps its files (with which
// modes, replaced atomically), the background-task delegate and the log sink.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "NymbrelCore/NYBApplication.h"
#include "NymbrelCore/NYBDocuments.h"
#include "NymbrelCore/NYBPlatformLog.h"
#include "platform/DurableFile.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace nyb {
namespace {

namespace fs = std::filesystem;

unsigned modeOf(const fs::path& path) {
  return static_cast<unsigned>(fs::status(path).permissions());
}

// Sets (or, with null, unsets) an environment variable for the scope.
struct EnvOverride {
  EnvOverride(const char* name, const char* value) : name(name) {
    if (const char* old = std::getenv(name)) before = old;
    set(value);
  }
  ~EnvOverride() { set(before ? before->c_str() : nullptr); }
  void set(const char* value) { value ? ::setenv(name, value, 1) : ::unsetenv(name); }
  const char* name;
  std::optional<std::string> before;
};

TEST(Documents, TheDefaultFollowsTheDataHomeAndIsMadePrivateOnFirstUse) {
  test::TempDir temp;
  const std::string home = (temp.path() / "home").string();
  EnvOverride homeOverride("HOME", home.c_str());
  EnvOverride noDataHome("XDG_DATA_HOME", nullptr);
  const std::string local = home + "/.local/share/platform_tests";
  for (const auto& [dataHome, expected] : std::vector<std::pair<const char*, std::string>>{
           {"/srv/data", "/srv/data/platform_tests"},
           {"relative/data", local},  // not absolute: ignored
           {nullptr, local}}) {
    EnvOverride dataHomeOverride("XDG_DATA_HOME", dataHome);
    EXPECT_EQ(NYBDocuments::defaultDocumentsDirectory(), expected);
  }

  const fs::path documents = temp.path() / "app" / "Documents";
  NYBDocuments::setDocumentsDirectory(documents.string());
  EXPECT_EQ(NYBDocuments::documentsDirectory(), documents.string());
  EXPECT_EQ(modeOf(documents), 0700U);
  // Without a host setting, the default location again.
  NYBDocuments::setDocumentsDirectory("");
  EXPECT_EQ(NYBDocuments::documentsDirectory(), local);
  EXPECT_EQ(modeOf(local), 0700U);
}

TEST(DurableFile, ReplacesByRenameWithPrivateModeAndFailuresLeaveWhatWasThere) {
  test::TempDir temp;
  const fs::path file = temp.path() / "sessionData";
  const mode_t oldMask = ::umask(0);  // the most permissive umask must not widen the mode
  std::error_code error;
  ASSERT_TRUE(writeFileDurably(file, "first", error)) << error.message();
  ::umask(oldMask);
  EXPECT_EQ(modeOf(file), 0600U);
  // A reader that opened the old file keeps reading the old bytes: the new
  // content arrived as a new file, not by rewriting the old one in place.
  std::ifstream reader(file, std::ios::binary);
  ASSERT_TRUE(writeFileDurably(file, std::string(1 << 20, 'x'), error)) << error.message();
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "first");
  EXPECT_EQ(fs::file_size(file), 1U << 20);

  EXPECT_FALSE(writeFileDurably(temp.path() / "missing" / "file", "x", error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  fs::create_directories(temp.path() / "taken" / "child");  // in the way of the rename
  EXPECT_FALSE(writeFileDurably(temp.path() / "taken", "x", error));
  EXPECT_TRUE(fs::is_directory(temp.path() / "taken" / "child"));
  EXPECT_EQ(std::distance(fs::directory_iterator(temp.path()), {}), 2)
      << "no temporary file left behind";

  fs::create_directory(temp.path() / "shared");
  fs::permissions(temp.path() / "shared", fs::perms(0755));
  const fs::path deep = temp.path() / "shared" / "a" / "b";
  EXPECT_TRUE(createPrivateDirectories(deep, error)) << error.message();
  EXPECT_EQ(modeOf(temp.path() / "shared"), 0755U);  // existing ones are left alone
  EXPECT_EQ(modeOf(temp.path() / "shared" / "a"), 0700U);
  EXPECT_TRUE(createPrivateDirectories(deep, error));  // already there
  EXPECT_FALSE(createPrivateDirectories(file / "below", error));
  EXPECT_FALSE(createPrivateDirectories(file, error));
}

TEST(BackgroundTasks, TheDelegateReceivesEveryCallButEndsOfTheInvalidTask) {
  NYBApplication& application = NYBApplication::sharedApplication();
  auto tasks = std::make_shared<NYBCountingBackgroundTaskDelegate>();
  application.setBackgroundTaskDelegate(tasks);
  const auto first = application.beginBackgroundTaskWithExpirationHandler(nullptr);
  EXPECT_NE(first, application.beginBackgroundTaskWithExpirationHandler([] {}));
  application.endBackgroundTask(first);
  application.endBackgroundTask(first);                     // a second end of the same task
  application.endBackgroundTask(NYBBackgroundTaskInvalid);  // "already ended": not a stray end
  EXPECT_EQ(tasks->openTaskCount(), 1U);
  EXPECT_EQ(tasks->beganTaskCount(), 2U);
  EXPECT_EQ(tasks->strayEndCount(), 1U);

  application.setBackgroundTaskDelegate(nullptr);  // a fresh counting one again
}

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
