#include "NymbrelCore/NYBDate.h"

#include <chrono>

#include "platform/Hashing.h"

namespace nyb {

NYBDate NYBDate::now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return NYBDate(std::chrono::duration<double>(sinceEpoch).count());
}

std::size_t NYBDate::hash() const { return hashing::real(seconds_); }

}  // namespace nyb
