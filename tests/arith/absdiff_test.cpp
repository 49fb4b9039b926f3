// Absolute difference of two images, or of an image and a constant: every function against a literal model.
//
// A NaN is right only with a clear sign bit.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <limits>

#include "support/any_image.h"
#include "support/instrumented.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
using TwoImages = QorStatus (*)(const T*, int32_t, const T*, int32_t, T*, int32_t, QoriSize);
template <class T, class V>
using ImageAndConstant = QorStatus (*)(const T*, int32_t, T*, int32_t, QoriSize, V);

// Calls body(function, channels) for each function of two images, and body(function) for each with a constant.
template <class Body>
void forTwoImages(Body body) {
  body(qoriAbsDiff_8u_C1R, 1);
  body(qoriAbsDiff_8u_C3R, 3);
  body(qoriAbsDiff_16u_C1R, 1);
  body(qoriAbsDiff_32f_C1R, 1);
}
template <class Body>
void forImageAndConstant(Body body) {
  body(qoriAbsDiffC_8u_C1R);
  body(qoriAbsDiffC_16u_C1R);
  body(qoriAbsDiffC_32f_C1R);
}

template <class T>
T model(T a, T b) {
  if constexpr (std::is_same_v<T, float>) {
    const float rounded = a - b;
    uint32_t bits;
    memcpy(&bits, &rounded, sizeof bits);
    bits &= 0x7fffffff;
    float magnitude;
    memcpy(&magnitude, &bits, sizeof magnitude);
    return magnitude;
  } else {
    return T(abs(int32_t(a) - int32_t(b)));
  }
}

// The constant as it is used.
template <class T, class V>
T held(V value) {
  if constexpr (std::is_same_v<T, float>) {
    return value;
  } else {
    if (value < 1) return 0;
    return value > std::numeric_limits<T>::max() ? std::numeric_limits<T>::max() : T(value);
  }
}

template <class T>
T anyPixel(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.anyFloat();
  } else {
    return random.value<T>();
  }
}

template <class V>
V anyConstant(Random& random) {
  if constexpr (std::is_same_v<V, float>) {
    return random.anyFloat();
  } else {
    static const std::vector<int32_t> telling = {0,   1,     -1,    -5,    127,   128,   254,   255,       256,
                                                 300, 32767, 32768, 65534, 65535, 65536, 70000, INT32_MIN, INT32_MAX};
    return random.chance(0.5) ? random.pick(telling) : int32_t(random.number(-70000, 140000));
  }
}

template <class T>
struct NoisyImage : AnyImage<T> {
  NoisyImage(Random& random, int32_t width, int32_t height, int32_t channels)
      : AnyImage<T>(random, {width, height}, channels) {
    this->fill([&] { return anyPixel<T>(random); });
  }
};

template <class T>
std::string wrongPixel(const Image<T>& dst, const std::function<T(int32_t, int32_t, int32_t)>& expected) {
  if (!dst.gapsIntact()) return "wrote outside the region";
  for (int32_t y = 0; y < dst.height(); ++y) {
    for (int32_t x = 0; x < dst.width(); ++x) {
      if (signbit(double(dst.get(x, y)))) return "the sign bit is set at column " + std::to_string(x);
    }
  }
  return difference(dst, expected);
}

std::vector<int32_t> manyTeams() {
  std::vector<int32_t> teams = {0, -1, INT32_MIN};
  for (int32_t team = 1; team <= 40; ++team) teams.push_back(team);
  return teams;
}

// Runs a call whose result is right again for each team: the same bytes must come out.
template <class T, class Call>
std::string wrongTeam(const std::vector<int32_t>& teams, Image<T>& dst, Call call) {
  const std::vector<uint8_t> right = dst.bytes();
  for (int32_t team : teams) {
    dst.fill([] { return T(77); });
    services::teamSize = team;
    if (call() != qorStatusOk || dst.bytes() != right) return "with a team of " + std::to_string(team);
  }
  return "";
}

