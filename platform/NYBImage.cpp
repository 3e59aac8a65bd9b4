#include "NymbrelCore/NYBImage.h"

#include <png.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "NymbrelCore/NYBException.h"

namespace nyb {

namespace {

// PNG limits each dimension to 2^31 - 1; the simplified API also needs the row
// stride to fit its signed 32-bit type.
constexpr std::size_t kMaxDimension = 0x7fffffff;
// A file that claims more pixels than this (a gigabyte of RGBA) is refused
// rather than trusted with the allocation.
constexpr std::uint64_t kMaxDecodedPixels = std::uint64_t{1} << 28;

}  // namespace

NYBImage::NYBImage(std::size_t width, std::size_t height)
    : width_(width), height_(height), pixels_(width * height * 4, 0) {}

NYBImage::NYBImage(std::size_t width, std::size_t height, std::vector<std::uint8_t> rgba)
    : width_(width), height_(height), pixels_(std::move(rgba)) {
  if (height != 0 && width > std::numeric_limits<std::size_t>::max() / 4 / height) {
    throw NYBInvalidArgumentException("NYBImage: dimensions overflow");
  }
  if (pixels_.size() != width * height * 4) {
    throw NYBInvalidArgumentException("NYBImage: pixel buffer does not match the dimensions");
  }
}

std::shared_ptr<NYBImage> NYBImage::imageWithData(const NYBData& png) {
  if (png.empty()) return nullptr;
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&image, png.bytes(), png.length()) == 0) {
    png_image_free(&image);
    return nullptr;
  }
  if (std::uint64_t{image.width} * image.height > kMaxDecodedPixels) {
    png_image_free(&image);
    return nullptr;
  }
  image.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0) {
    png_image_free(&image);
    return nullptr;
  }
  return std::make_shared<NYBImage>(image.width, image.height, std::move(pixels));
}

std::shared_ptr<NYBImage> NYBImage::imageWithContentsOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return nullptr;
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
  if (file.bad()) return nullptr;
  return imageWithData(NYBData(std::move(bytes)));
}

std::optional<NYBData> NYBImage::PNGRepresentation() const {
  if (width_ == 0 || height_ == 0) return std::nullopt;
  if (width_ > kMaxDimension / 4 || height_ > kMaxDimension) return std::nullopt;
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width_);
  image.height = static_cast<png_uint_32>(height_);
  image.format = PNG_FORMAT_RGBA;
  image.flags = PNG_IMAGE_FLAG_FAST;
  // One pass into a buffer of the largest size the encoder can produce:
  // asking for the size first would compress the whole image twice.
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[size]);
  if (!buffer ||
      png_image_write_to_memory(&image, buffer.get(), &size, 0, pixels_.data(), 0, nullptr) == 0) {
    png_image_free(&image);
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes(buffer.get(), buffer.get() + size);
  return NYBData(std::move(bytes));
}

std::optional<NYBData> NYBImagePNGRepresentation(const std::shared_ptr<const NYBImage>& image) {
  if (!image) return std::nullopt;
  return image->PNGRepresentation();
}

}  // namespace nyb
