// Small model classes that exercise the model base: scalar, string, date,
// nested-model and dictionary properties, a setter with a side effect, a
// read-only field, a derived property, transformers, and a subclass whose class
// object overrides a class-level operation.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "NymbrelCore/NYBModel.h"

namespace nyb::test {

class TestAddress : public NYBModel {
  NYB_DECLARE_MODEL(TestAddress, NYBModelClass)
 public:
  NYBDynamicValue street;
  NYBDynamicValue city;
};

// The class object of TestPerson: adds one class-level operation that
// subclasses override.
class TestPersonClass : public NYBModelClass {
 public:
  using NYBModelClass::NYBModelClass;
  virtual std::string title() const { return "Person"; }
};

class TestPerson : public NYBModel {
  NYB_DECLARE_MODEL(TestPerson, TestPersonClass)
 public:
  // The plain initialiser's default.
  TestPerson() : city("Springfield") {}

  // Setting the name also sets the nickname: its first word.
  void setName(NYBDynamicValue value);
  NYBDynamicValue name;
  NYBDynamicValue nickname;
  NYBDynamicValue birthday;    // date; "birth_day" through birthdayTransformer
  NYBDynamicValue address;     // TestAddress; through addressTransformer
  NYBDynamicValue tags;        // dictionary
  NYBDynamicValue city;        // default "Springfield"
  NYBDynamicValue identifier;  // read-only: no setter, settable generically through its field
  NYBDynamicValue kind;        // kindTransformer: the receiving class's title()
  std::uint64_t age = 0;
  bool active = false;
};

// A read-only derived property without a field: readable, never settable, so
// the generic copy (which sets every property) refuses the class.
class TestCircle : public NYBModel {
  NYB_DECLARE_MODEL(TestCircle, NYBModelClass)
 public:
  NYBDynamicValue area() const;
  NYBDynamicValue radius;
};

class TestEmployee : public TestPerson {
  NYB_DECLARE_MODEL(TestEmployee, TestPersonClass)
 public:
  NYBDynamicValue employer;
};

}  // namespace nyb::test
