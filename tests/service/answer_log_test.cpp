// What the log keeps of a long answer: its start, cut between characters,
// and its length, whichever line shows it.
#include <gtest/gtest.h>

#include <future>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBRequest.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;

TEST(AnswerLog, LongAnswersAreShortenedWhereverTheyAreLogged) {
  test::LoopbackServer server;
  test::LogCapture log;
  // The cut at 1024 bytes would split the two bytes of the "é".
  const std::string body = std::string(1023, 'a') + "\xc3\xa9" + std::string(9000, 'z');
  const std::string shown = std::string(1023, 'a') + "... (10025 bytes)";
  server.enqueue(test::ScriptedResponse::json(500, body));
  server.enqueue(test::ScriptedResponse::json(200, body));
  for (int i = 0; i < 2; ++i) {
    NYBRequest request;
    request.setURL(NYBURL::URLWithString(server.baseURL() + "/v1/r"));
    std::promise<void> done;
    request.sendWithCompletion([&](NYBDynamicValue, std::shared_ptr<const NYBHTTPURLResponse>,
                                   std::shared_ptr<NYBError>) { done.set_value(); });
    ASSERT_EQ(done.get_future().wait_for(10s), std::future_status::ready);
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
