#include "NymbrelCore/NYBData.h"

#include <cstdio>

#include "platform/Hashing.h"

namespace nyb {

std::size_t NYBData::hash() const { return hashing::bytes(view()); }

std::string NYBData::description() const {
  std::string out = "{length = " + std::to_string(bytes_.size()) + ", bytes = 0x";
  constexpr std::size_t kShown = 24;
  char hex[3];
  for (std::size_t i = 0; i < bytes_.size() && i < kShown; ++i) {
    std::snprintf(hex, sizeof hex, "%02x", bytes_[i]);
    out.append(hex);
  }
  if (bytes_.size() > kShown) out.append("...");
  out.push_back('}');
  return out;
}

}  // namespace nyb
