// Images: PNG out and back in, pixel for pixel, and what is refused.
#include <gtest/gtest.h>

#include <random>

#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBImage.h"

namespace nyb {
namespace {

void expectRoundTrip(const NYBImage& image) {
  auto png = image.PNGRepresentation();
  ASSERT_TRUE(png);
  auto decoded = NYBImage::imageWithData(*png);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(*decoded == image);
}

// Reading from a file is proven by the session's photo store.
TEST(Image, PNGRoundTripsPixelForPixelAndRefusesWhatItCannotRead) {
  std::vector<std::uint8_t> pixels;
  for (std::size_t y = 0; y < 21; ++y) {
    for (std::size_t x = 0; x < 37; ++x) {
      // Alpha varies too: it must survive without premultiplication.
      pixels.insert(pixels.end(),
                    {static_cast<std::uint8_t>(x * 7), static_cast<std::uint8_t>(y * 11),
                     static_cast<std::uint8_t>(x + y), static_cast<std::uint8_t>(255 - x)});
    }
  }
  const NYBImage image(37, 21, pixels);
  expectRoundTrip(image);

  EXPECT_FALSE(NYBImage(0, 0).PNGRepresentation());
  EXPECT_FALSE(NYBImagePNGRepresentation(nullptr));
  EXPECT_THROW(NYBImage(2, 2, std::vector<std::uint8_t>(15)), NYBInvalidArgumentException);
  EXPECT_FALSE(NYBImage::imageWithData(NYBData(std::string("not a png"))));
  const auto png = image.PNGRepresentation();
  EXPECT_FALSE(
      NYBImage::imageWithData(NYBData(std::string(png->view().substr(0, png->length() / 2)))));
}

// A photo large enough to be deflated in several bands: the bands join into one valid stream.
TEST(Image, ALargeImageDeflatedInBandsRoundTrips) {
  constexpr std::size_t kWidth = 1003, kHeight = 1301;  // bands of unequal heights
  std::vector<std::uint8_t> pixels(kWidth * kHeight * 4);
  std::mt19937 random(11);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    // Gradients with noise, and runs of equal bytes that deflate finds across rows.
    pixels[i] = static_cast<std::uint8_t>((i / 4 % kWidth) / 4 +
                                          (i / 4 / kWidth % 64 < 8 ? 0 : random() % 9));
  }
  expectRoundTrip(NYBImage(kWidth, kHeight, pixels));
}

}  // namespace
}  // namespace nyb
