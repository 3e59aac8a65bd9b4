// The library against nymbrel-devserver over real HTTP on 127.0.0.1: records
// of all eight types and two photos reach the service's store, photos after
// their records and under the identifiers the service gave; a refusal drops
// a record with its notification, while a server error or a closed
// connection puts it back at the tail until the next trigger.
#include <gtest/gtest.h>

#include <map>

#include "DevServer.h"
#include "NymbrelCore/NymbrelCore.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

// One devserver for the program (the library reads its base URL once),
// started on first use and stopped when the program's tests are over.
std::unique_ptr<DevServer> sharedServer;
struct StopDevServer : ::testing::Environment {
  void TearDown() override { sharedServer.reset(); }
};
[[maybe_unused]] ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new StopDevServer);

DevServer& devserver() {
  if (!sharedServer) {
    sharedServer = std::make_unique<DevServer>();
    NYBSetRequestBaseURL(sharedServer->baseURL());
  }
  return *sharedServer;
}

// One record of each type, in the order of the types.
std::vector<std::shared_ptr<NYBRecord>> oneOfEachType(const std::string& tag) {
  std::vector<std::shared_ptr<NYBRecord>> records;
  for (unsigned type = NYBRecordTypeBiometrics; type <= NYBRecordTypeIntraDay; ++type) {
    records.push_back(NYBRecord::newRecordWithType(static_cast<NYBRecordType>(type)));
    records.back()->setActivityID(tag + "-" + std::to_string(type));
    records.back()->setTimestamp(NYBDate(1'456'841'109));
  }
  return records;
}

void addFault(const std::string& rule) { ASSERT_TRUE(devserver().addFault(rule)); }
void clearFaults() { ASSERT_EQ(devserver().client("")->Delete("/control/faults")->status, 200); }

class EndToEnd : public SessionFixture {
 protected:
  void SetUp() override {
    devserver();
    SessionFixture::SetUp();
  }
  void TearDown() override {
    SessionFixture::TearDown();
    clearFaults();
  }
  // Submits and waits until the record's request is over, whatever its fate.
  void submitAndWait(const std::shared_ptr<NYBRecord>& record) {
    session->submitRecord(record);
    ASSERT_TRUE(runUntil([&] { return !session->processingRecord(); }));
  }
};

TEST_F(EndToEnd, RecordsOfEveryTypeAndTheirPhotosReachTheService) {
  makeSession()->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  auto records = oneOfEachType("all");
  const auto weightPhoto = photo(3), diabetesPhoto = photo(9);
  session->submitRecord(records[2], weightPhoto);
  session->submitRecords({records[0], records[3], records[4], records[5], records[6], records[7]});
  session->submitRecord(records[1], diabetesPhoto);
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 10; }, 30s));

  // Every record first, then the two photos.
  for (std::size_t i = 0; i < 8; ++i)
    EXPECT_EQ(notes.posted[i].name, kNYBRecordSubmittedNotification);
  const auto photos = notes.named(kNYBRecordImageSubmittedNotification);
  ASSERT_EQ(photos.size(), 2U);
  std::map<std::string, std::shared_ptr<NYBRecord>> withPhoto;
  for (const auto& each : photos)
    withPhoto[each.record()->activityID().description()] = each.record();

  const std::vector<std::string> roots = {"biometrics", "diabetes", "weight", "routine",
                                          "nutrition",  "fitness",  "sleep",  "intraday"};
  for (std::size_t i = 0; i < roots.size(); ++i) {
    SCOPED_TRACE(roots[i]);
    const auto kept = devserver().records(roots[i]);
    ASSERT_EQ(kept.Size(), 1U);
    EXPECT_EQ(kept[0]["activity_id"].GetString(), records[i]->activityID().description());
    const auto photographed = withPhoto.find(records[i]->activityID().description());
    if (photographed == withPhoto.end()) {
      EXPECT_TRUE(!kept[0].HasMember("media") || kept[0]["media"].Empty());
      continue;
    }
    // The photo went to the record the service stored, and its media is the
    // one the notification's record now carries.
    const auto& record = photographed->second;
    EXPECT_EQ(record->recordID().description(), kept[0]["_id"].GetString());
    ASSERT_EQ(kept[0]["media"].Size(), 1U);
    const std::string url =
        (*record->media().array())[0].objectAs<NYBMedia>()->mediaURL().description();
    EXPECT_EQ(url, kept[0]["media"][0]["url"].GetString());
    // The stored image is the photo, read back with the user's token.
    const auto reply = devserver().client("")->Get(mediaPath(url));
    ASSERT_EQ(reply->status, 200);
    const auto back = NYBImage::imageWithData(NYBData(reply->body));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(*back, roots[i] == "weight" ? *weightPhoto : *diabetesPhoto);
  }
  EXPECT_FALSE(session->sessionData()->hasRecords() || session->sessionData()->hasImages());
}