// Runs a function on random images; `place` is 0 for a destination of its own, 1 or 2 to write into that source.
template <class T>
std::string wrongTwoImages(TwoImages<T> function, int32_t channels, Random& random, int32_t width, int32_t height,
                           int32_t place = 0, const std::vector<int32_t>& teams = {}) {
  const NoisyImage<T> src1(random, width, height, channels), src2(random, width, height, channels);
  NoisyImage<T> own(random, width, height, channels);
  const std::vector<uint8_t> bytes1 = src1.bytes(), bytes2 = src2.bytes();
  const Image<T>& dst = place == 1 ? src1 : place == 2 ? src2 : static_cast<const Image<T>&>(own);
  std::vector<T> expected;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      for (int32_t c = 0; c < channels; ++c) expected.push_back(model(src1.get(x, y, c), src2.get(x, y, c)));
    }
  }
  const auto call = [&] {
    return function(src1.data(), src1.step(), src2.data(), src2.step(), dst.data(), dst.step(), dst.size());
  };
  const QorStatus status = call();
  if (status != qorStatusOk) return "status " + std::to_string(status);
  if (place != 1 && src1.bytes() != bytes1) return "wrote into the first source";
  if (place != 2 && src2.bytes() != bytes2) return "wrote into the second source";
  const std::string wrong = wrongPixel<T>(
      dst, [&](int32_t x, int32_t y, int32_t c) { return expected[(size_t(y) * width + x) * channels + c]; });
  return wrong.empty() ? wrongTeam(teams, own, call) : wrong;
}

template <class T, class V>
std::string wrongConstant(ImageAndConstant<T, V> function, Random& random, int32_t width, int32_t height,
                          bool inPlace = false, const std::vector<int32_t>& teams = {}) {
  const NoisyImage<T> src(random, width, height, 1);
  NoisyImage<T> own(random, width, height, 1);
  const V value = anyConstant<V>(random);
  const std::vector<uint8_t> bytes = src.bytes();
  const Image<T>& dst = inPlace ? static_cast<const Image<T>&>(src) : own;
  std::vector<T> expected;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) expected.push_back(model(src.get(x, y), held<T>(value)));
  }
  const auto call = [&] { return function(src.data(), src.step(), dst.data(), dst.step(), dst.size(), value); };
  const QorStatus status = call();
  if (status != qorStatusOk) return "status " + std::to_string(status);
  if (!inPlace && src.bytes() != bytes) return "wrote into the source";
  const std::string wrong =
      wrongPixel<T>(dst, [&](int32_t x, int32_t y, int32_t) { return expected[size_t(y) * width + x]; });
  return wrong.empty() ? wrongTeam(teams, own, call) : "value " + std::to_string(value) + " " + wrong;
}

// Whether the call opens a parallel region where two threads may be used.
template <class Call>
bool forks(Call call) {
  services::threads(2);
  return requestedTeam(call) != 0;
}

template <class T>
bool forksOn(TwoImages<T> function, int32_t channels, QoriSize size) {
  const int32_t step = size.width * channels * int32_t(sizeof(T));
  std::vector<uint8_t> memory(size_t(step) * size.height);
  T* image = reinterpret_cast<T*>(memory.data());
  return forks([&] { EXPECT_EQ(function(image, step, image, step, image, step, size), qorStatusOk); });
}

template <class T, class V>
bool forksOn(ImageAndConstant<T, V> function, QoriSize size) {
  const int32_t step = size.width * int32_t(sizeof(T));
  std::vector<uint8_t> memory(size_t(step) * size.height);
  T* image = reinterpret_cast<T*>(memory.data());
  return forks([&] { EXPECT_EQ(function(image, step, image, step, size, V(0)), qorStatusOk); });
}

