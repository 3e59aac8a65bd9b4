// A host application's subclass of a record type that declares nothing of its
// own behaves as its parent at every class-level operation: the same key map,
// properties and transformers, and JSON read back into the subclass.
#include <gtest/gtest.h>

#include <memory>

#include "NymbrelCore/NYBDate.h"
#include "NymbrelCore/NYBWeight.h"

namespace nyb {
namespace {

class HostWeight : public NYBWeight {
  NYB_DECLARE_MODEL(HostWeight, NYBRecordClass)
};

const NYBRecordClass& HostWeight::staticClass() {
  static const NYBRecordClass cls({"HostWeight",
                                   &NYBWeight::staticClass(),
                                   [] { return std::make_shared<HostWeight>(); },
                                   NYBPropertyTable::of<HostWeight>(),
                                   std::nullopt,
                                   {}});
  return cls;
}

TEST(HostSubclass, InheritsEveryClassLevelOperationOfItsParent) {
  ASSERT_NE(HostWeight::JSONKeyPaths(), nullptr);
  EXPECT_EQ(*HostWeight::JSONKeyPaths(), *NYBWeight::JSONKeyPaths());
  EXPECT_EQ(HostWeight::propertyKeys(), NYBWeight::propertyKeys());
  EXPECT_NE(HostWeight::valueTransformerForKey("timestamp"), nullptr);

  auto parent = std::make_shared<NYBWeight>();
  auto child = std::make_shared<HostWeight>();
  for (const auto& record :
       {std::static_pointer_cast<NYBWeight>(parent), std::static_pointer_cast<NYBWeight>(child)}) {
    record->setTimestamp(NYBDate(1.5e9));
    record->setWeight(165.3, NYBWeightUnitPounds);
    record->setActivityID("a-1");
  }
  const NYBDictionary json = child->JSONObject();
  EXPECT_EQ(json, parent->JSONObject());
  EXPECT_TRUE(json.find("weight") != nullptr && json.find("timestamp") != nullptr);

  std::shared_ptr<HostWeight> back = HostWeight::modelFromJSONObject(NYBDynamicValue(json));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->className(), "HostWeight");
  EXPECT_EQ(back->JSONObject(),
            NYBWeight::modelFromJSONObject(NYBDynamicValue(json))->JSONObject());
}

}  // namespace
}  // namespace nyb
