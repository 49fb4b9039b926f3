// Random numbers and the sizes at which code for vectors goes wrong.
#pragma once

#include <stdint.h>
#include <string.h>

#include <limits>
#include <random>
#include <type_traits>
#include <vector>

// One generator a test, with a fixed seed, so that a failure repeats.
class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}

  // Uniform in first .. last, both included.
  int64_t number(int64_t first, int64_t last) { return std::uniform_int_distribution<int64_t>(first, last)(engine_); }
  bool chance(double probability) { return std::bernoulli_distribution(probability)(engine_); }

  template <class List>
  auto pick(const List& list) {
    return list[size_t(number(0, int64_t(list.size()) - 1))];
  }

  // Any value of an integer type, extremes more often than others; floats between -1000 and 1000.
  template <class T>
  T value() {
    if constexpr (std::is_floating_point_v<T>) {
      return T(std::uniform_real_distribution<float>(-1000, 1000)(engine_));
    } else {
      if (chance(0.1)) return std::numeric_limits<T>::max();
      if (chance(0.1)) return std::numeric_limits<T>::lowest();
      return T(number(std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max()));
    }
  }

  // A float with any bits, the special ones often: zeros of both signs, infinities, NaN, denormals, largest values.
  float anyFloat() {
    static const std::vector<float> special = {0.0f,
                                               -0.0f,
                                               1.0f,
                                               -1.0f,
                                               std::numeric_limits<float>::infinity(),
                                               -std::numeric_limits<float>::infinity(),
                                               std::numeric_limits<float>::quiet_NaN(),
                                               -std::numeric_limits<float>::quiet_NaN(),
                                               std::numeric_limits<float>::denorm_min(),
                                               std::numeric_limits<float>::max(),
                                               std::numeric_limits<float>::lowest()};
    if (chance(0.3)) return pick(special);
    const uint32_t bits = uint32_t(engine_());
    float f;
    memcpy(&f, &bits, sizeof f);
    if (f != f) return special[6];  // quiet NaNs only: a signalling one changes on its way through a register
    return f;
  }

  // A width around a multiple of a vector's length, or small, or any up to `limit`.
  int32_t width(int32_t limit) {
    static const std::vector<int32_t> telling = {1,  2,  3,  4,  5,  7,  8,  9,  15, 16,  17,  31,
                                                 32, 33, 47, 48, 63, 64, 65, 95, 96, 127, 128, 129};
    for (;;) {
      const int32_t w = chance(0.7) ? pick(telling) : int32_t(number(1, limit));
      if (w <= limit) return w;
    }
  }

 private:
  std::mt19937 engine_;
};
