// NYBImage: a bitmap of 8-bit RGBA pixels (not premultiplied, rows top to
// bottom) that encodes to PNG and decodes from PNG.
//
// An image is immutable once made and shared through std::shared_ptr, so it
// may be read from several threads at once (a queued photo is encoded on one
// thread while the application holds it on another).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NymbrelCore/NYBData.h"

namespace nyb {

class NYB_EXPORT NYBImage {
 public:
  // Fully transparent black pixels.
  NYBImage(std::size_t width, std::size_t height);
  // The pixels, four bytes each; a buffer whose size is not width * height * 4
  // raises an invalid-argument failure.
  NYBImage(std::size_t width, std::size_t height, std::vector<std::uint8_t> rgba);

  // The image of PNG bytes (any colour type and depth, read as 8-bit RGBA);
  // null when the bytes are not a PNG image or claim more than 2^28 pixels.
  static std::shared_ptr<NYBImage> imageWithData(const NYBData& png);
  // The image of a PNG file; null when the file cannot be read or decoded.
  static std::shared_ptr<NYBImage> imageWithContentsOfFile(const std::string& path);

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  const std::vector<std::uint8_t>& pixels() const { return pixels_; }

  // The PNG encoding, as 8-bit RGBA; absent for an image with no pixels or
  // one too large for PNG.
  std::optional<NYBData> PNGRepresentation() const;

  friend bool operator==(const NYBImage& a, const NYBImage& b) {
    return a.width_ == b.width_ && a.height_ == b.height_ && a.pixels_ == b.pixels_;
  }

 private:
  std::size_t width_;
  std::size_t height_;
  std::vector<std::uint8_t> pixels_;
};

// The PNG bytes of an image; absent when there is no image or it cannot be
// encoded.
[[nodiscard]] std::optional<NYBData> NYBImagePNGRepresentation(
    const std::shared_ptr<const NYBImage>& image);

}  // namespace nyb
