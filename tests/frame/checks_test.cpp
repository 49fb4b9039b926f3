// The vocabulary of argument checks, and addresses.
#include "frame/checks.h"

#include <gtest/gtest.h>

#include "frame/rows.h"

namespace {

TEST(Checks, AnyNull) {
  const int32_t a = 0;
  const double b = 0;
  const uint8_t* none = nullptr;
  EXPECT_FALSE(anyNull(&a));
  EXPECT_FALSE(anyNull(&a, &b));
  EXPECT_TRUE(anyNull(none));
  EXPECT_TRUE(anyNull(none, &a, &b));
  EXPECT_TRUE(anyNull(&a, none, &b));
  EXPECT_TRUE(anyNull(&a, &b, none));
}

TEST(Checks, EmptySize) {
  EXPECT_FALSE(emptySize({1, 1}));
  EXPECT_FALSE(emptySize({INT32_MAX, INT32_MAX}));
  EXPECT_TRUE(emptySize({0, 1}));
  EXPECT_TRUE(emptySize({1, 0}));
  EXPECT_TRUE(emptySize({-1, 1}));
  EXPECT_TRUE(emptySize({1, INT32_MIN}));
}

// A product beyond 31 bits is negative and so counts as small.
TEST(Checks, PixelsWrap) {
  EXPECT_EQ(pixels({512, 512}), 262144);
  EXPECT_EQ(pixels({32768, 65536}), INT32_MIN);
  EXPECT_EQ(pixels({65536, 65536}), 0);
  EXPECT_EQ(pixels({46341, 46341}), -2147479015);
}

TEST(Checks, ShortStep) {
  EXPECT_FALSE((shortStep<uint8_t>(10, {10, 1})));
  EXPECT_TRUE((shortStep<uint8_t>(9, {10, 1})));
  EXPECT_FALSE((shortStep<uint8_t, 3>(30, {10, 1})));
  EXPECT_TRUE((shortStep<uint8_t, 3>(29, {10, 1})));
  EXPECT_FALSE((shortStep<uint16_t>(20, {10, 1})));
  EXPECT_TRUE((shortStep<uint16_t>(19, {10, 1})));
  EXPECT_FALSE((shortStep<float, 4>(160, {10, 1})));
  EXPECT_TRUE((shortStep<float, 4>(159, {10, 1})));
  EXPECT_TRUE((shortStep<double>(-80, {10, 1})));
}

// A width near 2^31 divided by the element size wraps and is not caught.
TEST(Checks, ShortStepWraps) {
  EXPECT_FALSE((shortStep<float>(0, {0x40000000, 1})));
  EXPECT_FALSE((shortStep<float>(4, {0x40000001, 1})));
  EXPECT_TRUE((shortStep<float>(3, {0x40000001, 1})));
  EXPECT_FALSE((shortStep<uint16_t>(-1, {0x40000000, 1})));
  EXPECT_FALSE((shortStep<uint8_t, 3>(2, {0x55555556, 1})));
}

TEST(Checks, Misaligned) {
  EXPECT_FALSE(misaligned<uint8_t>(1 | 3));
  EXPECT_FALSE(misaligned<uint16_t>(2 | 4));
  EXPECT_TRUE(misaligned<uint16_t>(2 | 5));
  EXPECT_FALSE(misaligned<float>(4 | 8));
  EXPECT_TRUE(misaligned<float>(4 | 6));
  EXPECT_TRUE(misaligned<int32_t>(1));
  EXPECT_TRUE(misaligned<int32_t>(-3));
  EXPECT_FALSE(misaligned<int32_t>(-4));
}

TEST(Rows, RowAt) {
  uint8_t bytes[100];
  EXPECT_EQ(rowAt(bytes, 7, 3), bytes + 21);
  EXPECT_EQ(rowAt(bytes + 50, 7, -3), bytes + 29);
  EXPECT_EQ(rowAt(bytes + 50, -7, 3), bytes + 29);
  // The step counts bytes for every element type, odd ones too.
  float* floats = reinterpret_cast<float*>(bytes);
  EXPECT_EQ(reinterpret_cast<uint8_t*>(rowAt(floats, 5, 2)), bytes + 10);
  // A row of a large image lies beyond 32 bits.
  EXPECT_EQ(reinterpret_cast<uintptr_t>(rowAt(bytes, ptrdiff_t(1) << 20, 1 << 20)),
            reinterpret_cast<uintptr_t>(bytes) + (uintptr_t(1) << 40));
}

TEST(Rows, AlignUp) {
  for (uintptr_t address = 4096; address <= 4160; ++address) {
    const uintptr_t up = reinterpret_cast<uintptr_t>(alignUp<uint8_t>(reinterpret_cast<void*>(address), 64));
    EXPECT_EQ(up, address == 4096 ? 4096u : 4160u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(alignUp<double>(reinterpret_cast<float*>(address), 1)), address);
  }
}

}  // namespace
