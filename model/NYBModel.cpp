#include "NymbrelCore/NYBModel.h"

#include <algorithm>
#include <cstdio>

#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"
#include "platform/Log.h"

namespace nyb {

// ---- NYBModelClass --------------------------------------------------------

NYBModelClass::NYBModelClass(Definition d)
    : NYBClass(std::move(d.name), d.superclass),
      plainInit_(std::move(d.plainInit)),
      ownProperties_(std::move(d.properties)),
      keyMap_(std::move(d.keyMap)),
      transformers_(std::move(d.transformers)) {
  // The flattened table: ancestors first; a redeclared name keeps its
  // ancestor's place but takes this class's entry.
  if (d.superclass != nullptr) {
    allProperties_ = d.superclass->allProperties_;
  }
  for (const NYBPropertyInfo& info : ownProperties_.entries()) {
    auto same = std::find_if(allProperties_.begin(), allProperties_.end(),
                             [&](const NYBPropertyInfo* p) { return p->name == info.name; });
    if (same != allProperties_.end()) {
      *same = &info;
    } else {
      allProperties_.push_back(&info);
    }
  }
  for (const NYBPropertyInfo* info : allProperties_) byName_.emplace(info->name, info);
}

const NYBPropertyInfo* NYBModelClass::propertyNamed(std::string_view name) const {
  auto it = byName_.find(name);
  return it == byName_.end() ? nullptr : it->second;
}

std::vector<std::string> NYBModelClass::propertyKeys() const {
  std::vector<std::string> keys;
  keys.reserve(allProperties_.size());
  for (const NYBPropertyInfo* info : allProperties_) keys.push_back(info->name);
  return keys;
}

// A class that declares no key map of its own inherits its nearest ancestor's,
// as every class-level operation is inherited.
const NYBKeyMap* NYBModelClass::JSONKeyPaths() const {
  for (const NYBClass* c = this; c != nullptr; c = c->superclass()) {
    const auto* modelClass = dynamic_cast<const NYBModelClass*>(c);
    if (modelClass == nullptr) break;
    if (modelClass->keyMap_) return &*modelClass->keyMap_;
  }
  return nullptr;
}

std::shared_ptr<NYBValueTransformer> NYBModelClass::performTransformerOperation(
    std::string_view operationName) const {
  for (const NYBClass* c = this; c != nullptr; c = c->superclass()) {
    const auto* modelClass = dynamic_cast<const NYBModelClass*>(c);
    if (modelClass == nullptr) break;
    for (const auto& [name, operation] : modelClass->transformers_) {
      if (name == operationName) return operation(*this);
    }
  }
  return nullptr;
}

std::shared_ptr<NYBValueTransformer> NYBModelClass::valueTransformerForKey(
    std::string_view key) const {
  std::string operationName;
  operationName.reserve(key.size() + 11);
  operationName.append(key).append("Transformer");
  return performTransformerOperation(operationName);
}

std::shared_ptr<NYBModel> NYBModelClass::newModel() const {
  if (!plainInit_) return nullptr;
  return plainInit_();
}

std::shared_ptr<NYBObject> NYBModelClass::newInstance() const { return newModel(); }

std::shared_ptr<NYBModel> NYBModelClass::modelWithDictionary(const NYBDictionary& values) const {
  std::shared_ptr<NYBModel> model = newModel();
  if (model) model->initWithDictionary(values);
  return model;
}

std::shared_ptr<NYBModel> NYBModelClass::modelFromJSONObject(const NYBDynamicValue& json) const {
  const NYBDictionary* document = json.dictionary();
  if (document == nullptr) {
    throw NYBInvalidArgumentException("+[" + name() +
                                      " modelFromJSONObject:]: JSON object is not a dictionary");
  }
  NYBDictionary values;
  if (const NYBKeyMap* keyMap = JSONKeyPaths()) {
    values.reserve(keyMap->size());
    for (const auto& [property, jsonKey] : *keyMap) {
      std::shared_ptr<NYBValueTransformer> transformer = valueTransformerForKey(property);
      const NYBDynamicValue* found = document->find(jsonKey);
      if (found != nullptr && found->isNull()) continue;
      if (transformer) {
        NYBDynamicValue transformed =
            transformer->transformedValue(found ? *found : NYBDynamicValue());
        if (transformed.isPresent()) values.set(property, std::move(transformed));
      } else if (found != nullptr) {
        values.set(property, *found);
      }
    }
  }
  return modelWithDictionary(values);
}

std::shared_ptr<NYBObject> NYBModelClass::newWithCoder(NYBKeyedUnarchiver& coder) const {
  std::shared_ptr<NYBModel> model = newModel();
  if (model) model->initWithCoder(coder);
  return model;
}

// ---- NYBModel ---------------------------------------------------------------

const NYBModelClass& NYBModel::staticClass() {
  static const NYBModelClass modelClass(NYBModelClass::Definition{
      "NYBModel", nullptr, [] { return std::make_shared<NYBModel>(); }, {}, std::nullopt, {}});
  return modelClass;
}

namespace {

[[noreturn]] void unknownKey(const NYBModel& model, std::string_view key, bool setting) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&model));
  throw NYBUnknownKeyException("[<" + model.className() + " " + address + "> " +
                               (setting ? "setValue:forUndefinedKey:" : "valueForUndefinedKey:") +
                               "]: this class is not key value coding-compliant for the key " +
                               std::string(key) + ".");
}

}  // namespace

