// The REST client against a real server on 127.0.0.1 (its base URL set by NYBSetRequestBaseURL).
#include <gtest/gtest.h>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "NymbrelCore/NYBServerResponse.h"
#include "NymbrelCore/NYBURLSession.h"
#include "NymbrelCore/NYBWeight.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::ScriptedResponse;

constexpr const char* kToken = "tok-SECRET-42";

LoopbackServer& server() { return LoopbackServer::shared(); }

std::shared_ptr<NYBBiometrics> biometrics(const char* activityID, const char* recordID = nullptr) {
  auto record = std::make_shared<NYBBiometrics>();
  record->setActivityID(activityID);
  if (recordID) record->setRecordID(recordID);
  record->setRestingHeartrate(61);
  return record;
}

using Failure = std::pair<std::string, std::int64_t>;  // an error's domain and code

// What one operation's completion received, and where.
struct Call {
  int calls = 0;
  NYBDynamicValue result;
  std::shared_ptr<NYBError> error;
  bool onMainThread = false;
  bool beforeReturn = false;
  bool returned = false;
  // How often the completion ran, whether on the main thread, whether before the call returned.
  std::tuple<int, bool, bool> how() const { return {calls, onMainThread, beforeReturn}; }
  Failure failure() const { return error ? Failure(error->domain(), error->code()) : Failure(); }

  NYBAPICompletion completion() {
    return [this](NYBDynamicValue r, std::shared_ptr<NYBError> e) {
      ++calls;
      result = std::move(r);
      error = std::move(e);
      onMainThread = NYBRunLoop::isMainThread();
      beforeReturn = !returned;
    };
  }
  // Drives the main loop until the completion has run.
  bool await() {
    return NYBRunLoop::main().runUntil([this] { return calls > 0; }, 15s);
  }
};

NYBDynamicValue parse(const std::string& body) {
  return NYBJSONSerialization::JSONObjectWithData(body);
}

// The value as a T; when it is none the test fails and goes on with an empty one.
template <typename T>
std::shared_ptr<T> as(const NYBDynamicValue& value) {
  auto object = value.objectAs<T>();
  EXPECT_TRUE(object) << value.description();
  return object ? object : std::make_shared<T>();
}

class APIClient : public ::testing::Test {
 protected:
  void SetUp() override {
    server().reset();
    ASSERT_EQ(kNYBRequestBaseURLString.value(), server().baseURL() + "/v1");
    client = std::make_shared<NYBAPIClient>(std::make_shared<NYBUser>("u-1", "org-7", kToken));
  }

  std::shared_ptr<NYBAPIClient> client;
};

// The body of a JSON operation: the root beside the token.
NYBDynamicValue wrapped(const char* root, NYBDynamicValue document) {
  return NYBDictionary{{root, std::move(document)}, {"authentication_token", kToken}};
}

