// The libcurl URL session against a real server on 127.0.0.1, well behaved or not: every
// failure ends in one completion, and no request is sent twice or leaves its origin.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>

#include "NymbrelCore/NYBURLSession.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::ScriptedResponse;

struct Result {
  std::optional<NYBData> data;
  std::shared_ptr<const NYBHTTPURLResponse> response;
  std::shared_ptr<NYBError> error;
  std::thread::id thread;
};

NYBURLRequest requestFor(const std::string& url, std::string method = "GET",
                         std::optional<std::string> body = std::nullopt) {
  NYBURLRequest request;
  request.URL = NYBURL::URLWithString(url);
  request.HTTPMethod = std::move(method);
  if (body) request.HTTPBody = NYBData(*body);
  return request;
}

// A second completion of one task would satisfy the promise twice, which ends
// the test program: every test here also proves "exactly one completion".
std::future<Result> start(NYBURLSession& session, NYBURLRequest request) {
  auto done = std::make_shared<std::promise<Result>>();
  auto complete = [done](auto d, auto r, auto e) {
    done->set_value({std::move(d), std::move(r), std::move(e), std::this_thread::get_id()});
  };
  session.dataTaskWithRequest(std::move(request), complete)->resume();
  return done->get_future();
}

// Runs one exchange and waits, boundedly, for its completion.
Result run(NYBURLSession& session, NYBURLRequest request) {
  auto future = start(session, std::move(request));
  if (future.wait_for(10s) != std::future_status::ready) {
    ADD_FAILURE() << "no completion";
    return {};
  }
  return future.get();
}

Result run(NYBURLSession& session, const std::string& url, std::string method = "GET",
           std::optional<std::string> body = std::nullopt) {
  return run(session, requestFor(url, std::move(method), std::move(body)));
}

std::int64_t codeOf(const Result& result) { return result.error ? result.error->code() : 0; }

TEST(URLSessionFaults, ARequestOnAKeptConnectionThatDiesIsNeverSentAgain) {
  LoopbackServer server;
  auto session = NYBURLSession::sessionWithConfiguration({});
  const std::string large(256 * 1024, 'p');  // more than one write on the socket
  const std::vector<std::pair<std::string, std::optional<std::string>>> requests = {
      {"GET", std::nullopt},  {"DELETE", std::nullopt}, {"DELETE", "{\"t\":1}"},
      {"POST", "{\"r\":1}"},  {"PUT", "{\"r\":2}"},     {"POST", large},
      {"POST", std::nullopt},
  };
  for (const auto& death : {ScriptedResponse::closeWithoutAnswer(), ScriptedResponse::reset()}) {
    for (const auto& [method, body] : requests) {
      SCOPED_TRACE(method + " " + std::to_string(body ? body->size() : 0));
      server.reset();
      server.enqueue(ScriptedResponse::json(200, "{}"));  // leaves a kept-alive connection
      server.enqueue(death);
      EXPECT_FALSE(run(*session, server.baseURL() + "/warm").error);
      const Result result = run(*session, server.baseURL() + "/once", method, body);

      EXPECT_EQ(codeOf(result), NYBURLErrorNetworkConnectionLost);
      EXPECT_FALSE(result.data);
      const auto sent = server.requests();
      ASSERT_EQ(sent.size(), 2u);  // the one copy, on the connection it died with
      EXPECT_EQ(sent[1].connection, sent[0].connection);
      EXPECT_EQ(sent[1].body, body.value_or(""));
    }
  }
}

TEST(URLSessionFaults, RedirectsAreNotFollowedAnywhere) {
  LoopbackServer origin, otherHost("127.0.0.2"), otherPort;
  auto session = NYBURLSession::sessionWithConfiguration({});
  const std::vector<std::pair<int, std::string>> redirects = {
      {307, otherHost.baseURL() + "/v1/stolen"},
      {308, otherPort.baseURL() + "/v1/stolen"},
      {301, "https://127.0.0.1:" + std::to_string(origin.port()) + "/v1/moved"},
      {302, origin.baseURL() + "/v1/moved"},
      {303, "/v1/moved"},
  };
  for (const auto& [status, location] : redirects) {
    SCOPED_TRACE(location);
    origin.reset();
    ScriptedResponse redirect = ScriptedResponse::json(status, "{}");
    redirect.headers.emplace_back("Location", location);
    origin.enqueue(redirect);
    const Result result = run(*session, origin.baseURL() + "/v1/r", "POST", "{\"token\":\"T\"}");

    EXPECT_EQ(codeOf(result), NYBURLErrorHTTPTooManyRedirects);
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->statusCode(), status);
    EXPECT_EQ(origin.requests().size(), 1u);
  }
  EXPECT_EQ(otherHost.connectionCount() + otherPort.connectionCount(), 0u);
}

