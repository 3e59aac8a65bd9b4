// One HTTP exchange with the service: the bytes that go out and how answers come back.
#include <gtest/gtest.h>

#include <future>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBRequest.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::ScriptedResponse;

struct Answer {
  NYBDynamicValue object;
  std::shared_ptr<const NYBHTTPURLResponse> response;
  std::shared_ptr<NYBError> error;
};

// Sends the request and waits, boundedly, for its completion. A second
// completion would satisfy the promise twice, which ends the test program.
Answer send(const NYBRequest& request) {
  auto done = std::make_shared<std::promise<Answer>>();
  request.sendWithCompletion([done](auto o, auto r, auto e) {
    done->set_value({std::move(o), std::move(r), std::move(e)});
  });
  auto future = done->get_future();
  if (future.wait_for(10s) != std::future_status::ready) {
    ADD_FAILURE() << "no completion";
    return {};
  }
  return future.get();
}

std::shared_ptr<NYBRequest> requestTo(const std::string& url, NYBHTTPMethod method) {
  auto request = std::make_shared<NYBRequest>();
  request->setURL(NYBURL::URLWithString(url));
  request->setHTTPMethod(method);
  return request;
}

std::shared_ptr<NYBImage> smallImage() {
  return std::make_shared<NYBImage>(3, 2, std::vector<std::uint8_t>(24, 90));
}

// The request's own header fields, "name: value" in the order they arrived.
std::vector<std::string> ourHeaders(const test::RecordedRequest& request) {
  static const std::vector<std::string> ours = {"Accept", "Nymbrel-Version",
                                                "X-Nymbrel-Mobile-Token", "Content-Type"};
  std::vector<std::string> fields;
  for (const auto& name : request.headerNames()) {
    if (std::find(ours.begin(), ours.end(), name) != ours.end()) {
      fields.push_back(name + ": " + *request.header(name));
    }
  }
  return fields;
}

TEST(Request, JSONBodiesHeadersAndMethodsOnTheWire) {
  LoopbackServer server;
  const std::string url = server.baseURL() + "/v1/things";

  NYBRequest post;  // a fresh request is a POST
  post.setURL(NYBURL::URLWithString(url));
  post.setAuthToken("tok-1");
  post.setParameters(NYBDictionary{{"name", "Ann \"A\""}, {"n", 3}});
  auto del = requestTo(url, NYBHTTPMethodDELETE);  // no token: no token header
  del->setParameters(NYBDictionary{{"authentication_token", "tok-2"}});
  auto get = requestTo(url, NYBHTTPMethodGET);  // query, never a body, even with an image
  get->setParameters(NYBDictionary{{"b", "2"}, {"a", "x"}});
  get->setImage(smallImage());
  auto unnamed = requestTo(url, static_cast<NYBHTTPMethod>(7));  // the default method
  for (const NYBRequest* request : {&post, del.get(), get.get(), unnamed.get()}) send(*request);

  const auto sent = server.requests();
  std::vector<std::string> exchanges;
  for (const auto& request : sent) {
    exchanges.push_back(request.method + " " + request.target + " " + request.body);
  }
  EXPECT_EQ(exchanges,
            (std::vector<std::string>{R"(POST /v1/things {"name":"Ann \"A\"","n":3})",
                                      R"(DELETE /v1/things {"authentication_token":"tok-2"})",
                                      "GET /v1/things?b=2&a=x ", "GET /v1/things "}));
  ASSERT_EQ(sent.size(), 4u);
  const std::string accept = "Accept: application/json", version = "Nymbrel-Version: 2015-10-01",
                    json = "Content-Type: application/json";
  EXPECT_EQ(ourHeaders(sent[0]),
            (std::vector<std::string>{accept, version, "X-Nymbrel-Mobile-Token: tok-1", json}));
  EXPECT_EQ(ourHeaders(sent[1]), (std::vector<std::string>{accept, version, json}));
  EXPECT_EQ(ourHeaders(sent[2]), (std::vector<std::string>{accept, version}));
  EXPECT_EQ(NYBRequest::HTTPMethodStringForMethod(static_cast<NYBHTTPMethod>(7)), std::nullopt);
}

TEST(Request, MultipartBodyByteForByte) {
  LoopbackServer server;
  auto image = smallImage();
  auto upload = requestTo(server.baseURL() + "/v1/media?authentication_token=t", NYBHTTPMethodPOST);
  upload->setAuthToken("t");
  upload->setImage(image);
  upload->addParameters({{"authentication_token", "t"}});  // lost: the image wins
  auto unencodable = requestTo(server.baseURL() + "/v1/media", NYBHTTPMethodPUT);
  unencodable->setImage(std::make_shared<NYBImage>(0, 0));
  send(*upload);
  send(*unencodable);

  const auto sent = server.requests();
  ASSERT_EQ(sent.size(), 2u);
  const std::string png(image->PNGRepresentation()->view());
  EXPECT_EQ(sent[0].body,
            "-----------------9a87987G98797\r\n"
            "Content-Disposition: form-data; name=\"media\"; filename=\"media.png\"\r\n"
            "Content-Type: application/octet-stream\r\n"
            "\r\n" +
                png +
                "\r\n"
                "-----------------9a87987G98797--\r\n");
  EXPECT_EQ(ourHeaders(sent[0]).back(),
            "Content-Type: multipart/form-data; boundary=---------------9a87987G98797");
  // A picture that cannot be encoded leaves the closing line alone.
  EXPECT_EQ(sent[1].body, "-----------------9a87987G98797--\r\n");
}