TEST_F(APIClient, EachOperationSendsItsMethodPathAndBodyAndReadsItsResult) {
  auto fresh = biometrics("act-1");
  auto stored = biometrics("a", "r-1");
  auto weighIn = std::make_shared<NYBWeight>();
  weighIn->setActivityID("day.2016/03?x=1&y=2 z\xC3\xA9#3");
  auto image = std::make_shared<NYBImage>(2, 2, std::vector<std::uint8_t>(16, 200));
  const std::string users = "/v1/organizations/org-7/users/u-1/";
  const NYBRecordList both{stored, fresh};
  const std::string media = users + "biometrics/r-1/media?authentication_token=" + kToken;
  const struct {
    std::function<void(NYBAPICompletion)> operation;
    const char* answer;
    const char* method;
    std::string target;
  } rows[] = {
      {[&](auto c) { client->postRecord(fresh, c); },
       R"({"biometrics":{"_id":"r-9","activity_id":"act-1","resting_heartrate":62}})", "POST",
       users + "biometrics.json"},
      {[&](auto c) { client->updateRecord(stored, c); }, R"({"biometrics":{"_id":"r-1"}})", "PUT",
       users + "biometrics/r-1.json"},
      // The full stop, blank, "#" and non-ASCII are encoded, the query characters are not.
      {[&](auto c) { client->upsertRecord(weighIn, c); }, R"({"weight":{"_id":"w-1"}})", "PUT",
       users + "weight/activity_id/day%2E2016/03?x=1&y=2%20z%C3%A9%233"},
      {[&](auto c) { client->deleteRecord(stored, c); }, R"({"code":200,"message":"deleted"})",
       "DELETE", users + "biometrics/r-1.json"},
      // The token as it is, in the query and in the header.
      {[&](auto c) { client->uploadImage(image, stored, c); },
       R"({"media":{"id":"m-1","url":"https://m/1"}})", "POST", media},
      {[&](auto c) { client->postMultipleRecords(both, c); },
       R"({"biometrics":[{"_id":"r-1"},"skipped",{"_id":"r-2"}]})", "POST",
       users + "biometrics.json"},
  };
  Call calls[6];
  for (int i = 0; i < 6; ++i) {
    server().enqueue(ScriptedResponse::json(200, rows[i].answer));
    rows[i].operation(calls[i].completion());
    calls[i].returned = true;
    ASSERT_TRUE(calls[i].await());
    EXPECT_EQ(calls[i].how(), std::tuple(1, true, false));
    EXPECT_FALSE(calls[i].error);
    const auto request = server().requests().at(i);
    EXPECT_EQ(request.method, rows[i].method);
    EXPECT_EQ(request.target, rows[i].target);
    EXPECT_EQ(*request.header("X-Nymbrel-Mobile-Token"), kToken);
  }
  const auto sent = server().requests();
  ASSERT_EQ(sent.size(), 6u);
  EXPECT_EQ(parse(sent[0].body), wrapped("biometrics", fresh->JSONObject()));
  EXPECT_EQ(parse(sent[1].body), wrapped("biometrics", stored->JSONObject()));
  EXPECT_EQ(parse(sent[2].body), wrapped("weight", weighIn->JSONObject()));
  EXPECT_EQ(parse(sent[3].body), NYBDynamicValue(NYBDictionary{{"authentication_token", kToken}}));
  // The multipart body itself is proven byte for byte with the request.
  EXPECT_NE(sent[4].body.find(image->PNGRepresentation()->view()), std::string::npos);
  EXPECT_EQ(parse(sent[5].body),
            wrapped("biometrics", NYBArray{stored->JSONObject(), fresh->JSONObject()}));

  EXPECT_EQ(as<NYBBiometrics>(calls[0].result)->recordID(), NYBDynamicValue("r-9"));
  EXPECT_EQ(as<NYBServerResponse>(calls[3].result)->message(), NYBDynamicValue("deleted"));
  EXPECT_EQ(as<NYBMedia>(calls[4].result)->mediaURL(), NYBDynamicValue("https://m/1"));
  const NYBArray* posted = calls[5].result.array();
  ASSERT_TRUE(posted && posted->size() == 2);
  EXPECT_EQ(as<NYBBiometrics>((*posted)[1])->recordID(), NYBDynamicValue("r-2"));
}

TEST_F(APIClient, RefusedRecordsAreReportedAtOnceOnTheCallingThreadAndNothingIsSent) {
  EXPECT_THROW(NYBAPIClient missing(nullptr), NYBException);
  EXPECT_THROW(NYBAPIClient(), NYBException);
  test::LogCapture log;
  auto typeless = std::make_shared<NYBRecord>();
  typeless->setActivityID("t");
  auto noID = biometrics("n");
  auto weight = std::make_shared<NYBWeight>();
  const NYBRecordList mixed{noID, weight}, withNull{noID, nullptr};
  const std::vector<std::pair<std::function<void(NYBAPICompletion)>, NYBAPIErrorCode>> cases = {
      {[&](auto c) { client->postRecord(nullptr, c); }, NYBAPIErrorMissingRecord},
      {[&](auto c) { client->postRecord(typeless, c); }, NYBAPIErrorInvalidRecordType},
      {[&](auto c) { client->postMultipleRecords({}, c); }, NYBAPIErrorMissingRecord},
      {[&](auto c) { client->postMultipleRecords(mixed, c); }, NYBAPIErrorMismatchedRecordTypes},
      // A missing record has no type, so it differs from the first one's.
      {[&](auto c) { client->postMultipleRecords(withNull, c); }, NYBAPIErrorMismatchedRecordTypes},
      {[&](auto c) { client->updateRecord(typeless, c); }, NYBAPIErrorMissingRecordID},
      {[&](auto c) { client->updateRecord(nullptr, c); }, NYBAPIErrorMissingRecordID},
      {[&](auto c) { client->upsertRecord(weight, c); }, NYBAPIErrorMissingActivityID},
      {[&](auto c) { client->uploadImage(nullptr, noID, c); }, NYBAPIErrorMissingRecordID},
      {[&](auto c) { client->deleteRecord(noID, c); }, NYBAPIErrorMissingRecordID},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    Call call;
    cases[i].first(call.completion());
    call.returned = true;
    EXPECT_EQ(call.how(), std::tuple(1, true, true));  // the calling thread is the main one here
    EXPECT_TRUE(call.result.isAbsent());
    EXPECT_EQ(call.failure(), Failure("NYBAPIErrorDomain", cases[i].second));
    cases[i].first(nullptr);  // without a completion nothing breaks
  }
  // A valid request afterwards is the only one the server sees, for the user as it is now; the
  // delete without a completion went out all the same, with no URL to go to.
  client->setUser(std::make_shared<NYBUser>("u-2", "org-8", "other"));
  Call barrier;
  client->postRecord(noID, barrier.completion());
  ASSERT_TRUE(barrier.await());
  ASSERT_EQ(server().requests().size(), 1u);
  EXPECT_EQ(server().requests()[0].target, "/v1/organizations/org-8/users/u-2/biometrics.json");
  EXPECT_EQ(*server().requests()[0].header("X-Nymbrel-Mobile-Token"), "other");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"NYBRequest: No data returned: unsupported URL"});
}

