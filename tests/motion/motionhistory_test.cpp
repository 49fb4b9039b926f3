// Motion history: every function against a literal model.
#include <gtest/gtest.h>
#include <math.h>

#include "support/image.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
using Update = QorStatus (*)(const T*, int32_t, float*, int32_t, QoriSize, float, float);

template <class Body>
void forMembers(Body body) {
  body(qoriUpdateMotionHistory_8u32f_C1IR);
  body(qoriUpdateMotionHistory_16u32f_C1IR);
  body(qoriUpdateMotionHistory_32f_C1IR);
}

// The bits without the sign, with all bits inverted for a negative value.
int32_t monotonic(float value) {
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  const uint32_t magnitude = bits & 0x7fffffffu;
  return int32_t(bits >> 31 ? ~magnitude : magnitude);
}

template <class T>
float model(T silhouette, float mhi, float timestamp, float duration) {
  const float oldest = timestamp - duration;
  if (silhouette != 0) return timestamp;
  const bool below = std::is_same_v<T, float> ? mhi < oldest : monotonic(mhi) < monotonic(oldest);
  return below ? 0.0f : mhi;
}

template <class T>
T anySilhouette(Random& random) {
  if (random.chance(0.6)) return T(0);
  if constexpr (std::is_same_v<T, float>) {
    return random.anyFloat();
  } else {
    return random.value<T>();
  }
}

// Compares as bits, NaN too: pixels are kept or replaced, never computed.
std::string wrongPixel(const Image<float>& mhi, const std::vector<float>& expected) {
  if (!mhi.gapsIntact()) return "wrote outside the region";
  for (int32_t y = 0; y < mhi.height(); ++y) {
    for (int32_t x = 0; x < mhi.width(); ++x) {
      const float is = mhi.get(x, y), should = expected[size_t(y) * size_t(mhi.width()) + x];
      if (memcmp(&is, &should, sizeof is) != 0) {
        return std::to_string(is) + " instead of " + std::to_string(should) + " at column " + std::to_string(x);
      }
    }
  }
  return "";
}

template <class T>
std::string wrong(Update<T> function, const Image<T>& silhouette, const Image<float>& mhi, float timestamp,
                  float duration) {
  std::vector<float> expected;
  for (int32_t y = 0; y < mhi.height(); ++y) {
    for (int32_t x = 0; x < mhi.width(); ++x) {
      expected.push_back(model(silhouette.get(x, y), mhi.get(x, y), timestamp, duration));
    }
  }
  const bool inPlace = static_cast<const void*>(&silhouette) == &mhi;
  const std::vector<uint8_t> before = silhouette.bytes();
  if (function(silhouette.data(), silhouette.step(), mhi.data(), mhi.step(), mhi.size(), timestamp, duration) !=
      qorStatusOk) {
    return "status";
  }
  if (!inPlace && silhouette.bytes() != before) return "wrote into the silhouette";
  const std::string what = wrongPixel(mhi, expected);
  return what.empty() ? "" : what + " with " + std::to_string(timestamp) + ", " + std::to_string(duration);
}

template <class T>
Image<T> anyImage(Random& random, QoriSize size) {
  return Image<T>(size.width, size.height, 1, int32_t(random.number(0, 3)),
                  random.chance(0.5) ? Edge::begin : Edge::end, random.chance(0.5) ? size_t(random.number(1, 5)) : 0);
}

template <class T>
std::string wrongOnAny(Update<T> function, Random& random, QoriSize size) {
  Image<T> silhouette = anyImage<T>(random, size);
  Image<float> mhi = anyImage<float>(random, size);
  silhouette.fill([&] { return anySilhouette<T>(random); });
  float timestamp = float(random.number(-20, 20)), duration = float(random.number(0, 20));
  if (random.chance(0.2)) timestamp = random.anyFloat();
  if (random.chance(0.2)) duration = fabsf(random.anyFloat());
  const float oldest = timestamp - duration;
  // Stamps around the limit.
  mhi.fill([&] {
    if (random.chance(0.2)) return random.anyFloat();
    if (random.chance(0.1)) return oldest;
    if (random.chance(0.2)) return nextafterf(oldest, random.chance(0.5) ? INFINITY : -INFINITY);
    return float(random.number(-40, 40));
  });
  return wrong(function, silhouette, mhi, timestamp, duration);
}

// One pixel in a row that is long enough for every part of a loop over vectors.
template <class T>
float after(Update<T> function, T silhouetteValue, float value, float timestamp, float duration) {
  constexpr int32_t width = 77;
  Image<T> silhouette(width, 1);
  Image<float> mhi(width, 1);
  silhouette.fill([&] { return silhouetteValue; });
  mhi.fill([&] { return value; });
  EXPECT_EQ(wrong(function, silhouette, mhi, timestamp, duration), "");
  return mhi.get(width / 2, 0);
}

