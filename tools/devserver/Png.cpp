#include "Png.h"

#include <png.h>

#include <memory>
#include <vector>

namespace nyb::devserver {

std::optional<PngInfo> inspectPng(std::string_view bytes, std::string& error) {
  static constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (bytes.size() < sizeof kSignature ||
      std::string_view(reinterpret_cast<const char*>(kSignature), sizeof kSignature) !=
          bytes.substr(0, sizeof kSignature)) {
    error = "the media part is not a PNG image (no PNG signature)";
    return std::nullopt;
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  // libpng's simplified API keeps its own error handling (no setjmp on our side).
  std::unique_ptr<png_image, void (*)(png_image*)> guard(&image, png_image_free);
  if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) {
    error = std::string("the media part is not a valid PNG image: ") + image.message;
    return std::nullopt;
  }
  if (std::uint64_t{image.width} * image.height > kMaxPngPixels) {
    error = "the PNG image is too large";
    return std::nullopt;
  }
  image.format = PNG_FORMAT_RGBA;
  std::vector<unsigned char> pixels(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0) {
    error = std::string("the media part is not a valid PNG image: ") + image.message;
    return std::nullopt;
  }
  return PngInfo{image.width, image.height};
}

}  // namespace nyb::devserver
