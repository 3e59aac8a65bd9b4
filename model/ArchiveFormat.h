// The keyed archive's layout, shared by NYBKeyedArchiver and NYBKeyedUnarchiver.
//
// An archive is the five header bytes "NYBA" + version, followed by exactly one
// MessagePack value (the root) and nothing else. Dynamic values map to
// MessagePack as follows:
//
//   null marker  nil                 string      str
//   integer      int (any width)     real        float64 (float32 is read too)
//   boolean      true / false        data        bin
//   dictionary   map (keys of any kind, in insertion order)
//   array        array
//   unsigned     ext kUnsigned: big-endian value in 1, 2, 4 or 8 bytes (fixext)
//   decimal      ext kDecimal: canonical decimal text ("98.6", "NaN")
//   date         ext kDate: big-endian IEEE double, seconds since 1970 (fixext 8)
//   URL          ext kURL: the URL's text
//   object       ext kObject (always ext 32): the class name as a str, then a
//                map (always map 32) from key str to the value the object
//                stored under it.
//   absent root  ext kAbsentRoot with no payload; valid only as the root.
//
// Unsigned numbers are never written as plain MessagePack integers, so that a
// small unsigned number still reads back as unsigned, and an integer read from
// a plain MessagePack int above INT64_MAX is damage.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nyb::archive {

inline constexpr std::uint8_t kMagic[4] = {'N', 'Y', 'B', 'A'};
inline constexpr std::uint8_t kVersion = 1;
inline constexpr std::size_t kHeaderSize = 5;

enum ExtType : std::int8_t {
  kUnsigned = 1,
  kDecimal = 2,
  kDate = 3,
  kURL = 4,
  kObject = 5,
  kAbsentRoot = 6,
};

// Containers (dictionaries, arrays and objects) nested in one another; the
// archiver refuses deeper graphs (a cycle among objects, say), so everything it
// writes can be read back.
inline constexpr std::size_t kMaxDepth = 256;
inline constexpr std::size_t kMaxClassNameLength = 256;
inline constexpr std::size_t kMaxDecimalTextLength = 256;

// MessagePack format bytes the archive writes or reads by hand.
inline constexpr std::uint8_t kFloat64 = 0xcb;
inline constexpr std::uint8_t kExt8 = 0xc7;
inline constexpr std::uint8_t kExt32 = 0xc9;
inline constexpr std::uint8_t kMap32 = 0xdf;

}  // namespace nyb::archive
