// PNG checking for media uploads.
//
// Contract: inspectPng decodes the whole image with libpng (signature, chunk CRCs, the
// compressed image data), so an upload the devserver accepts is an image that any PNG
// reader can open. It refuses images above kMaxPngPixels rather than allocating for them.
// Thread-safe: it keeps no state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nyb::devserver {

struct PngInfo {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

inline constexpr std::uint64_t kMaxPngPixels = 64ULL * 1024 * 1024;

// The image's size, or nullopt with the reason in `error`.
std::optional<PngInfo> inspectPng(std::string_view bytes, std::string& error);

}  // namespace nyb::devserver
