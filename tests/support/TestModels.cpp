#include "support/TestModels.h"

#include "NymbrelCore/NYBFormatter.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"

namespace nyb::test {

namespace {

class TestEmployeeClass : public TestPersonClass {
 public:
  using TestPersonClass::TestPersonClass;
  std::string title() const override { return "Employee"; }
};

std::shared_ptr<NYBValueTransformer> dateTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->dateFromString(
            v.stringView());
      },
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->stringFromDate(v.date());
      });
}

std::shared_ptr<NYBValueTransformer> addressTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        return v.isDictionary() ? NYBDynamicValue(TestAddress::modelFromJSONObject(v))
                                : NYBDynamicValue();
      },
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        auto address = v.objectAs<TestAddress>();
        return address ? NYBDynamicValue(address->JSONObject()) : v;
      });
}

// One-way: the model base never reverses it, so the value goes out raw.
std::shared_ptr<NYBValueTransformer> kindTransformer(const NYBModelClass& receiver) {
  std::string title = static_cast<const TestPersonClass&>(receiver).title();
  return NYBValueTransformer::transformerUsingForwardBlock(
      [title](const NYBDynamicValue& v) -> NYBDynamicValue {
        return v.isPresent() ? v : NYBDynamicValue(title);
      });
}

NYBKeyMap personKeys(NYBKeyMap more = {}) {
  NYBKeyMap keys = {
      {"name", "name"},     {"birthday", "birth_day"}, {"address", "address"}, {"tags", "tags"},
      {"city", "city"},     {"identifier", "_id"},     {"kind", "kind"},       {"age", "age"},
      {"active", "active"}, {"notAProperty", "ghost"}};
  keys.insert(keys.end(), more.begin(), more.end());
  return keys;
}

}  // namespace

void TestPerson::setName(NYBDynamicValue value) {
  name = value;
  std::string_view text = value.stringView();
  nickname = value.isString() ? NYBDynamicValue(text.substr(0, text.find(' '))) : NYBDynamicValue();
}

NYBDynamicValue TestCircle::area() const {
  return radius.isNumber() ? NYBDynamicValue(3.0 * radius.doubleValue() * radius.doubleValue())
                           : NYBDynamicValue();
}

const NYBModelClass& TestCircle::staticClass() {
  static const NYBModelClass cls({"TestCircle",
                                  &NYBModel::staticClass(),
                                  [] { return std::make_shared<TestCircle>(); },
                                  NYBPropertyTable::of<TestCircle>()
                                      .field("radius", &TestCircle::radius)
                                      .computed("area", &TestCircle::area),
                                  NYBKeyMap{{"radius", "r"}, {"area", "area"}},
                                  {}});
  return cls;
}

const NYBModelClass& TestAddress::staticClass() {
  static const NYBModelClass cls({"TestAddress",
                                  &NYBModel::staticClass(),
                                  [] { return std::make_shared<TestAddress>(); },
                                  NYBPropertyTable::of<TestAddress>()
                                      .field("street", &TestAddress::street)
                                      .field("city", &TestAddress::city),
                                  NYBKeyMap{{"street", "street"}, {"city", "city"}},
                                  {}});
  return cls;
}

const TestPersonClass& TestPerson::staticClass() {
  static const TestPersonClass cls({"TestPerson",
                                    &NYBModel::staticClass(),
                                    [] { return std::make_shared<TestPerson>(); },
                                    NYBPropertyTable::of<TestPerson>()
                                        .field("name", &TestPerson::name, &TestPerson::setName)
                                        .field("nickname", &TestPerson::nickname)
                                        .field("birthday", &TestPerson::birthday)
                                        .field("address", &TestPerson::address)
                                        .field("tags", &TestPerson::tags)
                                        .field("city", &TestPerson::city)
                                        .field("identifier", &TestPerson::identifier)
                                        .field("kind", &TestPerson::kind)
                                        .unsignedScalar("age", &TestPerson::age)
                                        .boolScalar("active", &TestPerson::active),
                                    personKeys(),
                                    {{"birthdayTransformer", dateTransformer},
                                     {"addressTransformer", addressTransformer},
                                     {"kindTransformer", kindTransformer}}});
  return cls;
}

const TestPersonClass& TestEmployee::staticClass() {
  static const TestEmployeeClass cls(
      {"TestEmployee",
       &TestPerson::staticClass(),
       [] { return std::make_shared<TestEmployee>(); },
       NYBPropertyTable::of<TestEmployee>().field("employer", &TestEmployee::employer),
       personKeys({{"employer", "employer"}}),
       {}});
  return cls;
}

}  // namespace nyb::test
