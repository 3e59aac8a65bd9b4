#include "NymbrelCore/NYBValueTransformer.h"

#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBReversibleValueTransformer.h"

namespace nyb {

const NYBClass& NYBValueTransformerClass::transformedValueClass() const {
  return NYBObject::staticClass();
}

std::shared_ptr<NYBValueTransformer> NYBValueTransformerClass::transformerUsingForwardBlock(
    NYBTransformerBlock forward) const {
  return std::make_shared<NYBValueTransformer>(std::move(forward), NYBTransformerBlock());
}

std::shared_ptr<NYBValueTransformer> NYBValueTransformerClass::transformerUsingReversibleBlock(
    const NYBTransformerBlock& block) const {
  return transformerUsingForwardBlock(block, block);
}

std::shared_ptr<NYBValueTransformer> NYBValueTransformerClass::transformerUsingForwardBlock(
    NYBTransformerBlock forward, NYBTransformerBlock reverse) const {
  return std::make_shared<NYBReversibleValueTransformer>(std::move(forward), std::move(reverse));
}

std::shared_ptr<NYBValueTransformer>
NYBReversibleValueTransformerClass::transformerUsingForwardBlock(
    NYBTransformerBlock forward) const {
  return std::make_shared<NYBReversibleValueTransformer>(std::move(forward), NYBTransformerBlock());
}

const NYBValueTransformerClass& NYBValueTransformer::staticClass() {
  static const NYBValueTransformerClass transformerClass("NYBValueTransformer",
                                                         &NYBObject::staticClass());
  return transformerClass;
}

const NYBReversibleValueTransformerClass& NYBReversibleValueTransformer::staticClass() {
  static const NYBReversibleValueTransformerClass transformerClass(
      "NYBReversibleValueTransformer", &NYBValueTransformer::staticClass());
  return transformerClass;
}

NYBValueTransformer::NYBValueTransformer(NYBTransformerBlock forward, NYBTransformerBlock reverse)
    : forward_(std::move(forward)), reverse_(std::move(reverse)) {}

namespace {
// The platform calls a missing block and crashes; a raised failure keeps the
// caller's process alive while still refusing the call.
[[noreturn]] void missingBlock(const char* direction) {
  throw NYBInvalidArgumentException(std::string("value transformer has no ") + direction +
                                    " function");
}
}  // namespace

NYBDynamicValue NYBValueTransformer::transformedValue(const NYBDynamicValue& value) const {
  if (!forward_) missingBlock("forward");
  return forward_(value);
}

NYBDynamicValue NYBValueTransformer::reverse(const NYBDynamicValue& value) const {
  if (!reverse_) missingBlock("reverse");
  return reverse_(value);
}

}  // namespace nyb
