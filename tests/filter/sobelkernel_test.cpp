// Generated Sobel kernels, against the product of their polynomials.
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "qorcvmx.h"
#include "support/image.h"
#include "support/memory.h"
#include "support/services.h"
#include "support/statuses.h"

template <class Tap>
static QorStatus generate(Tap* kernel, int32_t kernelSize, int32_t order, int32_t sign) {
  if constexpr (std::is_same_v<Tap, float>) {
    return qoriGenSobelKernel_32f(kernel, kernelSize, order, sign);
  } else {
    return qoriGenSobelKernel_16s(kernel, kernelSize, order, sign);
  }
}

template <class Tap>
static std::vector<Tap> generated(int32_t kernelSize, int32_t order, int32_t sign) {
  const GuardedMemory memory(size_t(kernelSize) * sizeof(Tap));
  Tap* const kernel = reinterpret_cast<Tap*>(memory.data());
  EXPECT_EQ(generate(kernel, kernelSize, order, sign), qorStatusOk);
  EXPECT_TRUE(memory.patternIntact());
  return {kernel, kernel + kernelSize};
}

// The coefficients of (x + 1)^(kernelSize - 1 - order) * (x - 1)^order, lowest power first, in 64 bits that wrap.
static std::vector<uint64_t> coefficients(int32_t kernelSize, int32_t order) {
  std::vector<uint64_t> product = {1};
  for (int32_t factor = 0; factor < kernelSize - 1; ++factor) {
    const uint64_t constant = factor < order ? uint64_t(-1) : 1;
    std::vector<uint64_t> next(product.size() + 1, 0);
    for (size_t j = 0; j < product.size(); ++j) {
      next[j] += product[j] * constant;
      next[j + 1] += product[j];
    }
    product = next;
  }
  return product;
}

// The steps of the generator in floats, each rounded; where a value does not fit in 24 bits, their order matters.
static std::vector<float> floatSteps(int32_t kernelSize, int32_t order, int32_t sign) {
  std::vector<float> k(size_t(kernelSize), 0.0f);
  k.back() = 1;
  for (int32_t first = kernelSize - 2; first >= 0; --first) {
    for (int32_t j = first; j <= kernelSize - 2; ++j) k[j] = first >= order ? k[j] + k[j + 1] : k[j] - k[j + 1];
  }
  for (float& tap : k) tap = sign < 0 ? 0 - tap : tap;
  return k;
}

TEST(GenSobelKernel, SmallOnesWrittenOut) {
  struct Case {
    int32_t size, order, sign;
    std::vector<int16_t> taps;
  };
  const std::vector<Case> cases = {
      {1, 0, 0, {1}},
      {1, 0, -1, {-1}},
      {3, 0, 1, {1, 2, 1}},
      {3, 1, 1, {-1, 0, 1}},
      {3, 1, -1, {1, 0, -1}},
      {3, 2, 1, {1, -2, 1}},
      {5, 0, 1, {1, 4, 6, 4, 1}},
      {5, 1, 1, {-1, -2, 0, 2, 1}},
      {5, 2, 1, {1, 0, -2, 0, 1}},
      {5, 3, 1, {-1, 2, 0, -2, 1}},
      {5, 4, 1, {1, -4, 6, -4, 1}},
      {7, 1, 1, {-1, -4, -5, 0, 5, 4, 1}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(generated<int16_t>(c.size, c.order, c.sign), c.taps) << c.size << ", order " << c.order;
    EXPECT_EQ(generated<float>(c.size, c.order, c.sign), std::vector<float>(c.taps.begin(), c.taps.end()))
        << c.size << ", order " << c.order;
  }
}

TEST(GenSobelKernel, WrapsIn16Bits) {
  bool wrapped = false;
  for (int32_t size = 1; size <= 101; size += size < 31 ? 2 : 10) {
    for (int32_t order = 0; order < size; ++order) {
      const std::vector<uint64_t> expected = coefficients(size, order);
      for (const int32_t sign : {1, 0, -1, INT32_MAX, INT32_MIN}) {
        const std::vector<int16_t> kernel = generated<int16_t>(size, order, sign);
        for (int32_t j = 0; j < size; ++j) {
          const uint64_t exact = sign < 0 ? 0 - expected[j] : expected[j];
          ASSERT_EQ(kernel[j], int16_t(uint16_t(exact))) << "tap " << j << " of " << size << ", order " << order;
          wrapped |= int64_t(exact) != kernel[j];
        }
      }
    }
  }
  EXPECT_TRUE(wrapped);
}

TEST(GenSobelKernel, FloatsAreExactIn24Bits) {
  bool rounded = false;
  for (int32_t size = 1; size <= 31; size += 2) {
    for (int32_t order = 0; order < size; ++order) {
      const std::vector<uint64_t> expected = coefficients(size, order);
      for (const int32_t sign : {1, 0, -1, INT32_MAX, INT32_MIN}) {
        const std::vector<float> kernel = generated<float>(size, order, sign);
        const std::vector<float> steps = floatSteps(size, order, sign);
        for (int32_t j = 0; j < size; ++j) {
          const double exact = double(int64_t(sign < 0 ? 0 - expected[j] : expected[j]));
          // Up to 25 taps no value on the way reaches 2^24: in (x + 1)^24 it is the sum of all coefficients.
          if (size <= 25) {
            ASSERT_EQ(double(kernel[j]), exact);
          }
          ASSERT_TRUE(sameValue(kernel[j], steps[j])) << "tap " << j << " of " << size << ", order " << order;
          rounded |= double(kernel[j]) != exact;
        }
      }
    }
  }
  EXPECT_TRUE(rounded);
}

template <class Tap>
static void expectKernelStatuses() {
  struct Args {
    Tap* kernel;
    int32_t kernelSize, order, sign;
  };
  const GuardedMemory memory(5 * sizeof(Tap));
  std::vector<Fault<Args>> faults = {{"kernel", qorStatusNullPtr, [](Args& a) { a.kernel = nullptr; }}};
  for (const int32_t size : {0, -1, -5, 2, 4, 6, INT32_MIN, INT32_MAX - 1}) {
    faults.push_back({"kernelSize", qorStatusBadSize, [=](Args& a) { a.kernelSize = size; }});
  }
  for (const int32_t order : {-1, 5, 6, INT32_MIN, INT32_MAX}) {
    faults.push_back({"order", qorStatusBadSize, [=](Args& a) { a.order = order; }});
  }
  expectStatuses<Args>(
      {reinterpret_cast<Tap*>(memory.data()), 5, 2, 1}, faults,
      [](const Args& a) { return generate(a.kernel, a.kernelSize, a.order, a.sign); },
      [&] { return std::vector<uint8_t>(memory.data(), memory.data() + memory.size()); });
}

TEST(GenSobelKernel, Statuses) {
  expectKernelStatuses<int16_t>();
  expectKernelStatuses<float>();
}

TEST(GenSobelKernel, NeedsNoMemory) {
  services::reset();
  services::failAfter(0);
  generated<int16_t>(31, 3, 1);
  generated<float>(31, 3, 1);
  EXPECT_EQ(services::allocations(), 0);
  services::reset();
}
