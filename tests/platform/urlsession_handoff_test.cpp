// How the libcurl URL session meets its callers: what it asks of the server
// and which thread does the sending.
#include <gtest/gtest.h>

#include <future>

#include "NymbrelCore/NYBURLSession.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::ScriptedResponse;

std::shared_ptr<NYBURLSessionDataTask> get(NYBURLSession& session, const std::string& url,
                                           NYBURLSessionCompletion completion) {
  NYBURLRequest request;
  request.URL = NYBURL::URLWithString(url);
  return session.dataTaskWithRequest(std::move(request), std::move(completion));
}

// A request goes out from the thread that resumes it, even while the callback
// queue is held by another exchange's completion; and it asks for no content
// coding that costs more than it saves on small answers.
TEST(URLSession, SendsFromTheCallerWhileTheCallbackQueueIsBusyAndAsksOnlyForGzip) {
  LoopbackServer server;
  server.setDefaultResponse(ScriptedResponse::json(200, "{}"));
  auto session = NYBURLSession::sessionWithConfiguration({});
  std::promise<void> entered, release, secondDone;
  auto released = release.get_future().share();
  get(*session, server.baseURL() + "/first", [&](auto, auto, auto) {
    entered.set_value();
    released.wait_for(10s);
  })->resume();
  ASSERT_EQ(entered.get_future().wait_for(10s), std::future_status::ready);

  get(*session, server.baseURL() + "/second", [&](auto data, auto, auto error) {
    EXPECT_TRUE(data && !error);
    secondDone.set_value();
  })->resume();
  const bool sentWhileBusy = server.waitForRequests(2, 10s);
  release.set_value();
  EXPECT_TRUE(sentWhileBusy);
  ASSERT_EQ(secondDone.get_future().wait_for(10s), std::future_status::ready);

  for (const auto& request : server.requests()) {
    ASSERT_TRUE(request.header("Accept-Encoding"));
    EXPECT_EQ(*request.header("Accept-Encoding"), "gzip");
  }
}

}  // namespace
}  // namespace nyb