// Which error each failure makes is proven with the request; here what reaches the completion,
// once, on the main queue after the call returned, and that the token shows only in the
// service's body.
TEST_F(APIClient, AnswersAndFailuresArriveOnTheMainQueueExactlyOnce) {
  test::LogCapture log;
  const std::string echo = std::string(R"({"echo":")") + kToken + "\"}";
  const ScriptedResponse answers[] = {
      ScriptedResponse::json(
          200, R"({"biometrics":{"_id":"r-5"},"errors":[{"activity_id":"x"},{"code":3},7]})"),
      ScriptedResponse::json(200, R"({"_id":"r-7","errors":[]})"),
      ScriptedResponse::json(200, R"({"biometrics":"not a record"})"),
      ScriptedResponse::json(422, echo),
      ScriptedResponse::noContent(),
      ScriptedResponse::garbage("\x01\x02 garbage\r\n\r\n"),
  };
  std::vector<Call> calls(std::size(answers));
  for (std::size_t i = 0; i < calls.size(); ++i) {
    server().enqueue(answers[i]);
    client->postRecord(biometrics("f"), calls[i].completion());
    calls[i].returned = true;
    ASSERT_TRUE(calls[i].await());
  }
  // Whatever else is queued for the main thread runs now: no second calls.
  Call barrier;
  client->postRecord(biometrics("g"), barrier.completion());
  ASSERT_TRUE(barrier.await());
  NYBRunLoop::main().runOnce();
  for (const Call& call : calls) EXPECT_EQ(call.how(), std::tuple(1, true, false));

  EXPECT_EQ(as<NYBBiometrics>(calls[0].result)->recordID(), NYBDynamicValue("r-5"));
  ASSERT_EQ(calls[0].failure(), Failure("NYBAPIErrorDomain", NYBAPIErrorInvalidRecords));
  // Non-objects are dropped.
  const NYBArray* records = calls[0].error->userInfo()["errorRecords"].array();
  ASSERT_TRUE(records && records->size() == 2);
  EXPECT_EQ(as<NYBServerResponse>((*records)[1])->code(), NYBDynamicValue(3));
  // No root key: the whole answer is the record; an empty array is no error.
  EXPECT_EQ(as<NYBBiometrics>(calls[1].result)->recordID(), NYBDynamicValue("r-7"));
  // A record that is no object, and a 204: neither result nor error.
  for (int i : {1, 2, 4}) EXPECT_FALSE(calls[i].error) << i;
  for (int i : {2, 3, 4, 5}) EXPECT_TRUE(calls[i].result.isAbsent()) << i;
  EXPECT_EQ(calls[3].failure(), Failure("NYBHTTPErrorDomain", 422));
  EXPECT_EQ(calls[5].failure(), Failure(kNYBURLErrorDomain, NYBURLErrorBadServerResponse));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "Invalid JSON Object: not a record",
                "NYBRequest: Invalid status code: 422 client error\nResponse: " + echo,
                "NYBRequest: No data returned: (null)",
                "NYBRequest: No data returned: " + calls[5].error->localizedDescription()}));
}

