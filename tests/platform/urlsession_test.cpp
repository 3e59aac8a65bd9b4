// The libcurl URL session against a real server on 127.0.0.1: what goes out,
// what comes back, connection reuse, and that every failure ends in exactly
// one completion carrying a transport error.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "NymbrelCore/NYBURLSession.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::ScriptedResponse;

// The completions of one exchange; wait() is bounded.
struct Outcome {
  std::mutex mutex;
  std::condition_variable changed;
  int calls = 0;
  std::optional<NYBData> data;
  std::shared_ptr<const NYBHTTPURLResponse> response;
  std::shared_ptr<NYBError> error;
  std::thread::id thread;

  NYBURLSessionCompletion handler() {
    return [this](std::optional<NYBData> d, std::shared_ptr<const NYBHTTPURLResponse> r,
                  std::shared_ptr<NYBError> e) {
      std::lock_guard lock(mutex);
      ++calls;
      data = std::move(d);
      response = std::move(r);
      error = std::move(e);
      thread = std::this_thread::get_id();
      changed.notify_all();
    };
  }
  bool wait() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 10s, [&] { return calls > 0; });
  }
};

NYBURLRequest requestFor(const std::string& url, std::string method = "GET") {
  NYBURLRequest request;
  request.URL = NYBURL::URLWithString(url);
  request.HTTPMethod = std::move(method);
  return request;
}

void exchange(NYBURLSession& session, const NYBURLRequest& request, Outcome& outcome) {
  session.dataTaskWithRequest(request, outcome.handler())->resume();
  ASSERT_TRUE(outcome.wait());
}

TEST(URLSession, SendsRequestsAsBuiltOverOneKeptConnection) {
  LoopbackServer server;
  ScriptedResponse created = ScriptedResponse::json(201, R"({"ok":true})");
  created.headers.emplace_back("X-Trace", "abc");
  server.enqueue(created);
  server.enqueue(ScriptedResponse::noContent());
  server.enqueue(ScriptedResponse::json(200, ""));
  auto session = NYBURLSession::sessionWithConfiguration({});

  NYBURLRequest put = requestFor(server.baseURL() + "/v1/items?x=1", "PUT");
  put.setValueForHTTPHeaderField("application/json", "Accept");
  put.setValueForHTTPHeaderField("one", "X-First");
  put.setValueForHTTPHeaderField("text/plain", "Content-Type");
  put.setValueForHTTPHeaderField("ONE", "x-first");  // replaces, keeps its place
  const std::string body("binary\0body\r\n", 13);
  put.HTTPBody = NYBData(body);
  Outcome putOutcome, deleteOutcome, postOutcome;
  exchange(*session, put, putOutcome);
  exchange(*session, requestFor(server.baseURL() + "/a", "DELETE"), deleteOutcome);
  exchange(*session, requestFor(server.baseURL() + "/b", "POST"), postOutcome);

  const auto sent = server.requests();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].method, "PUT");
  EXPECT_EQ(sent[0].target, "/v1/items?x=1");
  EXPECT_EQ(sent[0].body, body);
  EXPECT_EQ(*sent[0].header("Content-Length"), "13");
  EXPECT_EQ(*sent[0].header("X-First"), "ONE");
  EXPECT_FALSE(sent[0].header("Expect"));
  std::vector<std::string> ours;  // in their order, whatever libcurl adds around them
  for (const auto& name : sent[0].headerNames()) {
    if (name == "Accept" || name == "X-First" || name == "Content-Type") ours.push_back(name);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{"Accept", "X-First", "Content-Type"}));
  EXPECT_EQ(sent[1].method, "DELETE");
  EXPECT_FALSE(sent[1].header("Content-Length"));
  EXPECT_EQ(sent[2].method, "POST");
  EXPECT_EQ(*sent[2].header("Content-Length"), "0");
  EXPECT_FALSE(sent[2].header("Content-Type"));  // no form type slipped in
  EXPECT_EQ(server.connectionCount(), 1u);

  EXPECT_FALSE(putOutcome.error);
  EXPECT_EQ(putOutcome.data->view(), R"({"ok":true})");
  EXPECT_EQ(putOutcome.response->statusCode(), 201);
  EXPECT_EQ(*putOutcome.response->valueForHTTPHeaderField("x-trace"), "abc");
  // A 204 and an empty 200 are empty data, not failures.
  EXPECT_EQ(deleteOutcome.response->statusCode(), 204);
  for (Outcome* empty : {&deleteOutcome, &postOutcome}) {
    EXPECT_FALSE(empty->error);
    ASSERT_TRUE(empty->data);
    EXPECT_TRUE(empty->data->empty());
  }
  // Completions run on the session's one callback thread, not the caller's.
  EXPECT_NE(putOutcome.thread, std::this_thread::get_id());
  EXPECT_EQ(deleteOutcome.thread, putOutcome.thread);
  EXPECT_EQ(postOutcome.thread, putOutcome.thread);
}