TEST(URLSessionFaults, AnswersAreBoundedInSizeAndTime) {
  LoopbackServer server;
  // The no-progress time-out stays at sixty seconds.
  auto session = NYBURLSession::sessionWithConfiguration({.timeoutIntervalForResource = 1.0,
                                                          .maximumResponseBodyBytes = 4096,
                                                          .maximumResponseHeaderBytes = 4096});

  // 64 KiB of zeros in 96 bytes of gzip.
  const std::string bomb =
      std::string(
          "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xed\xc1\x01\x01\x00\x00\x00\x80\x90"
          "\xfe\xaf\xee\x08\x0a",
          24) +
      std::string(63, '\0') + std::string("\x6a\xeb\x8e\x97\xd7\x00\x00\x01\x00", 9);
  ScriptedResponse gzipped = ScriptedResponse::json(200, bomb);
  gzipped.headers.emplace_back("Content-Encoding", "gzip");
  ScriptedResponse manyHeaders = ScriptedResponse::json(200, "{}");
  for (int i = 0; i < 64; ++i) manyHeaders.headers.emplace_back("X-Pad", std::string(100, 'h'));
  std::string interims;
  for (int i = 0; i < 256; ++i) interims += "HTTP/1.1 102 Processing\r\n\r\n";
  interims += "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";

  const std::vector<std::pair<ScriptedResponse, std::int64_t>> answers = {
      {ScriptedResponse::json(200, std::string(4096, ' ')), 0},  // at the limit: accepted
      {ScriptedResponse::json(500, std::string(4097, ' ')), NYBURLErrorDataLengthExceedsMaximum},
      {gzipped, NYBURLErrorDataLengthExceedsMaximum},
      {manyHeaders, NYBURLErrorDataLengthExceedsMaximum},
      {ScriptedResponse::garbage(interims), NYBURLErrorDataLengthExceedsMaximum},
      // A byte every 20 ms keeps the exchange alive for 20 s without the cap.
      {ScriptedResponse::drip(200, std::string(1000, ' '), 20ms), NYBURLErrorTimedOut},
  };
  for (const auto& [answer, code] : answers) {
    SCOPED_TRACE(code);
    server.enqueue(answer);
    const Result result = run(*session, server.baseURL() + "/v1/r");
    EXPECT_EQ(codeOf(result), code);
    EXPECT_EQ(result.data.has_value(), code == 0);
  }
}

// Header order, binary bodies and connection reuse are proven with the request and above;
// here what libcurl would otherwise add or drop.
TEST(URLSession, SendsRequestsAsBuiltWithNothingSlippedIn) {
  LoopbackServer server;
  ScriptedResponse created = ScriptedResponse::json(201, R"({"ok":true})");
  created.headers.emplace_back("X-Trace", "abc");
  server.enqueue(created);
  server.enqueue(ScriptedResponse::noContent());
  server.enqueue(ScriptedResponse::json(200, ""));
  auto session = NYBURLSession::sessionWithConfiguration({});

  NYBURLRequest put = requestFor(server.baseURL() + "/v1/items?x=1", "PUT", "{}");
  put.setValueForHTTPHeaderField("one", "X-First");
  put.setValueForHTTPHeaderField("text/plain", "Content-Type");
  put.setValueForHTTPHeaderField("ONE", "x-first");  // replaces, keeps its place
  const Result putResult = run(*session, put);
  const Result results[] = {run(*session, server.baseURL() + "/a", "DELETE"),
                            run(*session, server.baseURL() + "/b", "POST")};

  const auto sent = server.requests();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(*sent[0].header("X-First"), "ONE");
  const auto names = sent[0].headerNames();
  EXPECT_LT(std::find(names.begin(), names.end(), "X-First"),
            std::find(names.begin(), names.end(), "Content-Type"));
  EXPECT_FALSE(sent[0].header("Expect"));
  EXPECT_FALSE(sent[1].header("Content-Length"));
  EXPECT_EQ(*sent[2].header("Content-Length"), "0");
  EXPECT_FALSE(sent[2].header("Content-Type"));  // no form type slipped in

  EXPECT_EQ(putResult.data->view(), R"({"ok":true})");
  EXPECT_EQ(putResult.response->statusCode(), 201);
  EXPECT_EQ(*putResult.response->valueForHTTPHeaderField("x-trace"), "abc");
  // A 204 and an empty 200 are empty data, not failures.
  for (const Result& empty : results) {
    EXPECT_FALSE(empty.error);
    ASSERT_TRUE(empty.data);
    EXPECT_TRUE(empty.data->empty());
    // Completions run on the session's one callback thread, not the caller's.
    EXPECT_EQ(empty.thread, putResult.thread);
  }
  EXPECT_NE(putResult.thread, std::this_thread::get_id());
}

