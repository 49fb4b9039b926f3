// Results as 8-bit pictures.
//
// Scales end where all but the strongest two of a hundred values lie below: the few strongest edges would otherwise
// leave the rest of a picture in the dark.
#include "visible.h"

#include <cmath>

namespace tour {

static constexpr double pi = 3.14159265358979323846;

// Every value of an image through a function, row by row.
template <class T, class Function>
static void forEach(const Image<T>& image, Function function) {
  for (int32_t y = 0; y < image.height; ++y) {
    const T* row = image.row(y);
    for (int32_t x = 0; x < image.rowLength(); ++x) function(x, y, row[x]);
  }
}

// The upper end of a scale: at least 1.
static double upperEnd(std::vector<float> sizes) {
  const size_t rank = (sizes.size() - 1) * 98 / 100;
  std::nth_element(sizes.begin(), sizes.begin() + static_cast<ptrdiff_t>(rank), sizes.end());
  return std::max(1.0, std::ceil(static_cast<double>(sizes[rank])));
}

static uint8_t level(double value) { return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0))); }

static std::string fromZero(double end) {
  return "Black is 0, white is " + std::to_string(static_cast<int32_t>(end)) + " or more.";
}

static std::vector<float> lengths(const Image16s& dx, const Image16s& dy) {
  std::vector<float> all;
  all.reserve(static_cast<size_t>(dx.width) * static_cast<size_t>(dx.height));
  forEach(dx, [&](int32_t x, int32_t y, int16_t value) {
    all.push_back(std::hypot(static_cast<float>(value), static_cast<float>(dy.row(y)[x])));
  });
  return all;
}

Image8u toGray(const Image8u& picture) {
  if (picture.channels == 1) return picture;
  Image8u gray(picture.width, picture.height);
  for (int32_t y = 0; y < gray.height; ++y) {
    const uint8_t* p = picture.row(y);
    for (int32_t x = 0; x < gray.width; ++x, p += 3) {
      gray.row(y)[x] = static_cast<uint8_t>((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
    }
  }
  return gray;
}

Visible asItIs(const Image8u& image) { return {image, ""}; }

Visible signedAsGray(const Image16s& image) {
  std::vector<float> sizes;
  forEach(image, [&](int32_t, int32_t, int16_t value) { sizes.push_back(std::abs(static_cast<float>(value))); });
  const double end = upperEnd(std::move(sizes));
  Visible visible{Image8u(image.width, image.height), ""};
  forEach(image,
          [&](int32_t x, int32_t y, int16_t value) { visible.image.row(y)[x] = level(128 + value * 127 / end); });
  const std::string ends = std::to_string(static_cast<int32_t>(end));
  visible.scale = "Mid-grey is 0, black is \u2212" + ends + " or less, white is " + ends + " or more.";
  return visible;
}

template <class T>
static Visible amplifiedFromZero(const Image<T>& image) {
  std::vector<float> sizes;
  forEach(image, [&](int32_t, int32_t, T value) { sizes.push_back(value); });
  const double end = upperEnd(std::move(sizes));
  Visible visible{Image8u(image.width, image.height, image.channels), fromZero(end)};
  forEach(image, [&](int32_t x, int32_t y, T value) {
    visible.image.row(y)[x] = level(static_cast<double>(value) * 255 / end);
  });
  return visible;
}

Visible amplified(const Image8u& image) { return amplifiedFromZero(image); }
Visible fromZeroAsGray(const Image32f& image) { return amplifiedFromZero(image); }

Visible asGray(const Image32f& image) {
  Visible visible{Image8u(image.width, image.height), ""};
  forEach(image, [&](int32_t x, int32_t y, float value) { visible.image.row(y)[x] = level(value); });
  return visible;
}

Visible lengthAsGray(const Image16s& dx, const Image16s& dy) {
  const std::vector<float> all = lengths(dx, dy);
  const double end = upperEnd(all);
  Visible visible{Image8u(dx.width, dx.height), fromZero(end)};
  forEach(dx, [&, i = size_t{0}](int32_t x, int32_t y, int16_t) mutable {
    visible.image.row(y)[x] = level(static_cast<double>(all[i++]) * 255 / end);
  });
  return visible;
}

// Fully saturated colours: each of red, green and blue is full within 60 degrees of its own hue, fades over the
// next 60.
static double share(double hue, double own) {
  const double away = std::abs(std::remainder(hue - own, 360.0));
  return std::clamp(2 - away / 60, 0.0, 1.0);
}

Visible directionAsHue(const Image16s& dx, const Image16s& dy) {
  const std::vector<float> all = lengths(dx, dy);
  const double end = upperEnd(all);
  Visible visible{Image8u(dx.width, dx.height, 3), ""};
  forEach(dx, [&, i = size_t{0}](int32_t x, int32_t y, int16_t value) mutable {
    const double brightness = 255 * std::sqrt(std::min(1.0, static_cast<double>(all[i++]) / end));
    const double hue = std::atan2(static_cast<double>(dy.row(y)[x]), static_cast<double>(value)) * 180 / pi;
    uint8_t* pixel = visible.image.row(y) + ptrdiff_t{3} * x;
    for (int32_t c = 0; c < 3; ++c) pixel[c] = level(brightness * share(hue, 120.0 * c));
  });
  visible.scale = "The brightness is the root of the slope: black is 0, full colour " +
                  std::to_string(static_cast<int32_t>(end)) + " or more.";
  return visible;
}

}  // namespace tour