TEST_F(EndToEnd, ARefusalDropsTheRecordAndAPhotoWhileFailuresWaitForTheNextTrigger) {
  makeSession()->startSessionWithUser(std::make_shared<NYBUser>("u2", "acme", "tok2"));

  // No timestamp: the service refuses the record with 422.
  auto undated = std::make_shared<NYBWeight>();
  undated->setActivityID("undated");
  submitAndWait(undated);
  ASSERT_EQ(notes.posted.size(), 1U);
  EXPECT_EQ(notes.posted[0].name, kNYBRecordSubmissionFailedNotification);
  EXPECT_EQ(notes.posted[0].error()->domain(), kNYBHTTPErrorDomain);
  EXPECT_EQ(notes.posted[0].error()->code(), 422);
  EXPECT_TRUE(notes.posted[0].record()->isEqual(*undated));

  // A 500 and a connection closed without an answer: back at the tail, no
  // word to the application, nothing stored until the next trigger.
  for (const auto& [name, rule] : {std::pair{"after-500", R"({"status": 500})"},
                                   std::pair{"after-close", R"({"close": true})"}}) {
    SCOPED_TRACE(rule);
    notes.posted.clear();
    addFault(rule);
    auto record = oneOfEachType(name)[6];  // sleep
    submitAndWait(record);
    EXPECT_TRUE(notes.posted.empty());
    ASSERT_TRUE(session->sessionData()->hasRecords());
    EXPECT_TRUE(session->sessionData()->peekNextRecord()->isEqual(*record));
    clearFaults();
    EXPECT_TRUE(session->waitForArchiveWrites());
    EXPECT_TRUE(notes.posted.empty());
    reachability->setFlags(kNYBReachabilityFlagsReachable);
    ASSERT_TRUE(runUntil([&] { return !notes.posted.empty() && !session->processingRecord(); }));
    EXPECT_EQ(notes.posted[0].name, kNYBRecordSubmittedNotification);
    EXPECT_FALSE(session->sessionData()->hasRecords());
  }
  EXPECT_EQ(devserver().records("sleep", kOtherUser, kOtherToken).Size(), 2U);
  EXPECT_EQ(devserver().records("weight", kOtherUser, kOtherToken).Size(), 0U);

  // A photo refused by the service: the fault is set the moment its record
  // is accepted, before the upload starts.
  notes.posted.clear();
  notes.onPost = [](const Posted& each) {
    if (each.name == kNYBRecordSubmittedNotification) addFault(R"({"status": 422, "count": 1})");
  };
  session->submitRecord(weight("photo-refused"), photo(1));
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2 && !session->processingRecord(); }));
  EXPECT_EQ(notes.posted[1].name, kNYBRecordImageSubmissionFailedNotification);
  EXPECT_EQ(notes.posted[1].error()->code(), 422);
  EXPECT_FALSE(session->sessionData()->hasImages());
  notes.onPost = nullptr;
}

}  // namespace
}  // namespace nyb::test
