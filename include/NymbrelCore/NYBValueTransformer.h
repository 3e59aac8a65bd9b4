// NYBValueTransformer: converts one property value to its JSON form and back
// through one or two functions.
//
// Model classes hand transformers out from class-level operations named after
// a property with "Transformer" appended; the model base uses the forward
// function when reading JSON and, only when the transformer's class allows
// reverse transformation, the reverse function when writing it. A plain
// NYBValueTransformer never reverses; an NYBReversibleValueTransformer always
// does. Transformers are immutable after construction and hold nothing but
// their two functions; they may be used from any thread that the functions
// allow.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <functional>
#include <memory>

#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBObject.h"

namespace nyb {

// A function from one dynamic value to another; it may be handed an absent
// value and may return absent.
using NYBTransformerBlock = std::function<NYBDynamicValue(const NYBDynamicValue&)>;

class NYBValueTransformer;

// The class object of the transformers, carrying their class-level queries.
class NYB_EXPORT NYBValueTransformerClass : public NYBClass {
 public:
  using NYBClass::NYBClass;
  virtual bool allowsReverseTransformation() const { return false; }
  // The class of the transformed values: the root object class (any object).
  virtual const NYBClass& transformedValueClass() const;

  // A new transformer of this class with the forward function and no reverse.
  virtual std::shared_ptr<NYBValueTransformer> transformerUsingForwardBlock(
      NYBTransformerBlock forward) const;
  // transformerUsingForwardBlock(block, block).
  std::shared_ptr<NYBValueTransformer> transformerUsingReversibleBlock(
      const NYBTransformerBlock& block) const;
  // A new NYBReversibleValueTransformer, whatever class is asked, even when
  // the reverse function is empty.
  std::shared_ptr<NYBValueTransformer> transformerUsingForwardBlock(
      NYBTransformerBlock forward, NYBTransformerBlock reverse) const;
};

class NYB_EXPORT NYBValueTransformer : public NYBObject {
  NYB_DECLARE_CLASS(NYBValueTransformerClass)
 public:
  NYBValueTransformer(NYBTransformerBlock forward, NYBTransformerBlock reverse);

  static std::shared_ptr<NYBValueTransformer> transformerUsingForwardBlock(
      NYBTransformerBlock forward) {
    return staticClass().transformerUsingForwardBlock(std::move(forward));
  }
  static std::shared_ptr<NYBValueTransformer> transformerUsingReversibleBlock(
      const NYBTransformerBlock& block) {
    return staticClass().transformerUsingReversibleBlock(block);
  }
  static std::shared_ptr<NYBValueTransformer> transformerUsingForwardBlock(
      NYBTransformerBlock forward, NYBTransformerBlock reverse) {
    return staticClass().transformerUsingForwardBlock(std::move(forward), std::move(reverse));
  }

  bool allowsReverseTransformation() const { return classObject().allowsReverseTransformation(); }
  const NYBTransformerBlock& forwardBlock() const { return forward_; }
  const NYBTransformerBlock& reverseBlock() const { return reverse_; }

  // The forward function applied to the value, absent included. Calling a
  // transformer whose function is missing raises an invalid-argument failure.
  NYBDynamicValue transformedValue(const NYBDynamicValue& value) const;

 protected:
  NYBDynamicValue reverse(const NYBDynamicValue& value) const;

 private:
  NYBTransformerBlock forward_;
  NYBTransformerBlock reverse_;
};

}  // namespace nyb