TEST(URLSession, TransportFailuresEndInOneCompletionWithAClearError) {
  LoopbackServer server;
  // The test seam: one second without progress instead of sixty.
  auto session = NYBURLSession::sessionWithConfiguration({.timeoutIntervalForRequest = 1.0});
  const std::string secret = server.baseURL() + "/private?authentication_token=SECRET";
  const int closedPort = LoopbackServer().port();  // closed again at once
  struct Case {
    std::optional<ScriptedResponse> script;
    NYBURLRequest request;
    NYBURLErrorCode code;
    bool withResponse;
  };
  const Case cases[] = {
      {std::nullopt, NYBURLRequest(), NYBURLErrorUnsupportedURL, false},
      {std::nullopt, requestFor("ftp://127.0.0.1/file"), NYBURLErrorUnsupportedURL, false},
      {std::nullopt,
       requestFor("http://127.0.0.1:" + std::to_string(closedPort) +
                  "/?authentication_token=SECRET"),
       NYBURLErrorCannotConnectToHost, false},
      {ScriptedResponse::reset(), requestFor(secret), NYBURLErrorNetworkConnectionLost, false},
      {ScriptedResponse::closeMidAnswer(200, R"({"par)", 100), requestFor(secret),
       NYBURLErrorNetworkConnectionLost, true},
      {ScriptedResponse::garbage("NOT HTTP AT ALL\r\n\r\n"), requestFor(secret),
       NYBURLErrorBadServerResponse, false},
      {ScriptedResponse::neverAnswer(), requestFor(secret), NYBURLErrorTimedOut, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    if (c.script) server.enqueue(*c.script);
    const Result result = run(*session, c.request);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain(), kNYBURLErrorDomain);
    EXPECT_EQ(result.error->code(), c.code) << result.error->description();
    EXPECT_FALSE(result.data);
    EXPECT_EQ(result.response != nullptr, c.withResponse);
    EXPECT_FALSE(result.error->localizedDescription().empty());
    EXPECT_EQ(result.error->localizedDescription().find("SECRET"), std::string::npos);
  }

  // Destroying a session cancels what is in flight and joins its worker.
  server.enqueue(ScriptedResponse::neverAnswer());
  const std::size_t before = server.requests().size();
  auto hanging = start(*session, requestFor(server.baseURL() + "/hang"));
  ASSERT_TRUE(server.waitForRequests(before + 1, 10s));
  session.reset();
  ASSERT_EQ(hanging.wait_for(0s), std::future_status::ready);
  EXPECT_EQ(codeOf(hanging.get()), NYBURLErrorCancelled);
}

// A request goes out from the thread that resumes it, even while the callback queue is held by
// another exchange's completion; and it asks for no content coding that costs more than it saves
// on small answers.
TEST(URLSession, SendsFromTheCallerWhileTheCallbackQueueIsBusyAndAsksOnlyForGzip) {
  LoopbackServer server;
  server.setDefaultResponse(ScriptedResponse::json(200, "{}"));
  auto session = NYBURLSession::sessionWithConfiguration({});
  std::promise<void> entered, release;
  auto released = release.get_future().share();
  auto hold = [&](auto, auto, auto) {
    entered.set_value();
    released.wait_for(10s);
  };
  session->dataTaskWithRequest(requestFor(server.baseURL() + "/first"), hold)->resume();
  ASSERT_EQ(entered.get_future().wait_for(10s), std::future_status::ready);
  auto second = start(*session, requestFor(server.baseURL() + "/second"));
  const bool sentWhileBusy = server.waitForRequests(2, 10s);
  release.set_value();
  EXPECT_TRUE(sentWhileBusy);
  ASSERT_EQ(second.wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(second.get().error);
  for (const auto& request : server.requests()) {
    ASSERT_TRUE(request.header("Accept-Encoding"));
    EXPECT_EQ(*request.header("Accept-Encoding"), "gzip");
  }
}

}  // namespace
}  // namespace nyb
