// Data points appended to an intraday record: in order, and a list handed out
// earlier (a copy of the value, a copy of the record) never changes after.
#include <gtest/gtest.h>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBIntraDay.h"

namespace nyb {
namespace {

TEST(IntraDayPoints, AppendsInOrderWithoutChangingWhatWasHandedOut) {
  auto record = std::make_shared<NYBIntraDay>();
  record->addValue(1, NYBDate(1.5e9), NYBDate(1.5e9 + 60));
  record->addValue(2, NYBDate(1.5e9 + 60), NYBDate(1.5e9 + 120));
  const NYBDynamicValue handedOut = record->entries();
  auto copied = record->copyAs<NYBIntraDay>();
  for (int i = 3; i <= 1000; ++i) record->addValue(i, NYBDate(1.5e9), NYBDate(1.5e9 + 60));

  ASSERT_EQ(handedOut.array()->size(), 2U);
  ASSERT_EQ(copied->entries().array()->size(), 2U);
  const NYBArray& points = *record->entries().array();
  ASSERT_EQ(points.size(), 1000U);
  for (int i = 0; i < 1000; ++i)
    EXPECT_EQ((*points[i].dictionary())["value"], NYBDynamicValue(i + 1));
  EXPECT_EQ(record->JSONObject()["data_points"].array()->size(), 1000U);

  copied->addValue(99, NYBDate(1.5e9), NYBDate(1.5e9 + 60));
  EXPECT_EQ(handedOut.array()->size(), 2U);
  EXPECT_EQ(record->entries().array()->size(), 1000U);
}

}  // namespace
}  // namespace nyb
