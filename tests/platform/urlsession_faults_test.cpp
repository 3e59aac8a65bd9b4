// The libcurl URL session against servers that misbehave after the request
// went out: a kept-alive connection that dies, redirects, answers that never
// end or never stop growing. Each ends in one completion with a transport
// error, and no request reaches the server twice or leaves its origin.
#include <gtest/gtest.h>

#include <future>

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
};

// Runs one exchange and waits, boundedly, for its completion.
Result run(NYBURLSession& session, const std::string& url, std::string method = "GET",
           std::optional<std::string> body = std::nullopt) {
  NYBURLRequest request;
  request.URL = NYBURL::URLWithString(url);
  request.HTTPMethod = std::move(method);
  if (body) request.HTTPBody = NYBData(*body);
  auto done = std::make_shared<std::promise<Result>>();
  session
      .dataTaskWithRequest(
          std::move(request),
          [done](std::optional<NYBData> d, std::shared_ptr<const NYBHTTPURLResponse> r,
                 std::shared_ptr<NYBError> e) {
            done->set_value({std::move(d), std::move(r), std::move(e)});
          })
      ->resume();
  auto future = done->get_future();
  if (future.wait_for(10s) != std::future_status::ready) {
    ADD_FAILURE() << "no completion for " << url;
    return {};
  }
  return future.get();
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
  NYBURLSessionConfiguration small;
  small.maximumResponseBodyBytes = 4096;
  small.maximumResponseHeaderBytes = 4096;
  small.timeoutIntervalForResource = 1.0;  // the no-progress time-out stays at sixty seconds
  auto session = NYBURLSession::sessionWithConfiguration(small);

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

}  // namespace
}  // namespace nyb
