// The library's identity (version text and description) and the silent log function.
#include <gtest/gtest.h>

#include <optional>

#include "NymbrelCore/NYBLogging.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Device.h"

namespace nyb {
namespace {

TEST(LibraryIdentity, VersionComesFromTheBundleInformation) {
  const std::string id(platform::libraryBundleIdentifier());
  const std::optional<NYBDictionary> previous = platform::bundleInfoDictionary(id);
  const struct {
    std::optional<NYBDictionary> info;
    std::optional<std::string> version;
  } cases[] = {{NYBDictionary{{"CFBundleShortVersionString", "2.3.1"}}, "2.3.1"},
               {NYBDictionary{{"CFBundleVersion", "7"}}, std::nullopt},
               {std::nullopt, std::nullopt}};
  for (const auto& c : cases) {
    platform::setBundleInfoDictionary(id, c.info);
    EXPECT_EQ(NYBSession::libraryVersion(), c.version);
    EXPECT_EQ(NYBSession::libraryDescription(),
              "NymbrelMobile - Version " + c.version.value_or("(null)"));
  }
  platform::setBundleInfoDictionary(id, previous);
}

// Without a log capture, the platform log writes to standard error too.
TEST(Logging, TheLogFunctionStaysSilentWhateverTheSwitch) {
  NYBLogging::sharedInstance().setIsEnabled(true);
  testing::internal::CaptureStderr();
  NYBLog("%s and %d", "text", 42);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  NYBLogging::sharedInstance().setIsEnabled(false);
}

}  // namespace
}  // namespace nyb
