// What the session tests share: one loopback server for the program (the base URL is read
// once per process), a fixture with a fresh documents directory, a fake reachability source
// and a counting background-task delegate, and a log of the session's four notifications.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBApplication.h"
#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDocuments.h"
#include "NymbrelCore/NYBFakeReachabilitySource.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBNotificationCenter.h"
#include "NymbrelCore/NYBRoutine.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "NymbrelCore/NYBSession.h"
#include "NymbrelCore/NYBWeight.h"
#include "session/SessionInternal.h"
#include "session/SessionTesting.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"
#include "support/TempDir.h"

namespace nyb::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

inline LoopbackServer& server() { return LoopbackServer::shared(); }

// Every path of the test user starts with this.
inline const std::string kUserPath = "/v1/organizations/acme/users/u1/";

inline std::shared_ptr<NYBUser> testUser() {
  return std::make_shared<NYBUser>("u1", "acme", "tok-1");
}

inline std::shared_ptr<NYBWeight> weight(const char* activityID, double kilograms = 70.5) {
  auto record = std::make_shared<NYBWeight>();
  record->setActivityID(activityID);
  record->setTimestamp(NYBDate(1'456'841'109));
  record->setWeight(kilograms);
  return record;
}

inline std::shared_ptr<NYBImage> photo(std::uint8_t shade) {
  std::vector<std::uint8_t> pixels;
  for (int pixel = 0; pixel < 12; ++pixel) pixels.insert(pixels.end(), {shade, 7, 99, 255});
  return std::make_shared<NYBImage>(4, 3, std::move(pixels));
}

inline ScriptedResponse acceptedWeight(const std::string& id, const std::string& activity) {
  return ScriptedResponse::json(
      201, R"({"weight":{"_id":")" + id + R"(","activity_id":")" + activity + R"("}})");
}

inline ScriptedResponse acceptedPhoto() {
  return ScriptedResponse::json(201, R"({"media":{"id":"m1","url":"http://m/1.png"}})");
}

inline ScriptedResponse refused(int status) {
  return ScriptedResponse::json(
      status, R"({"errors":[{"code":)" + std::to_string(status) + R"(,"message":"refused"}]})");
}

// The activity ID a JSON request body carries.
inline std::string activityIn(const std::string& body) {
  const std::size_t at = body.find("\"activity_id\":\"") + 15;
  return body.substr(at, body.find('"', at) - at);
}

inline std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The session data the archive in a documents directory holds now.
inline std::shared_ptr<NYBSessionData> archived(const fs::path& documents) {
  return NYBKeyedUnarchiver::unarchiveObjectWithData(NYBData(bytesOf(documents / "sessionData")))
      .objectAs<NYBSessionData>();
}

// The damaged archives kept aside in a documents directory, oldest first.
inline std::vector<fs::path> damagedArchivesIn(const fs::path& documents) {
  std::vector<fs::path> kept;
  for (const auto& entry : fs::directory_iterator(documents)) {
    if (entry.path().filename().string().rfind("sessionData.damaged-", 0) == 0)
      kept.push_back(entry.path());
  }
  std::sort(kept.begin(), kept.end());
  return kept;
}

// The queue's activity IDs, head first.
inline std::vector<std::string> queueOf(const std::shared_ptr<NYBSessionData>& data) {
  std::vector<std::string> ids;
  if (!data) return ids;
  for (const NYBDynamicValue& each : *data->records().array()) {
    ids.push_back(each.objectAs<NYBRecord>()->activityID().description());
  }
  return ids;
}

struct Posted {
  std::string name;
  NYBDynamicValue object;
  NYBDictionary userInfo;

  std::shared_ptr<NYBRecord> record() const { return object.objectAs<NYBRecord>(); }
  std::shared_ptr<NYBError> error() const { return userInfo["error"].objectAs<NYBError>(); }
};

// Records the four notifications of the session while it lives.
class NotificationLog {
 public:
  NotificationLog() {
    for (std::string_view name :
         {kNYBRecordSubmittedNotification, kNYBRecordSubmissionFailedNotification,
          kNYBRecordImageSubmittedNotification, kNYBRecordImageSubmissionFailedNotification}) {
      observers_.push_back(NYBNotificationCenter::defaultCenter().addScopedObserverForName(
          std::string(name), {}, [this](const NYBNotification& notification) {
            posted.push_back({notification.name(), notification.object(), notification.userInfo()});
            if (onPost) onPost(posted.back());
          }));
    }
  }

  std::vector<Posted> named(std::string_view name) const {
    std::vector<Posted> found;
    std::copy_if(posted.begin(), posted.end(), std::back_inserter(found),
                 [&](const Posted& each) { return each.name == name; });
    return found;
  }

  std::vector<Posted> posted;
  // Called on each, as it is posted.
  std::function<void(const Posted&)> onPost;

 private:
  std::vector<NYBScopedObserver> observers_;
};

// Each notification as "<kind> <recordID, else activityID>".
inline std::vector<std::string> outcomes(const NotificationLog& notes) {
  std::vector<std::string> lines;
  for (const Posted& each : notes.posted) {
    const auto record = each.record();
    const std::string kind = each.name == kNYBRecordSubmittedNotification          ? "submitted"
                             : each.name == kNYBRecordSubmissionFailedNotification ? "failed"
                             : each.name == kNYBRecordImageSubmittedNotification   ? "photo"
                                                                                   : "photo failed";
    const NYBDynamicValue id =
        record->recordID().isPresent() ? record->recordID() : record->activityID();
    lines.push_back(kind + " " + id.description());
  }
  return lines;
}

// Holds the archive write queue until released, so that a write is surely
// in progress while the test saves again. The blocked block holds its own
// share of the gate's state, as it may still be waking when the gate goes.
class WriteQueueGate {
 public:
  WriteQueueGate() {
    session::archiveWriteQueue().async([opened = opened_.get_future().share()] { opened.wait(); });
  }
  ~WriteQueueGate() { release(); }
  void release() {
    if (!std::exchange(released_, true)) opened_.set_value();
  }

 private:
  std::promise<void> opened_;
  bool released_ = false;
};

// A fresh documents directory, reachability source and background-task delegate for each
// test; the sessions it makes are settled and released at its end.
class SessionFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    NYBDocuments::setDocumentsDirectory(documents.path().string());
    NYBApplication::sharedApplication().setBackgroundTaskDelegate(tasks);
  }

  void TearDown() override {
    if (session) {
      settle();
      session.reset();
    }
    // Every task begun by a request or a write was ended exactly once.
    EXPECT_EQ(tasks->openTaskCount(), 0U);
    EXPECT_EQ(tasks->strayEndCount(), 0U);
    NYBApplication::sharedApplication().setBackgroundTaskDelegate(nullptr);
    NYBDocuments::setDocumentsDirectory("");
  }

  std::shared_ptr<NYBSession> makeSession() {
    session = NYBSession::sessionWithConfiguration({reachability});
    return session;
  }

  static bool runUntil(const std::function<bool()>& predicate,
                       NYBRunLoop::Clock::duration timeout = 10s) {
    return NYBRunLoop::main().runUntil(predicate, timeout);
  }

  // Drives the main run loop until no request is in flight and no write is running or asked for.
  void settle() {
    EXPECT_TRUE(runUntil([&] { return !session->processingRecord(); }));
    EXPECT_TRUE(session->waitForArchiveWrites());
  }

  TempDir documents;
  std::shared_ptr<NYBCountingBackgroundTaskDelegate> tasks =
      std::make_shared<NYBCountingBackgroundTaskDelegate>();
  std::shared_ptr<NYBFakeReachabilitySource> reachability =
      std::make_shared<NYBFakeReachabilitySource>(kNYBReachabilityFlagsReachable);
  std::shared_ptr<NYBSession> session;
  NotificationLog notes;
};

// The same, against the program's loopback server.
class SessionTest : public SessionFixture {
 protected:
  void SetUp() override {
    server().reset();
    server().setDefaultResponse(ScriptedResponse::json(200, "{}"));
    SessionFixture::SetUp();
  }

  // The paths of the requests the server received, without the user prefix.
  static std::vector<std::string> requestLines() {
    std::vector<std::string> lines;
    for (const auto& request : server().requests()) {
      std::string target = request.target;
      if (target.rfind(kUserPath, 0) == 0) target = target.substr(kUserPath.size());
      lines.push_back(request.method + " " + target);
    }
    return lines;
  }
};

}  // namespace nyb::test
