// NYBModel: the base of every data object of the library, and NYBModelClass,
// the class object of every model class.
//
// From each class's property table (its own properties, then its ancestors'
// up to NYBModel), one generic mechanism gives every model: building from a
// dictionary of property values, reading all values as a dictionary, the JSON
// document through the class's key map and its "<property>Transformer"
// class-level operations, keyed archiving, copying, value equality with a
// matching hash, and a description. A subclass adds only its properties, its
// key map and its transformers (see NYBModelClass).
//
// Models are plain values held by std::shared_ptr: an object is used from one
// thread at a time and released by its last owner. Class objects are
// immutable after construction and may be used from any thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBPropertyTable.h"
#include "NymbrelCore/NYBValueTransformer.h"

namespace nyb {

class NYBModel;
class NYBModelClass;

// A key map: property name to JSON key, in the order the JSON document lists them.
using NYBKeyMap = std::vector<std::pair<std::string, std::string>>;

// A class-level transformer operation. It receives the class that was asked,
// so that what it does can depend on the receiving class.
using NYBTransformerOperation =
    std::function<std::shared_ptr<NYBValueTransformer>(const NYBModelClass& receiver)>;
using NYBTransformerOperations = std::vector<std::pair<std::string, NYBTransformerOperation>>;

class NYB_EXPORT NYBModelClass : public NYBClass {
 public:
  struct Definition {
    std::string name;
    const NYBModelClass* superclass = nullptr;
    std::function<std::shared_ptr<NYBModel>()> plainInit;
    NYBPropertyTable properties;
    std::optional<NYBKeyMap> keyMap;
    NYBTransformerOperations transformers;
  };
  explicit NYBModelClass(Definition definition);

  // The table of the properties this class declares itself.
  const NYBPropertyTable& ownProperties() const { return ownProperties_; }
  // Every property of the class and its ancestors below NYBModel, the most
  // basic class first, each in declaration order; a subclass's redeclaration
  // takes its ancestor's place.
  const std::vector<const NYBPropertyInfo*>& allProperties() const { return allProperties_; }
  const NYBPropertyInfo* propertyNamed(std::string_view name) const;

  // The names of allProperties(); empty on NYBModel.
  std::vector<std::string> propertyKeys() const;
  // The key map: this class's own, else its nearest ancestor's; null on
  // NYBModel.
  virtual const NYBKeyMap* JSONKeyPaths() const;
  // The transformer of the class-level operation named "<key>Transformer" of
  // this class or an ancestor, made anew; null when there is none.
  std::shared_ptr<NYBValueTransformer> valueTransformerForKey(std::string_view key) const;
  // Calls the class-level transformer operation of that name, searching this
  // class and then its ancestors; null when none has it.
  virtual std::shared_ptr<NYBValueTransformer> performTransformerOperation(
      std::string_view operationName) const;

  // A new instance of this class from a JSON dictionary. A json that is not a
  // dictionary raises an invalid-argument failure.
  std::shared_ptr<NYBModel> modelFromJSONObject(const NYBDynamicValue& json) const;
  // A new instance by the plain initialiser, then initWithDictionary().
  std::shared_ptr<NYBModel> modelWithDictionary(const NYBDictionary& dictionary) const;
  // A new instance by the plain initialiser.
  std::shared_ptr<NYBModel> newModel() const;

  std::shared_ptr<NYBObject> newInstance() const override;
  bool supportsSecureCoding() const override { return true; }
  std::shared_ptr<NYBObject> newWithCoder(NYBKeyedUnarchiver& coder) const override;

 private:
  std::function<std::shared_ptr<NYBModel>()> plainInit_;
  NYBPropertyTable ownProperties_;
  std::optional<NYBKeyMap> keyMap_;
  NYBTransformerOperations transformers_;
  std::vector<const NYBPropertyInfo*> allProperties_;
  std::unordered_map<std::string_view, const NYBPropertyInfo*> byName_;
};

// Declares a model class's class-object accessors and the class-level
// conveniences that forward to its class object, so that T::propertyKeys()
// and T::modelFromJSONObject() dispatch on T, not on an ancestor.
#define NYB_DECLARE_MODEL(Self, ClassObjectType)                                          \
  NYB_DECLARE_CLASS(ClassObjectType)                                                      \
 public:                                                                                  \
  static std::vector<std::string> propertyKeys() { return staticClass().propertyKeys(); } \
  static const ::nyb::NYBKeyMap* JSONKeyPaths() { return staticClass().JSONKeyPaths(); }  \
  static std::shared_ptr<::nyb::NYBValueTransformer> valueTransformerForKey(              \
      std::string_view key) {                                                             \
    return staticClass().valueTransformerForKey(key);                                     \
  }                                                                                       \
  static std::shared_ptr<Self> modelFromJSONObject(const ::nyb::NYBDynamicValue& json) {  \
    return std::static_pointer_cast<Self>(staticClass().modelFromJSONObject(json));       \
  }                                                                                       \
  static std::shared_ptr<Self> modelWithDictionary(const ::nyb::NYBDictionary& values) {  \
    return std::static_pointer_cast<Self>(staticClass().modelWithDictionary(values));     \
  }

class NYB_EXPORT NYBModel : public NYBObject {
  NYB_DECLARE_MODEL(NYBModel, NYBModelClass)
 public:
  NYBModel() = default;

  // Generic get by property name: a scalar comes back boxed, an unset object
  // property as absent. An unknown name raises an unknown-key failure.
  NYBDynamicValue valueForKey(std::string_view key) const;
  // Generic set: the setter runs (with its side effects), else the backing
  // field is stored. An unknown name raises an unknown-key failure; absent for
  // a scalar raises an invalid-argument failure.
  void setValue(const NYBDynamicValue& value, std::string_view key);

  // Every property name mapped to its value, the null marker for absent ones.
  NYBDictionary dictionaryValue() const;
  // Applies a dictionary of property values to a plainly initialised object,
  // in the dictionary's order, null markers read as absent. Failures are not
  // caught.
  virtual void initWithDictionary(const NYBDictionary& dictionary);
  // The JSON dictionary keyed by JSON keys; absent properties are left out.
  NYBDictionary JSONObject() const;

  void encodeWithCoder(NYBKeyedArchiver& coder) const override;
  // Applies the properties found in a keyed archive to a plainly initialised
  // object.
  virtual void initWithCoder(NYBKeyedUnarchiver& coder);

  // A new object of the same class made from dictionaryValue(); shallow.
  std::shared_ptr<NYBModel> copy() const;
  template <typename T>
  std::shared_ptr<T> copyAs() const {
    return std::static_pointer_cast<T>(copy());
  }

  // "<ClassName: 0x...>\n" followed by the description of dictionaryValue().
  std::string description() const override;
  // The exclusive-or of every property value's hash.
  std::size_t hash() const override;
  // Exactly the same class and every property pairwise equal.
  bool isEqual(const NYBObject& other) const override;
};

}  // namespace nyb