// Arguments of either kind of call, for the status matrices.
template <class T>
struct Arguments {
  const T* src1;
  int32_t src1Step;
  const T* src2;
  int32_t src2Step;
  T* dst;
  int32_t dstStep;
  QoriSize size;
};

template <class T>
std::vector<Fault<Arguments<T>>> faultsOf(bool second, int32_t channels, int32_t width) {
  using A = Arguments<T>;
  std::vector<Fault<A>> faults;
  faults.push_back({"src1", qorStatusNullPtr, [](A& a) { a.src1 = nullptr; }});
  if (second) faults.push_back({"src2", qorStatusNullPtr, [](A& a) { a.src2 = nullptr; }});
  faults.push_back({"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }});
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({"width", qorStatusBadSize, [=](A& a) { a.size.width = bad; }});
    faults.push_back({"height", qorStatusBadSize, [=](A& a) { a.size.height = bad; }});
  }
  const int32_t row = width * channels * int32_t(sizeof(T));
  for (int32_t bad : {row - 1, row - int32_t(sizeof(T)), 0, -row, INT32_MIN}) {
    faults.push_back({"src1Step", qorStatusBadStep, [=](A& a) { a.src1Step = bad; }});
    if (second) faults.push_back({"src2Step", qorStatusBadStep, [=](A& a) { a.src2Step = bad; }});
    faults.push_back({"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = bad; }});
  }
  for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) {
    faults.push_back({"src1Step", qorStatusBadStepAlign, [=](A& a) { a.src1Step = row + more; }});
    if (second) faults.push_back({"src2Step", qorStatusBadStepAlign, [=](A& a) { a.src2Step = row + more; }});
    faults.push_back({"dstStep", qorStatusBadStepAlign, [=](A& a) { a.dstStep = row + more; }});
  }
  return faults;
}

// Room for steps that are a few bytes too long.
constexpr int32_t statusWidth = 9, statusHeight = 3, statusGap = 2;

template <class T>
void expectTwoImageStatuses(TwoImages<T> function, int32_t channels) {
  const Image<T> src(statusWidth, statusHeight, channels, statusGap);
  const Image<T> dst(statusWidth, statusHeight, channels, statusGap);
  const int32_t row = statusWidth * channels * int32_t(sizeof(T));
  const Arguments<T> good = {src.data(), row, src.data(), row, dst.data(), row, src.size()};
  expectStatuses<Arguments<T>>(
      good, faultsOf<T>(true, channels, statusWidth),
      [&](const Arguments<T>& a) { return function(a.src1, a.src1Step, a.src2, a.src2Step, a.dst, a.dstStep, a.size); },
      [&] { return dst.bytes(); });
}

template <class T, class V>
void expectConstantStatuses(ImageAndConstant<T, V> function) {
  const Image<T> src(statusWidth, statusHeight, 1, statusGap), dst(statusWidth, statusHeight, 1, statusGap);
  const int32_t row = statusWidth * int32_t(sizeof(T));
  const Arguments<T> good = {src.data(), row, nullptr, 0, dst.data(), row, src.size()};
  expectStatuses<Arguments<T>>(
      good, faultsOf<T>(false, 1, statusWidth),
      [&](const Arguments<T>& a) { return function(a.src1, a.src1Step, a.dst, a.dstStep, a.size, V(3)); },
      [&] { return dst.bytes(); });
}

}  // namespace

class AbsDiff : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(AbsDiff, matchesTheModel) {
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const int32_t width = random.width(300), height = int32_t(random.number(1, 6));
    forTwoImages([&](auto function, int32_t channels) {
      ASSERT_EQ(wrongTwoImages(function, channels, random, width, height), "");
    });
    forImageAndConstant([&](auto function) { ASSERT_EQ(wrongConstant(function, random, width, height), ""); });
  }
}

