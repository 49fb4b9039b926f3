// Super-resolution residuals and gradients against their sums, term by term.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "qorcvmx.h"
#include "support/image.h"
#include "support/instrumented.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

const int32_t thorough = instrumented() ? 1 : 8;

// The functions of one kernel size, under common names.
struct Psf2x2 {
  static constexpr int32_t n = 2;
  using Spec = QoriSRHNSpec_PSF2x2;
  static constexpr auto init = qoriSRHNInitAlloc_PSF2x2;
  static constexpr auto release = qoriSRHNFree_PSF2x2;
  static constexpr auto update = qoriSRHNUpdateGradient_PSF2x2_32f_C1R;
  template <class... A>
  static QorStatus residual(const float* h, int32_t step, const uint8_t* low, A... a) {
    return qoriSRHNCalcResidual_PSF2x2_8u32f_C1R(h, step, low, a...);
  }
  template <class... A>
  static QorStatus residual(const float* h, int32_t step, const uint16_t* low, A... a) {
    return qoriSRHNCalcResidual_PSF2x2_16u32f_C1R(h, step, low, a...);
  }
};

struct Psf3x3 {
  static constexpr int32_t n = 3;
  using Spec = QoriSRHNSpec_PSF3x3;
  static constexpr auto init = qoriSRHNInitAlloc_PSF3x3;
  static constexpr auto release = qoriSRHNFree_PSF3x3;
  static constexpr auto update = qoriSRHNUpdateGradient_PSF3x3_32f_C1R;
  template <class... A>
  static QorStatus residual(const float* h, int32_t step, const uint8_t* low, A... a) {
    return qoriSRHNCalcResidual_PSF3x3_8u32f_C1R(h, step, low, a...);
  }
  template <class... A>
  static QorStatus residual(const float* h, int32_t step, const uint16_t* low, A... a) {
    return qoriSRHNCalcResidual_PSF3x3_16u32f_C1R(h, step, low, a...);
  }
};

template <class P>
class SuperResolution : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
};
using Kernels = ::testing::Types<Psf2x2, Psf3x3>;
TYPED_TEST_SUITE(SuperResolution, Kernels);

// Elements that end at an unmapped page, at an odd address if so wished.
template <class T>
struct Array {
  explicit Array(size_t count, bool odd = false)
      : memory(count * sizeof(T) + odd), data(reinterpret_cast<T*>(memory.data())), size(count) {}
  T get(size_t i) const {
    T value;
    memcpy(&value, memory.data() + i * sizeof(T), sizeof value);
    return value;
  }
  void set(size_t i, T value) { memcpy(memory.data() + i * sizeof(T), &value, sizeof value); }
  std::vector<T> all() const {
    std::vector<T> values(size);
    memcpy(values.data(), memory.data(), size * sizeof(T));
    return values;
  }
  GuardedMemory memory;
  T* data;
  size_t size;
};

// An image of `elements` floats in memory order, of which `base` is the one that the call gets, with samples whose
// patches lie in it.
template <class P>
struct Samples {
  static constexpr int32_t n = P::n;
  int32_t step;  // of the image, in elements
  size_t base;
  Array<float> image;
  Array<int32_t> offset;
  Array<uint16_t> phase;
  Array<float> residual;
  Array<uint8_t> weightIndex;
  Array<float> weights;
  std::vector<float> psf;
  typename P::Spec* spec = nullptr;

