// NYBDate: an instant in time, as seconds since 1970-01-01 00:00:00 UTC.
//
// A plain value type: copyable, comparable, hashable, safe to share between
// threads. It carries no time zone; the date formatters add one when they write
// the instant as text.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <compare>
#include <cstddef>

namespace nyb {

class NYB_EXPORT NYBDate {
 public:
  constexpr NYBDate() = default;
  constexpr explicit NYBDate(double secondsSince1970) : seconds_(secondsSince1970) {}

  // The current instant from the system clock.
  static NYBDate now();

  constexpr double timeIntervalSince1970() const { return seconds_; }

  friend constexpr bool operator==(NYBDate a, NYBDate b) { return a.seconds_ == b.seconds_; }
  friend constexpr auto operator<=>(NYBDate a, NYBDate b) { return a.seconds_ <=> b.seconds_; }
  std::size_t hash() const;

 private:
  double seconds_ = 0;
};

}  // namespace nyb