NYBDynamicValue NYBModel::valueForKey(std::string_view key) const {
  const NYBPropertyInfo* info = classObject().propertyNamed(key);
  if (info == nullptr) unknownKey(*this, key, false);
  return info->getter(*this);
}

void NYBModel::setValue(const NYBDynamicValue& value, std::string_view key) {
  const NYBPropertyInfo* info = classObject().propertyNamed(key);
  if (info == nullptr) unknownKey(*this, key, true);
  if (info->kind != NYBPropertyKind::Object && !value.isPresent()) {
    throw NYBInvalidArgumentException(
        "[<" + className() + "> setNilValueForKey]: could not set nil as the value for the key " +
        std::string(key) + ".");
  }
  if (info->setter) {
    info->setter(*this, value);
  } else if (info->fieldStore) {
    info->fieldStore(*this, value);
  } else {
    unknownKey(*this, key, true);
  }
}

NYBDictionary NYBModel::dictionaryValue() const {
  const auto& properties = classObject().allProperties();
  NYBDictionary values;
  values.reserve(properties.size());
  for (const NYBPropertyInfo* info : properties) {
    NYBDynamicValue value = info->getter(*this);
    values.append(info->name, value.isPresent() ? std::move(value) : NYBDynamicValue::null());
  }
  return values;
}

void NYBModel::initWithDictionary(const NYBDictionary& dictionary) {
  for (const auto& [key, value] : dictionary) {
    setValue(value.isNull() ? NYBDynamicValue() : value, key.stringView());
  }
}

NYBDictionary NYBModel::JSONObject() const {
  const NYBModelClass& cls = classObject();
  const NYBKeyMap* keyMap = cls.JSONKeyPaths();
  NYBDictionary out;
  if (keyMap == nullptr) return out;
  NYBDictionary values = dictionaryValue();
  out.reserve(keyMap->size());
  for (const auto& [property, jsonKey] : *keyMap) {
    std::shared_ptr<NYBValueTransformer> transformer = cls.valueTransformerForKey(property);
    const NYBDynamicValue* value = values.find(property);
    if (value == nullptr || value->isNull()) continue;
    if (transformer && transformer->allowsReverseTransformation()) {
      NYBDynamicValue reversed = static_cast<const NYBReversibleValueTransformer&>(*transformer)
                                     .reverseTransformedValue(*value);
      if (reversed.isAbsent()) {
        throw NYBInvalidArgumentException(
            "*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: " + jsonKey +
            ")");
      }
      out.set(jsonKey, std::move(reversed));
    } else {
      out.set(jsonKey, *value);
    }
  }
  return out;
}

void NYBModel::encodeWithCoder(NYBKeyedArchiver& coder) const {
  for (const auto& [key, value] : dictionaryValue()) {
    if (value.isNull()) continue;
    try {
      coder.encodeObject(value, key.stringView());
    } catch (const NYBException& failure) {
      log("*** Caught exception encoding value for key \"{}\" on class {}: {}", key.stringView(),
          className(), failure.description());
    }
  }
}

void NYBModel::initWithCoder(NYBKeyedUnarchiver& coder) {
  const auto& properties = classObject().allProperties();
  NYBDictionary values;
  values.reserve(properties.size());
  for (const NYBPropertyInfo* info : properties) {
    NYBDynamicValue value = coder.decodeObjectForKey(info->name);
    if (value.isPresent()) values.append(info->name, std::move(value));
  }
  initWithDictionary(values);
}

std::shared_ptr<NYBModel> NYBModel::copy() const {
  return classObject().modelWithDictionary(dictionaryValue());
}

std::string NYBModel::description() const {
  return identityDescription() + "\n" + dictionaryValue().description();
}

std::size_t NYBModel::hash() const {
  std::size_t h = 0;
  for (const NYBPropertyInfo* info : classObject().allProperties()) h ^= info->getter(*this).hash();
  return h;
}

bool NYBModel::isEqual(const NYBObject& other) const {
  if (this == &other) return true;
  if (&other.classObject() != &classObject()) return false;
  const auto& that = static_cast<const NYBModel&>(other);
  for (const NYBPropertyInfo* info : classObject().allProperties()) {
    NYBDynamicValue mine = info->getter(*this);
    NYBDynamicValue theirs = info->getter(that);
    if (mine.isAbsent() && theirs.isAbsent()) continue;
    if (mine.isAbsent() || !mine.isEqual(theirs)) return false;
  }
  return true;
}

}  // namespace nyb
