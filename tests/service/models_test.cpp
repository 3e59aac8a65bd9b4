// The small models of the service layer: the user and the service's plain answers.

#include <gtest/gtest.h>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBServerResponse.h"
#include "NymbrelCore/NYBUser.h"

namespace nyb {
namespace {

TEST(ServiceModels, UsersKeepTheirCredentialsThroughTheArchiveButNotJSON) {
  auto four = std::make_shared<NYBUser>("u-1", "org-9", "tok", "market");
  EXPECT_FALSE(four->isEqual(NYBUser("u-1", "org-9", "tok")));

  // No key map: the service never sees a user, but the session archive keeps it.
  EXPECT_TRUE(four->JSONObject().empty());
  auto decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(
                     NYBKeyedArchiver::archivedDataWithRootObject(four))
                     .objectAs<NYBUser>();
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->isEqual(*four));
}

TEST(ServiceModels, ServerResponsesKeepWhatTheServiceSends) {
  auto response = NYBServerResponse::modelFromJSONObject(
      NYBDictionary{{"code", 422},
                    {"message", "Invalid record"},
                    {"errors", NYBArray{"timestamp is required"}},
                    {"activity_id", "A-1"}});
  EXPECT_EQ(response->code(), NYBDynamicValue(422));
  EXPECT_EQ(response->message(), NYBDynamicValue("Invalid record"));
  EXPECT_EQ(response->errors(), NYBDynamicValue(NYBArray{"timestamp is required"}));
  EXPECT_EQ(response->activityID(), NYBDynamicValue("A-1"));
  EXPECT_EQ(response->JSONObject()["activity_id"], NYBDynamicValue("A-1"));

  auto without = NYBServerResponse::modelFromJSONObject(
      NYBDictionary{{"code", 200}, {"activity_id", NYBDynamicValue::null()}});
  EXPECT_TRUE(without->activityID().isAbsent());
  EXPECT_TRUE(NYBServerResponse::modelFromJSONObject(NYBDictionary{})->activityID().isAbsent());
  EXPECT_EQ(without->JSONObject(), (NYBDictionary{{"code", 200}}));
}

}  // namespace
}  // namespace nyb
