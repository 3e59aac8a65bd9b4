// NYBReversibleValueTransformer: a value transformer whose class allows reverse
// transformation, so the model base calls reverseTransformedValue() for every
// present value it writes to JSON. Made by
// NYBValueTransformer::transformerUsingForwardBlock(forward, reverse), even
// when the reverse function is empty: then writing JSON raises a failure, so
// callers supply both functions. Immutable; see NYBValueTransformer.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>

#include "NymbrelCore/NYBValueTransformer.h"

namespace nyb {

class NYB_EXPORT NYBReversibleValueTransformerClass : public NYBValueTransformerClass {
 public:
  using NYBValueTransformerClass::NYBValueTransformerClass;
  bool allowsReverseTransformation() const override { return true; }
  std::shared_ptr<NYBValueTransformer> transformerUsingForwardBlock(
      NYBTransformerBlock forward) const override;
  using NYBValueTransformerClass::transformerUsingForwardBlock;
};

class NYB_EXPORT NYBReversibleValueTransformer : public NYBValueTransformer {
  NYB_DECLARE_CLASS(NYBReversibleValueTransformerClass)
 public:
  NYBReversibleValueTransformer(NYBTransformerBlock forward, NYBTransformerBlock reverse)
      : NYBValueTransformer(std::move(forward), std::move(reverse)) {}

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

  // The reverse function applied to the value, absent included.
  NYBDynamicValue reverseTransformedValue(const NYBDynamicValue& value) const {
    return reverse(value);
  }
};

}  // namespace nyb
