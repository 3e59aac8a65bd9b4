#include "NymbrelCore/NYBArray.h"

#include "platform/Description.h"

namespace nyb {

void NYBArray::insert(std::size_t index, NYBDynamicValue element) {
  if (index > elements_.size()) index = elements_.size();
  elements_.insert(elements_.begin() + static_cast<std::ptrdiff_t>(index), std::move(element));
}

void NYBArray::removeAt(std::size_t index) {
  if (index < elements_.size()) {
    elements_.erase(elements_.begin() + static_cast<std::ptrdiff_t>(index));
  }
}

bool NYBArray::isEqual(const NYBArray& other) const {
  if (elements_.size() != other.elements_.size()) return false;
  for (std::size_t i = 0; i < elements_.size(); ++i) {
    if (!elements_[i].isEqual(other.elements_[i])) return false;
  }
  return true;
}

std::size_t NYBArray::hash() const {
  std::size_t h = elements_.size();
  for (const NYBDynamicValue& element : elements_) h = h * 1000003 ^ element.hash();
  return h;
}

std::string NYBArray::description() const {
  std::string out;
  describe::array(*this, 0, out);
  return out;
}

}  // namespace nyb