struct Arguments {
  const void* silhouette;
  int32_t silhouetteStep;
  float* mhi;
  int32_t mhiStep;
  QoriSize size;
  float timestamp, duration;
};

}  // namespace

class MotionHistory : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(MotionHistory, matchesTheModel) {
  Random random(1);
  for (int round = 0; round < 1500; ++round) {
    const QoriSize size = {random.width(300), int32_t(random.number(1, 4))};
    forMembers([&](auto function) { ASSERT_EQ(wrongOnAny(function, random, size), ""); });
  }
}

TEST_F(MotionHistory, everyWidth) {
  Random random(2);
  for (int32_t width = 1; width <= 300; ++width) {
    forMembers([&](auto function) { ASSERT_EQ(wrongOnAny(function, random, {width, 1}), ""); });
  }
}

TEST_F(MotionHistory, aFloatSilhouetteMayBeTheHistory) {
  Random random(3);
  for (int round = 0; round < 50; ++round) {
    Image<float> mhi(random.width(200), 3);
    mhi.fill([&] { return random.anyFloat(); });
    ASSERT_EQ(wrong<float>(qoriUpdateMotionHistory_32f_C1IR, mhi, mhi, 7, 3), "");
  }
}

TEST_F(MotionHistory, aDurationOf0KeepsTheLatestStamp) {
  forMembers([](auto function) {
    EXPECT_EQ(after(function, {}, 5.0f, 5, 0), 5.0f);
    EXPECT_EQ(after(function, {}, nextafterf(5, 0), 5, 0), 0.0f);
    EXPECT_EQ(after(function, {}, 6.0f, 5, 0), 6.0f);
    EXPECT_EQ(after(function, {}, 5.0f, 5, -0.0f), 5.0f);
  });
}

TEST_F(MotionHistory, pixelsAt0Stay0) {
  forMembers([](auto function) {
    EXPECT_EQ(after(function, {}, 0.0f, 10, 3), 0.0f);
    EXPECT_EQ(after(function, {}, 0.0f, 1, 3), 0.0f);
    EXPECT_EQ(after(function, {}, -3.0f, 1, 3), 0.0f);
    EXPECT_EQ(after(function, {}, -2.0f, 1, 3), -2.0f);
    EXPECT_EQ(after(function, {}, -1.0f, 1, 3), -1.0f);
  });
}

TEST_F(MotionHistory, everyNonZeroSilhouetteSetsTheStamp) {
  for (int value = 1; value < 256; ++value) {
    EXPECT_EQ(after(qoriUpdateMotionHistory_8u32f_C1IR, uint8_t(value), 1.0f, 9, 3), 9.0f);
  }
  for (const int value : {1, 255, 256, 0x8000, 0xff00, 0xffff}) {
    EXPECT_EQ(after(qoriUpdateMotionHistory_16u32f_C1IR, uint16_t(value), 1.0f, 9, 3), 9.0f);
  }
  for (const float value : {1e-45f, -1.0f, INFINITY, NAN}) {
    EXPECT_EQ(after(qoriUpdateMotionHistory_32f_C1IR, value, 1.0f, 9, 3), 9.0f);
  }
}

TEST_F(MotionHistory, aFloatSilhouetteOfMinusZeroIsZero) {
  EXPECT_EQ(after(qoriUpdateMotionHistory_32f_C1IR, -0.0f, 8.0f, 9, 3), 8.0f);
  EXPECT_EQ(after(qoriUpdateMotionHistory_32f_C1IR, -0.0f, 5.0f, 9, 3), 0.0f);
}

TEST_F(MotionHistory, minusZeroIsBelowZeroOnlyByItsBits) {
  EXPECT_FALSE(signbit(after(qoriUpdateMotionHistory_8u32f_C1IR, uint8_t(0), -0.0f, 3, 3)));
  EXPECT_FALSE(signbit(after(qoriUpdateMotionHistory_16u32f_C1IR, uint16_t(0), -0.0f, 3, 3)));
  EXPECT_TRUE(signbit(after(qoriUpdateMotionHistory_32f_C1IR, 0.0f, -0.0f, 3, 3)));
}

