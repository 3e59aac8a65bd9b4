#include "NymbrelCore/NYBObject.h"

#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "NymbrelCore/NYBException.h"
#include "platform/ClassRegistry.h"

namespace nyb {

namespace {

struct Registry {
  std::shared_mutex mutex;
  std::unordered_map<std::string, const NYBClass*> byName;
};

Registry& registry() {
  static Registry* instance = new Registry();  // never destroyed: class objects outlive it
  return *instance;
}

}  // namespace

NYBClass::NYBClass(std::string name, const NYBClass* superclass)
    : name_(std::move(name)), superclass_(superclass) {
  registerClass(*this);
}

NYBClass::~NYBClass() { unregisterClass(*this); }

bool NYBClass::isSubclassOfClass(const NYBClass& other) const {
  for (const NYBClass* c = this; c != nullptr; c = c->superclass()) {
    if (c == &other) return true;
  }
  return false;
}

std::shared_ptr<NYBObject> NYBClass::newInstance() const { return nullptr; }

std::shared_ptr<NYBObject> NYBClass::newWithCoder(NYBKeyedUnarchiver&) const { return nullptr; }

const NYBClass* NYBClass::classNamed(std::string_view name) {
  registerLibraryClasses();
  Registry& r = registry();
  std::shared_lock lock(r.mutex);
  auto it = r.byName.find(std::string(name));
  return it == r.byName.end() ? nullptr : it->second;
}

void NYBClass::registerClass(const NYBClass& classObject) {
  Registry& r = registry();
  std::unique_lock lock(r.mutex);
  r.byName[classObject.name()] = &classObject;
}

void NYBClass::unregisterClass(const NYBClass& classObject) {
  Registry& r = registry();
  std::unique_lock lock(r.mutex);
  auto it = r.byName.find(classObject.name());
  if (it != r.byName.end() && it->second == &classObject) r.byName.erase(it);
}

NYBObject::~NYBObject() = default;

const NYBClass& NYBObject::staticClass() {
  static const NYBClass root("NSObject", nullptr);
  return root;
}

const NYBClass& NYBObject::classObject() const { return staticClass(); }

bool NYBObject::isKindOfClass(const NYBClass& c) const {
  return classObject().isSubclassOfClass(c);
}

bool NYBObject::isMemberOfClass(const NYBClass& c) const { return &classObject() == &c; }

std::string NYBObject::identityDescription() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  return "<" + className() + ": " + address + ">";
}

std::string NYBObject::description() const { return identityDescription(); }

std::size_t NYBObject::hash() const { return reinterpret_cast<std::uintptr_t>(this); }

bool NYBObject::isEqual(const NYBObject& other) const { return this == &other; }

void NYBObject::encodeWithCoder(NYBKeyedArchiver&) const {
  throw NYBInvalidArgumentException(
      "*** -encodeWithCoder: unrecognized selector sent to instance " + identityDescription());
}

}  // namespace nyb
