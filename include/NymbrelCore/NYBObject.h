// NYBObject and NYBClass: the platform root object and its class objects.
//
// Every class of the library that takes part in run-time dispatch derives from
// NYBObject and has exactly one class object: a singleton NYBClass (or a type
// derived from its superclass's class-object type) that carries the class
// name, the superclass, creation by the plain initialiser and the class-level
// operations, which are virtual and therefore inherited and overridable.
// object.classObject() gives an object's class object; T::staticClass() gives
// the class object of a C++ type.
//
// The registry finds a class object by name at run time (the archive decoder,
// companion modules). Registration is thread-safe; class objects live for the
// whole process. Objects are shared through std::shared_ptr and released by
// their last owner; an object may be used from one thread at a time.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nyb {

class NYBObject;
class NYBKeyedArchiver;
class NYBKeyedUnarchiver;

class NYB_EXPORT NYBClass {
 public:
  // Registers the class object under its name (a later class object of the
  // same name replaces it). superclass is null only for the root class.
  NYBClass(std::string name, const NYBClass* superclass);
  virtual ~NYBClass();
  NYBClass(const NYBClass&) = delete;
  NYBClass& operator=(const NYBClass&) = delete;

  const std::string& name() const { return name_; }
  const NYBClass* superclass() const { return superclass_; }
  // True for this class and every class derived from it.
  bool isSubclassOfClass(const NYBClass& other) const;

  // A new instance made by the plain initialiser, or null where the class
  // cannot be instantiated by name.
  virtual std::shared_ptr<NYBObject> newInstance() const;
  // Whether instances take part in keyed archiving; only such classes are
  // instantiated by the archive decoder.
  virtual bool supportsSecureCoding() const { return false; }
  // A new instance decoded from a keyed archive, or null where unsupported.
  virtual std::shared_ptr<NYBObject> newWithCoder(NYBKeyedUnarchiver& coder) const;

  // The registry.
  static const NYBClass* classNamed(std::string_view name);
  static void registerClass(const NYBClass& classObject);
  static void unregisterClass(const NYBClass& classObject);

 private:
  std::string name_;
  const NYBClass* superclass_;
};

class NYB_EXPORT NYBObject : public std::enable_shared_from_this<NYBObject> {
 public:
  NYBObject() = default;
  virtual ~NYBObject();
  NYBObject(const NYBObject&) = delete;
  NYBObject& operator=(const NYBObject&) = delete;

  static const NYBClass& staticClass();
  virtual const NYBClass& classObject() const;
  const std::string& className() const { return classObject().name(); }
  bool isKindOfClass(const NYBClass& classObject) const;
  bool isMemberOfClass(const NYBClass& classObject) const;

  // Identity by default: "<ClassName: 0x...>", the address, and pointer equality.
  virtual std::string description() const;
  virtual std::size_t hash() const;
  virtual bool isEqual(const NYBObject& other) const;

  // Keyed coding. The root object cannot be archived: encoding it raises an
  // invalid-argument failure.
  virtual void encodeWithCoder(NYBKeyedArchiver& coder) const;

 protected:
  // "<ClassName: 0x...>"
  std::string identityDescription() const;
};

// Declares the class-object accessors of a class. ClassObjectType is the type
// of its class object (the superclass's type when the class adds no
// class-level operations).
#define NYB_DECLARE_CLASS(ClassObjectType)     \
 public:                                       \
  static const ClassObjectType& staticClass(); \
  const ClassObjectType& classObject() const override { return staticClass(); }

}  // namespace nyb