TEST_F(MotionHistory, notANumberIsOrderedByItsBitsOrNotAtAll) {
  const float nan = copysignf(NAN, 1), minusNan = copysignf(NAN, -1);
  EXPECT_TRUE(isnan(after(qoriUpdateMotionHistory_8u32f_C1IR, uint8_t(0), nan, 9, 3)));
  EXPECT_EQ(after(qoriUpdateMotionHistory_8u32f_C1IR, uint8_t(0), minusNan, 9, 3), 0.0f);
  EXPECT_EQ(after(qoriUpdateMotionHistory_16u32f_C1IR, uint16_t(0), minusNan, 9, 3), 0.0f);
  EXPECT_TRUE(isnan(after(qoriUpdateMotionHistory_32f_C1IR, 0.0f, nan, 9, 3)));
  EXPECT_TRUE(isnan(after(qoriUpdateMotionHistory_32f_C1IR, 0.0f, minusNan, 9, 3)));
  // As a time stamp.
  EXPECT_EQ(after(qoriUpdateMotionHistory_8u32f_C1IR, uint8_t(0), 5.0f, nan, 3), 0.0f);
  EXPECT_EQ(after(qoriUpdateMotionHistory_32f_C1IR, 0.0f, 5.0f, nan, 3), 5.0f);
}

TEST_F(MotionHistory, aDurationThatIsNotANumberIsNotNegative) {
  uint8_t silhouette = 1;
  float mhi = 0;
  EXPECT_EQ(qoriUpdateMotionHistory_8u32f_C1IR(&silhouette, 1, &mhi, 4, {1, 1}, 9, copysignf(NAN, -1)), qorStatusOk);
  EXPECT_EQ(mhi, 9.0f);
}

// The time stamps' difference is one rounded float.
TEST_F(MotionHistory, theLimitIsRounded) {
  forMembers([](auto function) { EXPECT_EQ(after(function, {}, 16777216.0f, 16777216, 0.25f), 16777216.0f); });
  forMembers([](auto function) { EXPECT_EQ(after(function, {}, 16777215.0f, 16777216, 0.25f), 0.0f); });
}

TEST_F(MotionHistory, worksOnLargeImages) {
  services::threads(4);
  Random random(5);
  forMembers([&](auto function) { ASSERT_EQ(wrongOnAny(function, random, {1024, 300}), ""); });
}

template <class T>
static void expectStatusesOf(Update<T> function) {
  constexpr int32_t width = 9, height = 3;
  const Image<T> silhouette(width, height, 1, 4);
  Image<float> mhi(width, height, 1, 2);
  mhi.fill([] { return -1.0f; });
  using Faults = std::vector<Fault<Arguments>>;
  Faults faults = {{"silhouette", qorStatusNullPtr, [](Arguments& a) { a.silhouette = nullptr; }},
                   {"mhi", qorStatusNullPtr, [](Arguments& a) { a.mhi = nullptr; }}};
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({"width", qorStatusBadSize, [=](Arguments& a) { a.size.width = bad; }});
    faults.push_back({"height", qorStatusBadSize, [=](Arguments& a) { a.size.height = bad; }});
  }
  const int32_t row = width * int32_t(sizeof(T));
  for (int32_t bad : {row - 1, row - int32_t(sizeof(T)), 0, -row, INT32_MIN}) {
    faults.push_back({"silhouetteStep", qorStatusBadStep, [=](Arguments& a) { a.silhouetteStep = bad; }});
  }
  for (int32_t bad : {4 * width - 1, 4 * width - 4, 0, -4 * width, INT32_MIN}) {
    faults.push_back({"mhiStep", qorStatusBadStep, [=](Arguments& a) { a.mhiStep = bad; }});
  }
  for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) {
    faults.push_back({"silhouetteStep", qorStatusBadStepAlign, [=](Arguments& a) { a.silhouetteStep = row + more; }});
  }
  for (int32_t more = 1; more < 4; ++more) {
    faults.push_back({"mhiStep", qorStatusBadStepAlign, [=](Arguments& a) { a.mhiStep = 4 * width + more; }});
  }
  for (float bad : {-1.0f, -1e-45f, -float(INFINITY)}) {
    faults.push_back({"mhiDuration", qorStatusOutOfRange, [=](Arguments& a) { a.duration = bad; }});
  }
  const Arguments good = {silhouette.data(), row, mhi.data(), 4 * width, mhi.size(), 9, 3};
  expectStatuses<Arguments>(
      good, faults,
      [&](const Arguments& a) {
        return function(static_cast<const T*>(a.silhouette), a.silhouetteStep, a.mhi, a.mhiStep, a.size, a.timestamp,
                        a.duration);
      },
      [&] { return mhi.bytes(); });
}

TEST_F(MotionHistory, statuses) {
  forMembers([](auto function) { expectStatusesOf(function); });
}
