// Images: PNG out and back in, pixel for pixel, and what is refused.
#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBImage.h"

namespace nyb {
namespace {

// Reading from a file is proven by the session's photo store.
TEST(Image, PNGRoundTripsPixelForPixelAndRefusesWhatItCannotRead) {
  // A small image, and one large enough to be deflated in bands of unequal heights: the bands
  // must join into one valid stream.
  for (const auto& [width, height] : {std::pair<std::size_t, std::size_t>{37, 21}, {1003, 1301}}) {
    std::vector<std::uint8_t> pixels(width * height * 4);
    std::mt19937 random(11);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      // Gradients with noise, and runs of equal bytes that deflate finds across rows. Alpha
      // varies too: it must survive without premultiplication.
      pixels[i] = static_cast<std::uint8_t>((i / 4 % width) / 4 +
                                            (i / 4 / width % 64 < 8 ? 0 : random() % 9));
    }
    const NYBImage image(width, height, pixels);
    auto png = image.PNGRepresentation();
    ASSERT_TRUE(png);
    auto decoded = NYBImage::imageWithData(*png);
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(*decoded == image) << width;
    EXPECT_FALSE(
        NYBImage::imageWithData(NYBData(std::string(png->view().substr(0, png->length() / 2)))));
  }
  EXPECT_FALSE(NYBImage(0, 0).PNGRepresentation());
  EXPECT_FALSE(NYBImagePNGRepresentation(nullptr));
  EXPECT_THROW(NYBImage(2, 2, std::vector<std::uint8_t>(15)), NYBInvalidArgumentException);
  EXPECT_FALSE(NYBImage::imageWithData(NYBData(std::string("not a png"))));
}

}  // namespace
}  // namespace nyb
