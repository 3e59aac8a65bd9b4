// How the devserver encodes its answers: small ones as they are, large ones with gzip when
// the client takes it, never with brotli.
#include <gtest/gtest.h>

#include "DevServer.h"

namespace nyb::test {
namespace {

TEST(EncodingTest, OnlyLargeAnswersAreCompressedAndOnlyWithGzip) {
  DevServer server;
  auto client = server.client();
  client->set_decompress(false);
  const httplib::Headers offered{{"Accept-Encoding", "br, gzip"}};
  for (int i = 0; i < 10; ++i) {
    auto created =
        client->Post(collectionPath("weight"), offered,
                     wrapped("weight", weightRecord("a" + std::to_string(i))), "application/json");
    ASSERT_TRUE(created);
    EXPECT_EQ(created->status, 201);
    EXPECT_FALSE(created->has_header("Content-Encoding"));
  }
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"br, gzip", "gzip"}, {"br", ""}, {"gzip;q=0, br", ""}, {"identity", ""}};
  for (const auto& [accepted, coding] : cases) {
    SCOPED_TRACE(accepted);
    auto listed = client->Get(collectionPath("weight"), {{"Accept-Encoding", accepted}});
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->status, 200);
    EXPECT_EQ(listed->get_header_value("Content-Encoding"), coding);
    if (coding.empty()) {
      EXPECT_EQ(parse(listed->body)["weight"].Size(), 10u);
    } else {
      EXPECT_EQ(listed->body.substr(0, 2), "\x1f\x8b");
    }
  }
}

}  // namespace
}  // namespace nyb::test