  Samples(Random& random, int32_t length, int32_t phases)
      : step(int32_t(random.number(n, 20)) * (random.chance(0.3) ? -1 : 1)),
        base(size_t(random.number(0, 199))),
        image(200 + size_t(n) * size_t(abs(step)), random.chance(0.3)),
        offset(size_t(length), random.chance(0.3)),
        phase(size_t(length), random.chance(0.3)),
        residual(size_t(length), random.chance(0.3)),
        weightIndex(size_t(length)),
        weights(256, random.chance(0.3)),
        psf(size_t(n * n * phases)) {
    if (random.chance(0.2)) step = random.chance(0.5) ? -1 : -n;
    for (float& tap : psf) tap = random.chance(0.1) ? -0.0f : random.value<float>() / 1000;
    for (size_t i = 0; i < image.size; ++i) image.set(i, random.chance(0.05) ? -0.0f : random.value<float>());
    for (size_t i = 0; i < 256; ++i) weights.set(i, random.value<float>() / 100);
    // Patches from the first element to the very last.
    const int32_t reach = (n - 1) * step, low = reach < 0 ? -reach : 0;
    const int32_t high = int32_t(image.size) - n - (reach > 0 ? reach : 0);
    for (size_t i = 0; i < size_t(length); ++i) {
      const int32_t first = i == 0 ? low : i == 1 ? high : int32_t(random.number(low, high));
      offset.set(i, first - int32_t(base));
      phase.set(i, uint16_t(random.number(0, phases - 1)));
      residual.set(i, random.value<float>());
      weightIndex.set(i, random.value<uint8_t>());
    }
    EXPECT_EQ(P::init(&spec, psf.data(), phases), qorStatusOk);
  }
  ~Samples() { EXPECT_EQ(P::release(spec), qorStatusOk); }
  float* pixels() const { return reinterpret_cast<float*>(image.memory.data() + base * 4); }
  size_t element(size_t i, int32_t x, int32_t y) const { return size_t(int32_t(base) + offset.get(i) + y * step + x); }
  float tap(size_t i, int32_t x, int32_t y) const { return psf[size_t(phase.get(i) * n * n + y * n + x)]; }
};

template <class P, class T>
void expectResiduals(Random& random, int32_t length, int32_t phases) {
  Samples<P> s(random, length, phases);
  Array<T> low(size_t(length), sizeof(T) > 1 && random.chance(0.3));
  for (size_t i = 0; i < low.size; ++i) low.set(i, random.value<T>());
  const std::vector<float> before = s.image.all();
  ASSERT_EQ(P::residual(s.pixels(), s.step * 4, low.data, s.offset.data, s.phase.data, s.residual.data, length, s.spec),
            qorStatusOk);
  for (size_t i = 0; i < size_t(length); ++i) {
    float sum = s.image.get(s.element(i, 0, 0)) * s.tap(i, 0, 0);
    for (int32_t j = 1; j < P::n * P::n; ++j) {
      sum = sum + s.image.get(s.element(i, j % P::n, j / P::n)) * s.tap(i, j % P::n, j / P::n);
    }
    const float expected = sum - float(low.get(i));
    ASSERT_TRUE(sameValue(s.residual.get(i), expected)) << s.residual.get(i) << " instead of " << expected;
  }
  ASSERT_TRUE(before == s.image.all() && s.image.memory.patternIntact() && s.residual.memory.patternIntact());
}

TYPED_TEST(SuperResolution, ResidualsAreTheSumsOfTheirTaps) {
  Random random(1);
  for (int32_t i = 0; i < 40 * thorough; ++i) {
    const int32_t length = i % 20 + 1, phases = random.chance(0.2) ? 65536 / 64 : int32_t(random.number(1, 9));
    expectResiduals<TypeParam, uint8_t>(random, length, phases);
    expectResiduals<TypeParam, uint16_t>(random, length, phases);
  }
  expectResiduals<TypeParam, uint8_t>(random, 1000, 5);
}

// Phases are unsigned: the table may have more than 32767 entries.
TYPED_TEST(SuperResolution, TheLastOf65536Phases) {
  constexpr int32_t taps = TypeParam::n * TypeParam::n;
  std::vector<float> psf(size_t(taps) * 65536);
  for (int32_t j = 0; j < taps; ++j) psf[size_t(taps) * 65535 + j] = float(j + 1);
  typename TypeParam::Spec* spec = nullptr;
  ASSERT_EQ(TypeParam::init(&spec, psf.data(), 65536), qorStatusOk);
  const std::vector<float> image(taps, 1.0f);
  const int32_t offset = 0;
  const uint16_t phase = 65535;
  const uint8_t low = 3;
  float residual = 0;
  ASSERT_EQ(TypeParam::residual(image.data(), TypeParam::n * 4, &low, &offset, &phase, &residual, 1, spec),
            qorStatusOk);
  EXPECT_EQ(residual, float(taps * (taps + 1) / 2 - 3));
  EXPECT_EQ(TypeParam::release(spec), qorStatusOk);
}