TEST_F(AbsDiff, inPlace) {
  Random random(2);
  for (int round = 0; round < 100; ++round) {
    const int32_t width = random.width(300), height = int32_t(random.number(1, 6));
    forTwoImages([&](auto function, int32_t channels) {
      ASSERT_EQ(wrongTwoImages(function, channels, random, width, height, 1), "");
      ASSERT_EQ(wrongTwoImages(function, channels, random, width, height, 2), "");
    });
    forImageAndConstant([&](auto function) { ASSERT_EQ(wrongConstant(function, random, width, height, true), ""); });
  }
}

TEST_F(AbsDiff, everyPairOf8BitValues) {
  Image<uint8_t> src1(256, 256), src2(256, 256), dst(256, 256);
  for (int32_t y = 0; y < 256; ++y) {
    for (int32_t x = 0; x < 256; ++x) {
      src1.set(x, y, uint8_t(x));
      src2.set(x, y, uint8_t(y));
    }
  }
  ASSERT_EQ(qoriAbsDiff_8u_C1R(src1.data(), 256, src2.data(), 256, dst.data(), 256, dst.size()), qorStatusOk);
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t y, int32_t) { return uint8_t(x > y ? x - y : y - x); }), "");
  for (int32_t value = 0; value < 256; ++value) {
    ASSERT_EQ(qoriAbsDiffC_8u_C1R(src1.data(), 256, dst.data(), 256, {256, 1}, value), qorStatusOk);
    for (int32_t x = 0; x < 256; ++x) ASSERT_EQ(dst.get(x, 0), x > value ? x - value : value - x);
  }
}

TEST_F(AbsDiff, aConstantOutOfRangeIsHeldToTheRange) {
  Image<uint8_t> bytes(256, 1), byteResult(256, 1);
  Image<uint16_t> words(65536, 1), wordResult(65536, 1);
  for (int32_t x = 0; x < 256; ++x) bytes.set(x, 0, uint8_t(x));
  for (int32_t x = 0; x < 65536; ++x) words.set(x, 0, uint16_t(x));
  const auto run8 = [&](int32_t value) {
    return qoriAbsDiffC_8u_C1R(bytes.data(), 256, byteResult.data(), 256, {256, 1}, value);
  };
  const auto run16 = [&](int32_t value) {
    return qoriAbsDiffC_16u_C1R(words.data(), 131072, wordResult.data(), 131072, {65536, 1}, value);
  };
  for (int32_t low : {-5, 0, -1, -256, -65536, INT32_MIN}) {
    ASSERT_EQ(run8(low), qorStatusOk);
    EXPECT_EQ(difference(byteResult, [](int32_t x, int32_t, int32_t) { return uint8_t(x); }), "") << low;
    ASSERT_EQ(run16(low), qorStatusOk);
    EXPECT_EQ(difference(wordResult, [](int32_t x, int32_t, int32_t) { return uint16_t(x); }), "") << low;
  }
  for (int32_t high : {300, 255, 256, 511, 65536, INT32_MAX}) {
    ASSERT_EQ(run8(high), qorStatusOk);
    EXPECT_EQ(difference(byteResult, [](int32_t x, int32_t, int32_t) { return uint8_t(255 - x); }), "") << high;
  }
  for (int32_t high : {70000, 65535, 65536, 131071, INT32_MAX}) {
    ASSERT_EQ(run16(high), qorStatusOk);
    EXPECT_EQ(difference(wordResult, [](int32_t x, int32_t, int32_t) { return uint16_t(65535 - x); }), "") << high;
  }
}