TEST(APIClientClass, URLBuildersRefuseWhatTheyCannotName) {
  auto noOrg = std::make_shared<NYBUser>("u", NYBDynamicValue(), "t");
  EXPECT_FALSE(NYBAPIClient::urlForRecordType(NYBRecordTypeSleep, noOrg));
  // With a record ID only the user itself is needed, not its fields.
  EXPECT_EQ(
      NYBAPIClient::urlForRecordTypeRecordID(NYBRecordTypeSleep, "9", noOrg)->absoluteString(),
      server().baseURL() + "/v1/organizations/(null)/users/u/sleep/9.json");
  EXPECT_FALSE(NYBAPIClient::urlForImageUploadRecord(
      biometrics("a", "r"), std::make_shared<NYBUser>("u", "o", NYBDynamicValue())));
  EXPECT_EQ(NYBAPIClient::JSONRootForRecordType(NYBRecordTypeNone), "");
}

// The "Invalid records" error lists every activity ID in order, an empty one and a missing one
// included, so the list lines up with "errorRecords".
TEST(ErrorRecords, EveryActivityIDTakesItsPlaceInTheDescription) {
  auto responseFor = [](NYBDynamicValue activityID) {
    auto response = std::make_shared<NYBServerResponse>();
    response->setActivityID(std::move(activityID));
    return response;
  };
  const std::pair<std::vector<std::shared_ptr<NYBServerResponse>>, std::string> cases[] = {
      {{responseFor(""), responseFor("b")}, "Invalid records: , b"},
      {{responseFor("a"), responseFor(""), responseFor("")}, "Invalid records: a, , "},
      {{responseFor(NYBDynamicValue()), responseFor("c")}, "Invalid records: (null), c"},
  };
  for (const auto& [responses, description] : cases) {
    auto error = NYBAPIClient::APIErrorWithErrorRecords(responses);
    EXPECT_EQ(error->localizedDescription(), description);
    EXPECT_EQ(error->code(), NYBAPIErrorInvalidRecords);
    EXPECT_EQ(error->userInfo()["errorRecords"].array()->size(), responses.size());
  }
}

// The base URL comes from the build or from the host's explicit call, never from the process's
// environment, and plain http only reaches this machine.
TEST(RequestBaseURL, BuildValueUntilTheHostSaysOtherwiseAndNeverClearTextOffThisMachine) {
  const std::string before = kNYBRequestBaseURLString;
  ::setenv("NYMBREL_BASE_URL", "http://attacker.example/v1", 1);
  EXPECT_EQ(kNYBRequestBaseURLString.value(), before);
  EXPECT_NE(before, "http://attacker.example/v1");

  for (const char* accepted :
       {"http://127.0.0.1:41873/v1", "http://127.8.9.10/v1", "http://localhost:8080/v1",
        "http://[::1]:9/v1", "https://api.example.org/v1"}) {
    EXPECT_NO_THROW(NYBSetRequestBaseURL(accepted)) << accepted;
    EXPECT_EQ(std::string(kNYBRequestBaseURLString), accepted);
  }
  for (const char* refused : {"http://10.0.0.7/v1", "http://128.0.0.1/v1", "http://127.example/v1",
                              "ftp://127.0.0.1/v1", "not a url", ""}) {
    EXPECT_THROW(NYBSetRequestBaseURL(refused), NYBInvalidArgumentException) << refused;
    EXPECT_EQ(kNYBRequestBaseURLString.value(), "https://api.example.org/v1") << refused;
  }
  ::unsetenv("NYMBREL_BASE_URL");
  NYBSetRequestBaseURL(before);
}

}  // namespace
}  // namespace nyb
