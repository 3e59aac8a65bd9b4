// Background tasks reach the host delegate; the counting one finds unbalanced ends.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "NymbrelCore/NYBApplication.h"

namespace nyb {
namespace {

TEST(BackgroundTasks, TheCountingDelegateCountsAndAHostDelegateReceivesEveryCall) {
  NYBApplication& application = NYBApplication::sharedApplication();
  auto tasks = std::make_shared<NYBCountingBackgroundTaskDelegate>();
  application.setBackgroundTaskDelegate(tasks);
  const auto first = application.beginBackgroundTaskWithExpirationHandler(nullptr);
  EXPECT_NE(first, application.beginBackgroundTaskWithExpirationHandler([] {}));
  application.endBackgroundTask(first);
  application.endBackgroundTask(first);                     // a second end of the same task
  application.endBackgroundTask(NYBBackgroundTaskInvalid);  // the "already ended" marker
  EXPECT_EQ(tasks->openTaskCount(), 1U);
  EXPECT_EQ(tasks->beganTaskCount(), 2U);
  EXPECT_EQ(tasks->strayEndCount(), 1U);

  struct HostDelegate : NYBBackgroundTaskDelegate {
    NYBBackgroundTaskIdentifier beginBackgroundTask(ExpirationHandler) override { return 42; }
    void endBackgroundTask(NYBBackgroundTaskIdentifier id) override { ended.push_back(id); }
    std::vector<NYBBackgroundTaskIdentifier> ended;
  };
  auto host = std::make_shared<HostDelegate>();
  application.setBackgroundTaskDelegate(host);
  EXPECT_EQ(application.beginBackgroundTaskWithExpirationHandler(nullptr), 42U);
  application.endBackgroundTask(42);
  application.endBackgroundTask(NYBBackgroundTaskInvalid);  // never reaches a delegate
  EXPECT_EQ(host->ended, (std::vector<NYBBackgroundTaskIdentifier>{42}));

  // Null puts a fresh counting delegate back.
  application.setBackgroundTaskDelegate(nullptr);
  auto fallback = std::dynamic_pointer_cast<NYBCountingBackgroundTaskDelegate>(
      application.backgroundTaskDelegate());
  ASSERT_NE(fallback, nullptr);
  EXPECT_EQ(fallback->beganTaskCount(), 0U);
}

}  // namespace
}  // namespace nyb