TEST(Request, StatusDecidesBetweenObjectAndErrorAndEveryOutcomeIsLogged) {
  LoopbackServer server;
  test::LogCapture log;
  const std::vector<ScriptedResponse> scripts = {
      ScriptedResponse::json(399, R"({"a":[1,2]})"),
      ScriptedResponse::json(400, R"({"why":"bad"})"),
      ScriptedResponse::json(404, ""),
      ScriptedResponse::json(500, "\xff\xfe"),  // not UTF-8
      ScriptedResponse::noContent(),
      ScriptedResponse::json(200, "<html>"),
      ScriptedResponse::closeMidAnswer(500, "{", 50),
  };
  std::vector<Answer> answers;
  for (const ScriptedResponse& script : scripts) {
    server.enqueue(script);
    answers.push_back(send(*requestTo(server.baseURL() + "/v1/r", NYBHTTPMethodGET)));
  }

  EXPECT_EQ(answers[0].object, NYBDynamicValue(NYBDictionary{{"a", NYBArray{1, 2}}}));
  EXPECT_FALSE(answers[0].error);
  for (int i = 1; i <= 3; ++i) {  // the errors' descriptions show in the log below
    EXPECT_TRUE(answers[i].object.isAbsent());
    ASSERT_TRUE(answers[i].error);
    EXPECT_EQ(answers[i].error->domain(), "NYBHTTPErrorDomain");
    EXPECT_EQ(answers[i].error->code(), answers[i].response->statusCode());
  }
  EXPECT_TRUE(answers[4].object.isAbsent());  // 204: neither object nor error
  EXPECT_FALSE(answers[4].error);
  ASSERT_TRUE(answers[5].error);
  EXPECT_EQ(answers[5].error->domain(), "NSCocoaErrorDomain");
  // Failure by status and by transport at once: the transport error wins.
  ASSERT_TRUE(answers[6].error);
  EXPECT_EQ(answers[6].error->code(), NYBURLErrorNetworkConnectionLost);
  EXPECT_EQ(answers[6].response->statusCode(), 500);

  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "NYBRequest: Invalid status code: 400 bad request\nResponse: {\"why\":\"bad\"}",
                "NYBRequest: Invalid status code: 404 not found\nResponse: ",
                "NYBRequest: Invalid status code: 500 internal server error\nResponse: (null)",
                "NYBRequest: No data returned: (null)",
                "NYBRequest: Error deserializing JSON: " +
                    answers[5].error->localizedDescription() + "\nResponse: <html>",
                "NYBRequest: Invalid status code: The network connection was lost.\nResponse: "
                "(null)",
            }));
}

TEST(Request, RequestsThatCannotBeBuiltWhollyAreStillSent) {
  LoopbackServer server;
  test::LogCapture log;
  // Parameters that JSON cannot hold: logged, and sent with no body.
  auto put = requestTo(server.baseURL() + "/v1/p", NYBHTTPMethodPUT);
  put->setParameters(NYBDictionary{{"when", NYBDate(0)}});
  // A GET whose query does not parse has no URL: a transport error.
  auto get = requestTo(server.baseURL() + "/v1/q", NYBHTTPMethodGET);
  get->setParameters(NYBDictionary{{"q", "two words"}});
  send(*put);
  const Answer unsent = send(*get);

  const auto sent = server.requests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(*sent[0].header("Content-Type"), "application/json");
  EXPECT_TRUE(sent[0].body.empty());
  ASSERT_TRUE(unsent.error);
  EXPECT_EQ(unsent.error->code(), NYBURLErrorUnsupportedURL);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("Error serializing data:" + put->parameters()->description() + "\n", 0),
            0u);
  EXPECT_EQ(lines[1], "NYBRequest: No data returned: " + unsent.error->localizedDescription());
}

// What the log keeps of a long answer: its start, cut between characters, and its length,
// whichever line shows it.
TEST(AnswerLog, LongAnswersAreShortenedWhereverTheyAreLogged) {
  LoopbackServer server;
  test::LogCapture log;
  // The cut at 1024 bytes would split the two bytes of the "é".
  const std::string body = std::string(1023, 'a') + "\xc3\xa9" + std::string(9000, 'z');
  const std::string shown = std::string(1023, 'a') + "... (10025 bytes)";
  for (int status : {500, 200}) {
    server.enqueue(ScriptedResponse::json(status, body));
    send(*requestTo(server.baseURL() + "/v1/r", NYBHTTPMethodPOST));
  }
  NYBAPIClient::transformJSONObject(NYBDynamicValue(body), nullptr);

  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0],
            "NYBRequest: Invalid status code: 500 internal server error\nResponse: " + shown);
  EXPECT_EQ(lines[1].rfind("NYBRequest: Error deserializing JSON: ", 0), 0u);
  EXPECT_EQ(lines[1].substr(lines[1].find("\nResponse: ")), "\nResponse: " + shown);
  EXPECT_EQ(lines[2], "Invalid JSON Object: " + shown);
}

}  // namespace
}  // namespace nyb