TEST_F(AbsDiff, specialFloats) {
  const float infinity = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float tiny = std::numeric_limits<float>::denorm_min(), huge = std::numeric_limits<float>::max();
  struct {
    float a, b, expected;
  } const cases[] = {
      {infinity, infinity, nan},
      {-infinity, -infinity, nan},
      {infinity, -infinity, infinity},
      {-infinity, infinity, infinity},
      {1, infinity, infinity},
      {-infinity, 1, infinity},
      {nan, 1, nan},
      {-nan, 1, nan},
      {1, -nan, nan},
      {-nan, -nan, nan},
      {0.0f, 0.0f, 0.0f},
      {-0.0f, 0.0f, 0.0f},
      {0.0f, -0.0f, 0.0f},
      {-0.0f, -0.0f, 0.0f},
      {tiny, 0.0f, tiny},
      {0.0f, tiny, tiny},
      {-tiny, tiny, 2 * tiny},
      {huge, -huge, infinity},
      {16777216.0f, -1.0f, 16777216.0f},
      {1.0f, 16777218.0f, 16777216.0f},
  };
  for (const auto& c : cases) {
    // A whole row of one pair, so that every part of a loop over vectors meets it.
    constexpr int32_t width = 37;
    Image<float> src1(width, 1), src2(width, 1), dst(width, 1);
    src1.fill([&] { return c.a; });
    src2.fill([&] { return c.b; });
    const auto expected = [&](int32_t, int32_t, int32_t) { return c.expected; };
    ASSERT_EQ(qoriAbsDiff_32f_C1R(src1.data(), 148, src2.data(), 148, dst.data(), 148, {width, 1}), qorStatusOk);
    EXPECT_EQ(wrongPixel<float>(dst, expected), "") << c.a << " - " << c.b;
    dst.fill([] { return -1.0f; });
    ASSERT_EQ(qoriAbsDiffC_32f_C1R(src1.data(), 148, dst.data(), 148, {width, 1}, c.b), qorStatusOk);
    EXPECT_EQ(wrongPixel<float>(dst, expected), "") << c.a << " - constant " << c.b;
  }
}

TEST_F(AbsDiff, anyTeamGivesTheSamePixels) {
  Random random(3);
  for (QoriSize size : {QoriSize{131072, 2}, QoriSize{26215, 10}, QoriSize{512, 512}}) {
    forTwoImages([&](auto function, int32_t channels) {
      ASSERT_EQ(wrongTwoImages(function, channels, random, size.width, size.height, 0, manyTeams()), "");
    });
    forImageAndConstant([&](auto function) {
      ASSERT_EQ(wrongConstant(function, random, size.width, size.height, false, manyTeams()), "");
    });
  }
}

TEST_F(AbsDiff, worksInsideAParallelRegion) {
  services::threads(4);
  std::string wrong[3];
#pragma omp parallel for num_threads(3)
  for (int i = 0; i < 3; ++i) {
    Random random(uint32_t(10 + i));
    wrong[i] = wrongTwoImages(qoriAbsDiff_16u_C1R, 1, random, 700, 400);
  }
  for (const std::string& w : wrong) EXPECT_EQ(w, "");
}

TEST_F(AbsDiff, exactly262144PixelsAreThreaded) {
  forTwoImages([&](auto function, int32_t channels) {
    if (channels == 3) return;
    EXPECT_TRUE(forksOn(function, channels, {262144, 1}));
    EXPECT_TRUE(forksOn(function, channels, {512, 512}));
    EXPECT_FALSE(forksOn(function, channels, {262143, 1}));
    EXPECT_FALSE(forksOn(function, channels, {3, 87381}));
    EXPECT_FALSE(forksOn(function, channels, {87382, 1}));
  });
  forImageAndConstant([&](auto function) {
    EXPECT_TRUE(forksOn(function, {262144, 1}));
    EXPECT_TRUE(forksOn(function, {1, 262144}));
    EXPECT_FALSE(forksOn(function, {262143, 1}));
    EXPECT_FALSE(forksOn(function, {511, 513}));
  });
}

TEST_F(AbsDiff, theGateOfThreeChannelsCountsElements) {
  EXPECT_TRUE(forksOn(qoriAbsDiff_8u_C3R, 3, {87382, 1}));
  EXPECT_FALSE(forksOn(qoriAbsDiff_8u_C3R, 3, {87381, 1}));
}

