// qorsMulC_16s_ISfs over all 16-bit inputs.
#include <gtest/gtest.h>

#include "frame/kit/vector_cases.h"
#include "frame/kit/vectors.h"

namespace {

int64_t held(int64_t value) { return value > 32767 ? 32767 : value < -32768 ? -32768 : value; }

int64_t model(int64_t value, int64_t element, int64_t scaleFactor) {
  const int64_t product = value * element;
  if (scaleFactor > 30) return 0;
  if (scaleFactor > 0) {
    const int64_t unit = int64_t(1) << scaleFactor;
    int64_t quotient = product / unit, rest = product % unit;
    if (rest < 0) {
      rest += unit;
      quotient -= 1;
    }
    if (2 * rest > unit || (2 * rest == unit && quotient % 2 != 0)) quotient += 1;
    return held(quotient);
  }
  if (scaleFactor < -15) return product > 0 ? 32767 : product < 0 ? -32768 : 0;
  return held(held(product) * (int64_t(1) << -scaleFactor));
}

std::vector<int32_t> scaleFactors() {
  std::vector<int32_t> factors = {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::min() + 1, -1000,
                                  1000, std::numeric_limits<int32_t>::max()};
  for (int32_t s = -40; s <= 40; ++s) factors.push_back(s);
  return factors;
}

TEST(KitMulC16s, AllInputsAndScales) {
  const int32_t len = 65536;
  std::vector<int16_t> data(static_cast<size_t>(len));
  for (const int32_t value : {0, 1, -1, 2, 4, -4, 5, 181, -255, 12345, 32767, -32767, -32768}) {
    for (const int32_t scaleFactor : scaleFactors()) {
      for (int32_t i = 0; i < len; ++i) data[size_t(i)] = int16_t(i - 32768);
      ASSERT_EQ(qorsMulC_16s_ISfs(int16_t(value), data.data(), len, scaleFactor), qorStatusOk);
      int32_t wrong = 0;
      for (int32_t i = 0; i < len; ++i) {
        if (data[size_t(i)] != model(value, i - 32768, scaleFactor) && ++wrong < 4) {
          ADD_FAILURE() << value << " * " << i - 32768 << " at scale " << scaleFactor << " gives " << data[size_t(i)];
        }
      }
      ASSERT_EQ(wrong, 0);
    }
  }
}

TEST(KitMulC16s, Lengths) {
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    for (const int32_t scaleFactor : {0, 3, -3, 40}) {
      Vector<int16_t> data(len, edge, shift);
      for (int32_t i = 0; i < len; ++i) data.set(i, 0, int16_t(i * 977 - 5000));
      ASSERT_EQ(qorsMulC_16s_ISfs(4, data.data(), len, scaleFactor), qorStatusOk);
      ASSERT_EQ(difference(data, [&](int32_t x, int32_t,
                                     int32_t) { return int16_t(model(4, int16_t(x * 977 - 5000), scaleFactor)); }),
                "");
      ASSERT_TRUE(data.gapsIntact());
    }
  });
}

TEST(KitMulC16s, Statuses) {
  Vector<int16_t> data(9);
  data.fill([] { return int16_t(100); });
  for (const int16_t value : {int16_t(0), int16_t(4)}) {
    for (const int32_t scaleFactor : {0, 2, -2, 31}) {
      expectVectorStatuses(
          1, 9,
          [&](const VectorArgs& a) { return qorsMulC_16s_ISfs(value, a.pointer(0, data.data()), a.len, scaleFactor); },
          [&] { return data.bytes(); });
    }
  }
}

}  // namespace