// Steps below the kernel's height let a patch overlap itself (-1), so the order of taps shows.
TYPED_TEST(SuperResolution, GradientsTakeTapAfterTap) {
  Random random(2);
  for (int32_t i = 0; i < 60 * thorough; ++i) {
    const int32_t length = i % 25 + 1;
    Samples<TypeParam> s(random, length, int32_t(random.number(1, 9)));
    std::vector<float> expected = s.image.all();
    for (size_t k = 0; k < size_t(length); ++k) {
      const float r = s.weights.get(s.weightIndex.get(k)) * s.residual.get(k);
      for (int32_t y = 0; y < TypeParam::n; ++y) {
        for (int32_t x = 0; x < TypeParam::n; ++x) {
          float& element = expected[s.element(k, x, y)];
          element = element + s.tap(k, x, y) * r;
        }
      }
    }
    ASSERT_EQ(TypeParam::update(s.pixels(), s.step * 4, s.offset.data, s.phase.data, s.residual.data,
                                s.weightIndex.data, length, s.weights.data, s.spec),
              qorStatusOk);
    for (size_t k = 0; k < expected.size(); ++k) {
      ASSERT_TRUE(sameValue(s.image.get(k), expected[k])) << k << ", step " << s.step;
    }
    ASSERT_TRUE(s.image.memory.patternIntact());
  }
}

TYPED_TEST(SuperResolution, SamplesOfOnePlaceAddUp) {
  constexpr int32_t n = TypeParam::n;
  std::vector<float> psf(2 * n * n);
  for (size_t j = 0; j < psf.size(); ++j) psf[j] = float(j + 1);
  typename TypeParam::Spec* spec = nullptr;
  ASSERT_EQ(TypeParam::init(&spec, psf.data(), 2), qorStatusOk);
  std::vector<float> gradient(n * n, 1.0f);
  const int32_t offset[] = {0, 0};
  const uint16_t phase[] = {0, 1};
  const float residual[] = {2.0f, -1.0f}, weights[] = {0.0f, 0.5f, 3.0f};
  const uint8_t weightIndex[] = {1, 2};
  ASSERT_EQ(TypeParam::update(gradient.data(), n * 4, offset, phase, residual, weightIndex, 2, weights, spec),
            qorStatusOk);
  for (int32_t j = 0; j < n * n; ++j) {
    EXPECT_EQ(gradient[size_t(j)], 1.0f + float(j + 1) * 1.0f + float(n * n + j + 1) * -3.0f);
  }
  EXPECT_EQ(TypeParam::release(spec), qorStatusOk);
}

TYPED_TEST(SuperResolution, TheTableIsACopy) {
  std::vector<float> psf(TypeParam::n * TypeParam::n, 1.0f);
  typename TypeParam::Spec* spec = nullptr;
  ASSERT_EQ(TypeParam::init(&spec, psf.data(), 1), qorStatusOk);
  psf.assign(psf.size(), 100.0f);
  const std::vector<float> image(9, 1.0f);
  const int32_t offset = 0;
  const uint16_t phase = 0, low = 65535;
  float residual = 0;
  ASSERT_EQ(TypeParam::residual(image.data(), 12, &low, &offset, &phase, &residual, 1, spec), qorStatusOk);
  EXPECT_EQ(residual, float(psf.size()) - 65535.0f);
  EXPECT_EQ(services::allocations(), 2);
  EXPECT_EQ(services::liveBlocks(), 2);
  EXPECT_EQ(TypeParam::release(spec), qorStatusOk);
}

