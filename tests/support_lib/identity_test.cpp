// The library's identity (version text and description) and the silent log function.

#include <gtest/gtest.h>

#include <optional>

#include "NYBBundleInfo.h"
#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBLogging.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Device.h"
#include "support/LogCapture.h"

namespace nyb {
namespace {

// Replaces the library's bundle information for one test.
class BundleOverride {
 public:
  explicit BundleOverride(std::optional<NYBDictionary> info)
      : previous_(platform::bundleInfoDictionary(platform::libraryBundleIdentifier())) {
    platform::setBundleInfoDictionary(platform::libraryBundleIdentifier(), std::move(info));
  }
  ~BundleOverride() {
    platform::setBundleInfoDictionary(platform::libraryBundleIdentifier(), previous_);
  }
  BundleOverride(const BundleOverride&) = delete;
  BundleOverride& operator=(const BundleOverride&) = delete;

 private:
  std::optional<NYBDictionary> previous_;
};

TEST(LibraryIdentity, VersionComesFromTheBundleInformation) {
  EXPECT_EQ(NYBSession::libraryVersion(), std::string(bundle::kShortVersionString));
  EXPECT_EQ(NYBSession::libraryDescription(),
            std::string("NymbrelMobile - Version ") + bundle::kShortVersionString);
  {
    BundleOverride release(NYBDictionary{{"CFBundleShortVersionString", "2.3.1"}});
    EXPECT_EQ(NYBSession::libraryVersion(), "2.3.1");
    EXPECT_EQ(NYBSession::libraryDescription(), "NymbrelMobile - Version 2.3.1");
  }
  {
    BundleOverride withoutKey(NYBDictionary{{"CFBundleVersion", "7"}});
    EXPECT_EQ(NYBSession::libraryVersion(), std::nullopt);
    EXPECT_EQ(NYBSession::libraryDescription(), "NymbrelMobile - Version (null)");
  }
  BundleOverride missing(std::nullopt);
  EXPECT_EQ(NYBSession::libraryVersion(), std::nullopt);
}

TEST(Logging, TheLogFunctionStaysSilentWhateverTheSwitch) {
  NYBLogging::sharedInstance().setIsEnabled(true);
  test::LogCapture log;
  testing::internal::CaptureStderr();
  NYBLog("%s and %d", "text", 42);
  NYBLog(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(log.lines().empty());
  NYBLogging::sharedInstance().setIsEnabled(false);
}

}  // namespace
}  // namespace nyb