TEST(URLSession, TransportFailuresEndInOneCompletionWithAClearError) {
  LoopbackServer server;
  NYBURLSessionConfiguration quick;
  quick.timeoutIntervalForRequest = 1.0;  // the test seam: one second instead of sixty
  auto session = NYBURLSession::sessionWithConfiguration(quick);
  const std::string secret = "/private?authentication_token=SECRET";
  int closedPort = 0;
  {
    LoopbackServer gone;
    closedPort = gone.port();
  }

  struct Case {
    const char* name;
    std::optional<ScriptedResponse> script;
    NYBURLRequest request;
    NYBURLErrorCode code;
    bool withResponse;
  };
  const std::string base = server.baseURL();
  const std::vector<Case> cases = {
      {"no URL", std::nullopt, NYBURLRequest(), NYBURLErrorUnsupportedURL, false},
      {"not HTTP", std::nullopt, requestFor("ftp://127.0.0.1/file"), NYBURLErrorUnsupportedURL,
       false},
      {"refused", std::nullopt,
       requestFor("http://127.0.0.1:" + std::to_string(closedPort) + secret),
       NYBURLErrorCannotConnectToHost, false},
      {"reset", ScriptedResponse::reset(), requestFor(base + secret),
       NYBURLErrorNetworkConnectionLost, false},
      {"closed mid-answer", ScriptedResponse::closeMidAnswer(200, R"({"par)", 100),
       requestFor(base + secret), NYBURLErrorNetworkConnectionLost, true},
      {"garbage", ScriptedResponse::garbage("NOT HTTP AT ALL\r\n\r\n"), requestFor(base + secret),
       NYBURLErrorBadServerResponse, false},
      {"never answers", ScriptedResponse::neverAnswer(), requestFor(base + secret),
       NYBURLErrorTimedOut, false},
  };
  std::vector<std::unique_ptr<Outcome>> outcomes;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.script) server.enqueue(*c.script);
    outcomes.push_back(std::make_unique<Outcome>());
    Outcome& outcome = *outcomes.back();
    exchange(*session, c.request, outcome);
    std::lock_guard lock(outcome.mutex);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain(), kNYBURLErrorDomain);
    EXPECT_EQ(outcome.error->code(), c.code) << outcome.error->description();
    EXPECT_FALSE(outcome.data);
    EXPECT_EQ(outcome.response != nullptr, c.withResponse);
    EXPECT_FALSE(outcome.error->localizedDescription().empty());
    EXPECT_EQ(outcome.error->localizedDescription().find("SECRET"), std::string::npos);
  }
  // Released sessions have finished every call they will ever make.
  session.reset();
  for (const auto& outcome : outcomes) EXPECT_EQ(outcome->calls, 1);
}

TEST(URLSession, DestroyingASessionCancelsWhatIsInFlight) {
  LoopbackServer server;
  server.enqueue(ScriptedResponse::neverAnswer());
  auto session = NYBURLSession::sessionWithConfiguration({});
  Outcome outcome;
  session->dataTaskWithRequest(requestFor(server.baseURL() + "/hang"), outcome.handler())->resume();
  ASSERT_TRUE(server.waitForRequests(1, 10s));
  session.reset();  // joins the worker: the completion has run by now
  std::lock_guard lock(outcome.mutex);
  EXPECT_EQ(outcome.calls, 1);
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->code(), NYBURLErrorCancelled);
}

}  // namespace
}  // namespace nyb