TYPED_TEST(SuperResolution, WithoutMemoryNothingIsLeft) {
  const std::vector<float> psf(TypeParam::n * TypeParam::n);
  for (const int32_t successes : {0, 1}) {
    services::reset();
    services::failAfter(successes);
    typename TypeParam::Spec* spec = nullptr;
    EXPECT_EQ(TypeParam::init(&spec, psf.data(), 1), qorStatusNoMemory);
    EXPECT_EQ(spec, nullptr);
    EXPECT_EQ(services::allocations(), successes + 1);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
}

TYPED_TEST(SuperResolution, StatusesOfCreatingAndReleasing) {
  const std::vector<float> psf(TypeParam::n * TypeParam::n);
  typename TypeParam::Spec* spec = nullptr;
  EXPECT_EQ(TypeParam::init(nullptr, psf.data(), 0), qorStatusNullPtr);
  EXPECT_EQ(TypeParam::init(&spec, nullptr, 0), qorStatusNullPtr);
  for (const int32_t phases : {0, -1, INT32_MIN})
    EXPECT_EQ(TypeParam::init(&spec, psf.data(), phases), qorStatusBadSize);
  EXPECT_EQ(spec, nullptr);
  EXPECT_EQ(services::allocations(), 0);
  EXPECT_EQ(TypeParam::release(nullptr), qorStatusNullPtr);
}

// ---- Statuses of the loops

template <class P>
struct Args {
  float* image;
  int32_t step;
  const uint8_t* low;
  const int32_t* offset;
  const uint16_t* phase;
  float* residual;
  const uint8_t* weightIndex;
  const float* weights;
  int32_t length;
  const typename P::Spec* spec;
};

TYPED_TEST(SuperResolution, StatusesInTheirOrder) {
  using A = Args<TypeParam>;
  constexpr int32_t n = TypeParam::n;
  Random random(3);
  Samples<TypeParam> s(random, 4, 2);
  const std::vector<uint8_t> low(8);
  // The patches of `s` fit any step; here they begin in the middle, so that steps of either sign have room.
  for (size_t i = 0; i < 4; ++i) s.offset.set(i, 100 - int32_t(s.base));
  const A good = {s.pixels(),         n * 4,          low.data(), s.offset.data, s.phase.data, s.residual.data,
                  s.weightIndex.data, s.weights.data, 4,          s.spec};
  const auto written = [&] {
    std::vector<uint8_t> bytes(s.image.memory.data(), s.image.memory.data() + s.image.memory.size());
    bytes.insert(bytes.end(), s.residual.memory.data(), s.residual.memory.data() + s.residual.memory.size());
    return bytes;
  };
  std::vector<Fault<A>> faults = {{"image", qorStatusNullPtr, [](A& a) { a.image = nullptr; }},
                                  {"offset", qorStatusNullPtr, [](A& a) { a.offset = nullptr; }},
                                  {"phase", qorStatusNullPtr, [](A& a) { a.phase = nullptr; }},
                                  {"residual", qorStatusNullPtr, [](A& a) { a.residual = nullptr; }},
                                  {"state", qorStatusNullPtr, [](A& a) { a.spec = nullptr; }}};
  std::vector<Fault<A>> later = {{"length", qorStatusBadSize, [](A& a) { a.length = 0; }},
                                 {"length", qorStatusBadSize, [](A& a) { a.length = -7; }}};
  for (const int32_t step : {0, 1, 4, n * 4 - 1, n * 4 - 4, n * 4 + 1, n * 4 + 2, n * 4 + 3, -1, -2, -n * 4 - 2}) {
    later.push_back({"step", qorStatusBadStep, [=](A& a) { a.step = step; }});
  }
  std::vector<Fault<A>> ofResidual = faults, ofUpdate = faults;
  ofResidual.push_back({"lowRes", qorStatusNullPtr, [](A& a) { a.low = nullptr; }});
  ofUpdate.push_back({"weightIndex", qorStatusNullPtr, [](A& a) { a.weightIndex = nullptr; }});
  ofUpdate.push_back({"weights", qorStatusNullPtr, [](A& a) { a.weights = nullptr; }});
  ofResidual.insert(ofResidual.end(), later.begin(), later.end());
  ofUpdate.insert(ofUpdate.end(), later.begin(), later.end());
  const std::function<QorStatus(const A&)> residual8 = [](const A& a) {
    return TypeParam::residual(a.image, a.step, a.low, a.offset, a.phase, a.residual, a.length, a.spec);
  };
  const std::function<QorStatus(const A&)> residual16 = [](const A& a) {
    return TypeParam::residual(a.image, a.step, reinterpret_cast<const uint16_t*>(a.low), a.offset, a.phase, a.residual,
                               a.length, a.spec);
  };
  const std::function<QorStatus(const A&)> update = [](const A& a) {
    return TypeParam::update(a.image, a.step, a.offset, a.phase, a.residual, a.weightIndex, a.length, a.weights,
                             a.spec);
  };
  expectStatuses<A>(good, ofResidual, residual8, written);
  expectStatuses<A>(good, ofResidual, residual16, written);
  expectStatuses<A>(good, ofUpdate, update, written);
  // Any negative multiple of 4 is a step, a short one too.
  for (const int32_t step : {-4, -8, -12, -40}) {
    A a = good;
    a.step = step;
    EXPECT_EQ(residual8(a), qorStatusOk);
    EXPECT_EQ(residual16(a), qorStatusOk);
    EXPECT_EQ(update(a), qorStatusOk);
  }
}

}  // namespace
