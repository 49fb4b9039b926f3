// Pictures on disk. A file is read whole first, so that what can go wrong with files and with pictures stays apart.
#include "picture_file.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "failure.h"
#include "jpeg_decoder.h"
#include "png_decoder.h"

namespace tour {

using Bytes = std::vector<uint8_t>;

static Bytes readBytes(const std::string& path) {
  constexpr size_t mostBytes = size_t{256} << 20;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) throw Failure(path + ": " + std::strerror(errno));
  Bytes bytes;
  uint8_t block[65536];
  while (const size_t got = std::fread(block, 1, sizeof block, file.get())) {
    bytes.insert(bytes.end(), block, block + got);
    if (bytes.size() > mostBytes) throw Failure(path + ": larger than 256 MB");
  }
  if (std::ferror(file.get())) throw Failure(path + ": " + std::strerror(errno));
  if (bytes.empty()) throw Failure(path + ": the file is empty");
  return bytes;
}

static void requireSize(const std::string& path, int64_t width, int64_t height) {
  if (width <= longestSide && height <= longestSide && width * height <= mostPixels) return;
  throw Failure(path + ": " + std::to_string(width) + "x" + std::to_string(height) + " pixels are too many, at most " +
                std::to_string(longestSide) + " a side and " + std::to_string(mostPixels / 1000000) +
                " million in all");
}

// Alpha is the last channel; what is transparent becomes white.
static Image8u onWhite(const Image8u& image) {
  const int32_t channels = image.channels - 1;
  Image8u result(image.width, image.height, channels);
  for (int32_t y = 0; y < image.height; ++y) {
    const uint8_t* p = image.row(y);
    uint8_t* q = result.row(y);
    for (int32_t x = 0; x < image.width; ++x, p += channels + 1, q += channels) {
      const int32_t alpha = p[channels];
      for (int32_t c = 0; c < channels; ++c) {
        q[c] = static_cast<uint8_t>((p[c] * alpha + 255 * (255 - alpha) + 127) / 255);
      }
    }
  }
  return result;
}

static Image8u decodePng(const std::string& path, const Bytes& bytes) {
  // The header's size is looked at before the codec sees it: the codec's own limit is told in less clear words.
  constexpr size_t headerEnd = 24;
  const auto bigEndian = [&](size_t at) {
    return int64_t{bytes[at]} << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3];
  };
  if (bytes.size() < headerEnd) throw Failure(path + ": broken PNG file (the file ends too early)");
  requireSize(path, bigEndian(16), bigEndian(20));
  PngDecoder decoder(bytes.data(), bytes.size());
  if (!decoder.readHeader()) throw Failure(path + ": broken PNG file (" + decoder.reason() + ")");
  requireSize(path, decoder.width(), decoder.height());
  Image8u image(decoder.width(), decoder.height(), decoder.channels());
  if (!decoder.readPixels(image.data(), image.step())) {
    throw Failure(path + ": broken PNG file (" + decoder.reason() + ")");
  }
  return image.channels % 2 == 0 ? onWhite(image) : image;
}

static Image8u decodeJpeg(const std::string& path, const Bytes& bytes) {
  JpegDecoder decoder(bytes.data(), bytes.size());
  if (!decoder.readHeader()) throw Failure(path + ": broken JPEG file (" + decoder.reason() + ")");
  requireSize(path, decoder.width(), decoder.height());
  Image8u image(decoder.width(), decoder.height(), decoder.channels());
  if (!decoder.readPixels(image.data(), image.step())) {
    throw Failure(path + ": broken JPEG file (" + decoder.reason() + ")");
  }
  return image;
}

static bool isColourless(const Image8u& rgb) {
  for (int32_t y = 0; y < rgb.height; ++y) {
    const uint8_t* p = rgb.row(y);
    for (int32_t x = 0; x < rgb.width; ++x, p += 3) {
      if (p[0] != p[1] || p[0] != p[2]) return false;
    }
  }
  return true;
}

static Image8u firstChannel(const Image8u& rgb) {
  Image8u gray(rgb.width, rgb.height);
  for (int32_t y = 0; y < rgb.height; ++y) {
    for (int32_t x = 0; x < rgb.width; ++x) gray.row(y)[x] = rgb.row(y)[3 * x];
  }
  return gray;
}

Image8u readPicture(const std::string& path) {
  static const uint8_t pngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  static const uint8_t jpegSignature[3] = {0xff, 0xd8, 0xff};
  const Bytes bytes = readBytes(path);
  const auto startsWith = [&](const auto& signature) {
    return bytes.size() >= sizeof signature && std::memcmp(bytes.data(), signature, sizeof signature) == 0;
  };
  Image8u image;
  if (startsWith(pngSignature)) {
    image = decodePng(path, bytes);
  } else if (startsWith(jpegSignature)) {
    image = decodeJpeg(path, bytes);
  } else {
    throw Failure(path + ": neither a PNG nor a JPEG picture");
  }
  return image.channels == 3 && isColourless(image) ? firstChannel(image) : image;
}

void writePng(const std::string& path, const Image8u& image) {
  constexpr int64_t large = 2000000;  // above it, time counts for more than disk space
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(image.width);
  png.height = static_cast<png_uint_32>(image.height);
  png.format = image.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (int64_t{image.width} * image.height > large) png.flags |= PNG_IMAGE_FLAG_FAST;
  const int written = png_image_write_to_file(&png, path.c_str(), 0, image.data(), image.pitch, nullptr);
  const std::string reason = png.message;
  png_image_free(&png);
  if (!written) throw Failure(path + ": cannot be written (" + reason + ")");
}

}  // namespace tour
