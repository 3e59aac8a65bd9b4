// NYBData: an immutable byte string.
//
// A plain value type, safe to read from any thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nyb {

class NYB_EXPORT NYBData {
 public:
  NYBData() = default;
  explicit NYBData(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  explicit NYBData(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {}

  const std::uint8_t* bytes() const { return bytes_.data(); }
  std::size_t length() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }
  const std::vector<std::uint8_t>& vector() const { return bytes_; }
  std::string_view view() const {
    return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
  }

  friend bool operator==(const NYBData& a, const NYBData& b) { return a.bytes_ == b.bytes_; }
  std::size_t hash() const;
  // The platform's form: "{length = N, bytes = 0x0102...}" (first bytes only).
  std::string description() const;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace nyb
