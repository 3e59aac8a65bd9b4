// A photo large enough to be deflated in several bands still reads back pixel
// for pixel: the bands join into one valid stream.
#include <gtest/gtest.h>

#include <random>

#include "NymbrelCore/NYBImage.h"

namespace nyb {
namespace {

TEST(Image, ALargeImageDeflatedInBandsRoundTrips) {
  constexpr std::size_t kWidth = 1003, kHeight = 1301;  // bands of unequal heights
  std::vector<std::uint8_t> pixels(kWidth * kHeight * 4);
  std::mt19937 random(11);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    // Gradients with noise, and runs of equal bytes that deflate finds across rows.
    pixels[i] = static_cast<std::uint8_t>((i / 4 % kWidth) / 4 +
                                          (i / 4 / kWidth % 64 < 8 ? 0 : random() % 9));
  }
  const NYBImage image(kWidth, kHeight, pixels);
  auto png = image.PNGRepresentation();
  ASSERT_TRUE(png);
  auto decoded = NYBImage::imageWithData(*png);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(*decoded == image);
}

}  // namespace
}  // namespace nyb
