// The library's identity (version symbols, version text and description) and
// the inert logging switch and function.

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <thread>
#include <vector>

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

TEST(LibraryIdentity, VersionSymbolsHaveTheirExactValues) {
  EXPECT_EQ(NymbrelCoreVersionNumber, 1.0);
  static const char expected[] = "@(#)PROGRAM:NymbrelCore  PROJECT:NymbrelCore-1\n";
  EXPECT_EQ(std::strlen(reinterpret_cast<const char*>(NymbrelCoreVersionString)),
            sizeof expected - 1);
  EXPECT_EQ(std::memcmp(NymbrelCoreVersionString, expected, sizeof expected), 0);
}

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

TEST(Logging, TheSwitchOnlyStoresAndTheFunctionStaysSilent) {
  // One instance, also when first asked for by several threads at once.
  std::vector<NYBLogging*> seen(4);
  std::vector<std::thread> threads;
  for (auto& slot : seen) threads.emplace_back([&slot] { slot = &NYBLogging::sharedInstance(); });
  for (auto& t : threads) t.join();
  for (NYBLogging* instance : seen) EXPECT_EQ(instance, &NYBLogging::sharedInstance());

  NYBLogging& logging = NYBLogging::sharedInstance();
  EXPECT_FALSE(logging.isEnabled());
  EXPECT_EQ(logging.log(), 0u);
  logging.setIsEnabled(true);
  logging.setLog(0xFFFF'0000'0000'0001u);
  EXPECT_TRUE(logging.isEnabled());
  EXPECT_EQ(logging.log(), 0xFFFF'0000'0000'0001u);

  test::LogCapture log;
  testing::internal::CaptureStderr();
  NYBLog("%s and %d", "text", 42);
  NYBLog(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(log.lines().empty());
  logging.setIsEnabled(false);
  logging.setLog(0);
}

}  // namespace
}  // namespace nyb
