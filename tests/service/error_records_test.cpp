// The "Invalid records" error lists every activity ID in order, an empty one
// and a missing one included, so the list lines up with "errorRecords".
#include <gtest/gtest.h>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBServerResponse.h"

namespace nyb {
namespace {

std::shared_ptr<NYBServerResponse> responseFor(NYBDynamicValue activityID) {
  auto response = std::make_shared<NYBServerResponse>();
  response->setActivityID(std::move(activityID));
  return response;
}

TEST(ErrorRecords, EveryActivityIDTakesItsPlaceInTheDescription) {
  struct Case {
    std::vector<std::shared_ptr<NYBServerResponse>> responses;
    std::string description;
  };
  const Case cases[] = {
      {{responseFor(""), responseFor("b")}, "Invalid records: , b"},
      {{responseFor("a"), responseFor(""), responseFor("")}, "Invalid records: a, , "},
      {{responseFor(NYBDynamicValue()), responseFor("c")}, "Invalid records: (null), c"},
  };
  for (const Case& c : cases) {
    auto error = NYBAPIClient::APIErrorWithErrorRecords(c.responses);
    EXPECT_EQ(error->localizedDescription(), c.description);
    EXPECT_EQ(error->code(), NYBAPIErrorInvalidRecords);
    EXPECT_EQ(error->userInfo()["errorRecords"].array()->size(), c.responses.size());
  }
}

}  // namespace
}  // namespace nyb
