// Deterministic hashing shared by the value types. Hashes must be stable across
// processes: photo file names are derived from a record's hash.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace nyb::hashing {

inline std::size_t mix(std::uint64_t x) {
  // splitmix64 finaliser: spreads every input bit over the result.
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  x ^= x >> 31;
  return static_cast<std::size_t>(x);
}

inline std::size_t bytes(std::string_view data) {
  std::uint64_t h = 0xcbf29ce484222325ULL;  // FNV-1a
  for (unsigned char c : data) {
    h ^= c;
    h *= 0x100000001b3ULL;
  }
  return mix(h);
}

inline std::size_t real(double value) {
  if (value == 0) value = 0;  // +0 and -0 are equal, so they hash alike
  return mix(std::bit_cast<std::uint64_t>(value));
}

}  // namespace nyb::hashing
