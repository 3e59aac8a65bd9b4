// The library against nymbrel-devserver over real HTTP on 127.0.0.1: records
// of all eight types and two photos reach the service's store, photos after
// their records and under the identifiers the service gave; a refusal drops
// a record with its notification, while a server error or a closed
// connection puts it back at the tail until the next trigger.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "DevServer.h"
#include "NymbrelCore/NymbrelCore.h"
#include "session/SessionTestSupport.h"

namespace nyb::test {
namespace {

// One devserver for the program (the library reads its base URL once),
// started on first use and stopped when the program's tests are over.
DevServer* sharedServer = nullptr;

class DevServerEnvironment : public ::testing::Environment {
 public:
  void TearDown() override {
    delete sharedServer;
    sharedServer = nullptr;
  }
};
[[maybe_unused]] ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new DevServerEnvironment);

DevServer& devserver() {
  if (sharedServer == nullptr) {
    sharedServer = new DevServer();
    NYBSetRequestBaseURL(sharedServer->baseURL());
  }
  return *sharedServer;
}

const NYBDate kWhen(1'456'841'109);  // 2016-03-01T14:05:09Z

template <typename Record>
std::shared_ptr<Record> made(const std::string& activityID) {
  auto record = std::make_shared<Record>();
  record->setActivityID(activityID);
  record->setTimestamp(kWhen);
  return record;
}

// One record of each type, each with a field of its own.
std::vector<std::shared_ptr<NYBRecord>> oneOfEachType(const std::string& tag) {
  auto biometrics = made<NYBBiometrics>(tag + "-biometrics");
  biometrics->setBloodCalcium(9.5);
  auto diabetes = made<NYBDiabetes>(tag + "-diabetes");
  diabetes->setBloodGlucose(104);
  auto weight = made<NYBWeight>(tag + "-weight");
  weight->setWeight(68.0388555);
  auto routine = made<NYBRoutine>(tag + "-routine");
  routine->setSteps(10'432);
  auto nutrition = made<NYBNutrition>(tag + "-nutrition");
  nutrition->setCalories(640);
  auto fitness = made<NYBFitness>(tag + "-fitness");
  fitness->setDistance(5000.5);
  auto sleep = made<NYBSleep>(tag + "-sleep");
  sleep->setTotalSleep(420);
  auto intraday = made<NYBIntraDay>(tag + "-intraday");
  intraday->setStart(kWhen);
  intraday->setEnd(NYBDate(1'456'844'709));
  intraday->addValue(312, kWhen, NYBDate(1'456'842'009));
  return {biometrics, diabetes, weight, routine, nutrition, fitness, sleep, intraday};
}

std::shared_ptr<NYBImage> photo(unsigned width, unsigned height, std::uint8_t seed) {
  std::vector<std::uint8_t> pixels(std::size_t{width} * height * 4);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels[i] = static_cast<std::uint8_t>((i * 31 + seed) ^ (i >> 7));
  }
  return std::make_shared<NYBImage>(width, height, std::move(pixels));
}

// The records the devserver stores for the user under one root.
std::vector<NYBDictionary> stored(const std::string& root, const std::string& user = "u1",
                                  const std::string& token = "tok1") {
  const auto reply = devserver().client(token)->Get(collectionPath(root, user));
  EXPECT_EQ(reply->status, 200) << reply->body;
  std::vector<NYBDictionary> records;
  const NYBDynamicValue answer = NYBJSONSerialization::JSONObjectWithData(reply->body, nullptr);
  if (const NYBArray* list = (*answer.dictionary())[root].array()) {
    for (const NYBDynamicValue& each : *list) records.push_back(*each.dictionary());
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
  const auto weightPhoto = photo(64, 48, 3);
  const auto diabetesPhoto = photo(33, 17, 9);
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
    const auto kept = stored(roots[i]);
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(kept[0]["activity_id"].description(), records[i]->activityID().description());
    const auto photographed = withPhoto.find(records[i]->activityID().description());
    if (photographed == withPhoto.end()) {
      EXPECT_TRUE(kept[0]["media"].array() == nullptr || kept[0]["media"].array()->empty());
      continue;
    }
    // The photo went to the record the service stored, and its media is the
    // one the notification's record now carries.
    const auto& record = photographed->second;
    EXPECT_EQ(record->recordID().description(), kept[0]["_id"].description());
    const NYBArray* media = kept[0]["media"].array();
    ASSERT_NE(media, nullptr);
    ASSERT_EQ(media->size(), 1U);
    const auto mine = (*record->media().array())[0].objectAs<NYBMedia>();
    EXPECT_EQ(mine->mediaURL().description(), (*(*media)[0].dictionary())["url"].description());
    // The stored image is the photo, read back with the user's token.
    const std::string url = mine->mediaURL().description();
    const auto reply =
        devserver().client("")->Get(url.substr(url.find("/v1/")) + "?authentication_token=tok1");
    ASSERT_EQ(reply->status, 200);
    const auto back = NYBImage::imageWithData(NYBData(reply->body));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(*back, roots[i] == "weight" ? *weightPhoto : *diabetesPhoto);
  }
  EXPECT_FALSE(session->sessionData()->hasRecords());
  EXPECT_FALSE(session->sessionData()->hasImages());
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
  const std::vector<std::pair<std::string, std::string>> faults = {
      {"after-500", R"({"status": 500})"}, {"after-close", R"({"close": true})"}};
  for (const auto& [name, rule] : faults) {
    SCOPED_TRACE(rule);
    notes.posted.clear();
    addFault(rule);
    auto record = made<NYBSleep>(name);
    record->setTotalSleep(400);
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
  EXPECT_EQ(stored("sleep", "u2", "tok2").size(), 2U);
  EXPECT_TRUE(stored("weight", "u2", "tok2").empty());

  // A photo refused by the service: the fault is set the moment its record
  // is accepted, before the upload starts.
  notes.posted.clear();
  notes.onPost = [](const Posted& each) {
    if (each.name == kNYBRecordSubmittedNotification) addFault(R"({"status": 422, "count": 1})");
  };
  session->submitRecord(made<NYBWeight>("photo-refused"), photo(8, 8, 1));
  ASSERT_TRUE(runUntil([&] { return notes.posted.size() == 2 && !session->processingRecord(); }));
  EXPECT_EQ(notes.posted[1].name, kNYBRecordImageSubmissionFailedNotification);
  EXPECT_EQ(notes.posted[1].error()->code(), 422);
  EXPECT_FALSE(session->sessionData()->hasImages());
  notes.onPost = nullptr;
}

}  // namespace
}  // namespace nyb::test