// 65536 x 32768 pixels, all mapped to the same megabyte.
TEST_F(AbsDiff, aPixelCountThatWrapsGoesTheSerialWay) {
  if (instrumented()) GTEST_SKIP() << "the sanitizer would need an eighth of these images in real memory";
  constexpr size_t chunk = 1 << 20, chunks = 2048;
  uint8_t* images[2];
  uint8_t* firstChunks[2];
  for (int i = 0; i < 2; ++i) {
    const int file = memfd_create("image", 0);
    ASSERT_GE(file, 0);
    ASSERT_EQ(ftruncate(file, chunk), 0);
    void* space = mmap(nullptr, chunk * chunks, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(space, MAP_FAILED);
    images[i] = static_cast<uint8_t*>(space);
    for (size_t c = 0; c < chunks; ++c) {
      ASSERT_NE(mmap(images[i] + c * chunk, chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
                MAP_FAILED);
    }
    close(file);
    firstChunks[i] = images[i];
  }
  Random random(4);
  for (size_t k = 0; k < chunk; ++k) firstChunks[0][k] = random.value<uint8_t>();
  QorStatus status = qorStatusNullPtr;
  EXPECT_FALSE(forks([&] { status = qoriAbsDiffC_8u_C1R(images[0], 65536, images[1], 65536, {65536, 32768}, 77); }));
  EXPECT_EQ(status, qorStatusOk);
  size_t wrong = 0;
  for (size_t k = 0; k < chunk; ++k) wrong += firstChunks[1][k] != model<uint8_t>(firstChunks[0][k], 77);
  EXPECT_EQ(wrong, 0u);
  for (uint8_t* image : images) munmap(image, chunk * chunks);
}

TEST_F(AbsDiff, statuses) {
  forTwoImages([&](auto function, int32_t channels) { expectTwoImageStatuses(function, channels); });
  forImageAndConstant([&](auto function) { expectConstantStatuses(function); });
}

TEST_F(AbsDiff, aStepOfThreeWidthsIsEnoughForThreeChannels) {
  uint8_t src[15] = {0}, dst[15];
  const auto run = [&](int32_t src1Step, int32_t src2Step, int32_t dstStep) {
    return qoriAbsDiff_8u_C3R(src, src1Step, src, src2Step, dst, dstStep, {5, 1});
  };
  EXPECT_EQ(run(15, 15, 15), qorStatusOk);
  EXPECT_EQ(run(15, 15, 14), qorStatusBadStep);
  EXPECT_EQ(run(15, 14, 15), qorStatusBadStep);
  EXPECT_EQ(run(14, 15, 15), qorStatusBadStep);
}

TEST_F(AbsDiff, theTripleOfAWidthWraps) {
  uint8_t src1[4] = {10, 20, 30, 40}, src2[4] = {15, 5, 0, 0}, dst[4] = {9, 9, 9, 9};
  const auto run = [&](uint32_t width, int32_t step) {
    return qoriAbsDiff_8u_C3R(src1, step, src2, step, dst, step, {int32_t(width), 1});
  };
  EXPECT_EQ(run(0x2aaaaaab, INT32_MAX), qorStatusBadSize);  // -2147483647
  EXPECT_EQ(run(0x55555555, INT32_MAX), qorStatusBadSize);  // -1
  EXPECT_EQ(run(0x2aaaaaaa, 100), qorStatusBadStep);        // 2147483646
  EXPECT_EQ(run(0x7fffffff, 100), qorStatusBadStep);        // 2147483645
  EXPECT_EQ(run(0x55555556, 1), qorStatusBadStep);          // 2
  EXPECT_EQ(dst[0], 9);
  EXPECT_EQ(run(0x55555556, 2), qorStatusOk);
  EXPECT_EQ(dst[0], 5);
  EXPECT_EQ(dst[1], 15);
  EXPECT_EQ(dst[2], 9);
}
