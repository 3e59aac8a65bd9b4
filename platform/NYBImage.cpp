#include "NymbrelCore/NYBImage.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
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

namespace {

// PNG writing. The rows, each behind the Sub filter, are deflated at the
// fastest level in horizontal bands, on as many threads as there are cores
// (up to four). Each band but the last ends with a sync flush, on a byte
// boundary, so the bands join into one zlib stream whose checksum is
// combined from theirs. A photo is smooth with noise on top: the Sub filter
// leaves small residues that the fastest level packs within a few percent of
// libpng's default (every filter tried on every row, level 6) at a fraction
// of its time.
struct Band {
  std::size_t firstRow = 0;
  std::size_t rows = 0;
  bool last = false;
  std::vector<std::uint8_t> deflated;
  uLong adler = 1;
  bool ok = false;
};

void deflateBand(const std::uint8_t* pixels, std::size_t width, Band& band) noexcept {
  const std::size_t lineBytes = width * 4 + 1;
  // Small steps keep the filtered rows in the cache while deflate reads them.
  const std::size_t rowsPerStep = std::clamp<std::size_t>((256 * 1024) / lineBytes, 1, 64);
  z_stream stream{};
  if (deflateInit2(&stream, 1, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) return;
  try {
    std::vector<std::uint8_t> filtered(rowsPerStep * lineBytes);
    band.deflated.resize(band.rows * lineBytes / 3 + 1024);
    std::size_t used = 0;
    // Runs deflate until it has taken all input and has room left over.
    auto pump = [&](int flush) {
      do {
        if (band.deflated.size() - used < 64 * 1024) {
          band.deflated.resize(band.deflated.size() + band.deflated.size() / 2 + 64 * 1024);
        }
        const std::size_t room = std::min<std::size_t>(band.deflated.size() - used, 1u << 30);
        stream.next_out = band.deflated.data() + used;
        stream.avail_out = static_cast<uInt>(room);
        if (deflate(&stream, flush) == Z_STREAM_ERROR) return false;
        used += room - stream.avail_out;
      } while (stream.avail_out == 0 || stream.avail_in != 0);
      return true;
    };
    for (std::size_t row = 0; row < band.rows; row += rowsPerStep) {
      const std::size_t count = std::min(rowsPerStep, band.rows - row);
      for (std::size_t r = 0; r < count; ++r) {
        const std::uint8_t* in = pixels + (band.firstRow + row + r) * (lineBytes - 1);
        std::uint8_t* out = filtered.data() + r * lineBytes;
        out[0] = 1;  // Sub: each byte less the same byte of the pixel to its left
        std::memcpy(out + 1, in, 4);
        for (std::size_t i = 4; i + 1 < lineBytes; ++i) {
          out[1 + i] = static_cast<std::uint8_t>(in[i] - in[i - 4]);
        }
      }
      const auto length = static_cast<uInt>(count * lineBytes);
      band.adler = adler32(band.adler, filtered.data(), length);
      stream.next_in = filtered.data();
      stream.avail_in = length;
      const bool end = row + count == band.rows;
      if (!pump(!end ? Z_NO_FLUSH : band.last ? Z_FINISH : Z_SYNC_FLUSH)) {
        deflateEnd(&stream);
        return;
      }
    }
    band.deflated.resize(used);
    band.ok = true;
  } catch (const std::bad_alloc&) {
  }
  deflateEnd(&stream);
}

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    out.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

void appendChunk(std::vector<std::uint8_t>& out, const char* type, const std::uint8_t* data,
                 std::size_t length) {
  appendBigEndian(out, static_cast<std::uint32_t>(length));
  const std::size_t typeAt = out.size();
  out.insert(out.end(), type, type + 4);
  if (length > 0) out.insert(out.end(), data, data + length);
  const uLong crc = crc32(0, out.data() + typeAt, static_cast<uInt>(out.size() - typeAt));
  appendBigEndian(out, static_cast<std::uint32_t>(crc));
}

std::optional<std::vector<std::uint8_t>> encodePNG(const std::uint8_t* pixels, std::size_t width,
                                                   std::size_t height) {
  const std::size_t lineBytes = width * 4 + 1;
  std::size_t threads = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 4);
  // Bands of fewer than a megabyte are not worth a thread.
  threads = std::clamp<std::size_t>(height * lineBytes / (1024 * 1024), 1, threads);
  threads = std::min(threads, height);
  std::vector<Band> bands(threads);
  for (std::size_t i = 0; i < threads; ++i) {
    bands[i].firstRow = height * i / threads;
    bands[i].rows = height * (i + 1) / threads - bands[i].firstRow;
    bands[i].last = i + 1 == threads;
  }
  {
    std::vector<std::jthread> helpers;
    for (std::size_t i = 1; i < threads; ++i) {
      try {
        helpers.emplace_back([&, i] { deflateBand(pixels, width, bands[i]); });
      } catch (const std::system_error&) {
        deflateBand(pixels, width, bands[i]);  // no thread to spare: this one does it
      }
    }
    deflateBand(pixels, width, bands[0]);
  }
  constexpr std::size_t kMaxChunk = std::size_t{1} << 30;
  std::size_t size = 8 + 25 + 14 + 16 + 12;  // signature, IHDR, zlib header and trailer, IEND
  for (const Band& band : bands) {
    if (!band.ok) return std::nullopt;
    size += band.deflated.size() + 12 * (band.deflated.size() / kMaxChunk + 1);
  }
  std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  png.reserve(size);
  std::vector<std::uint8_t> header;
  appendBigEndian(header, static_cast<std::uint32_t>(width));
  appendBigEndian(header, static_cast<std::uint32_t>(height));
  header.insert(header.end(), {8, 6, 0, 0, 0});  // 8-bit RGBA, deflate, adaptive, progressive
  appendChunk(png, "IHDR", header.data(), header.size());
  // The zlib stream may break anywhere between IDAT chunks: each band goes in
  // chunks of its own, between the stream's header and its checksum.
  const std::uint8_t zlibHeader[] = {0x78, 0x01};  // 32 KiB window, fastest level
  appendChunk(png, "IDAT", zlibHeader, sizeof zlibHeader);
  uLong adler = 1;
  for (Band& band : bands) {
    for (std::size_t at = 0; at < band.deflated.size(); at += kMaxChunk) {
      appendChunk(png, "IDAT", band.deflated.data() + at,
                  std::min(band.deflated.size() - at, kMaxChunk));
    }
    adler = adler32_combine(adler, band.adler, static_cast<z_off_t>(band.rows * lineBytes));
    std::vector<std::uint8_t>().swap(band.deflated);
  }
  std::vector<std::uint8_t> checksum;
  appendBigEndian(checksum, static_cast<std::uint32_t>(adler));
  appendChunk(png, "IDAT", checksum.data(), checksum.size());
  appendChunk(png, "IEND", nullptr, 0);
  return png;
}

}  // namespace

std::optional<NYBData> NYBImage::PNGRepresentation() const {
  if (width_ == 0 || height_ == 0) return std::nullopt;
  if (width_ > kMaxDimension / 4 || height_ > kMaxDimension) return std::nullopt;
  try {
    std::optional<std::vector<std::uint8_t>> png = encodePNG(pixels_.data(), width_, height_);
    if (!png) return std::nullopt;
    return NYBData(std::move(*png));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<NYBData> NYBImagePNGRepresentation(const std::shared_ptr<const NYBImage>& image) {
  if (!image) return std::nullopt;
  return image->PNGRepresentation();
}

}  // namespace nyb
