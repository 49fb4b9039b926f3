// Lines between segments, against a model that looks at one pixel at a time.
#include <gtest/gtest.h>
#include <omp.h>

#include <vector>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Type = T;
  QorStatus (*bound)(T*, int32_t, QoriSize, T, int32_t);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{qoriBoundSegments_8u_C1IR});
  body(Member<uint16_t>{qoriBoundSegments_16u_C1IR});
}

template <class T>
using Plane = std::vector<std::vector<T>>;

template <class T>
Plane<T> planeOf(const Image<T>& image) {
  Plane<T> plane;
  for (int32_t y = 0; y < image.height(); ++y) {
    plane.emplace_back();
    for (int32_t x = 0; x < image.width(); ++x) plane.back().push_back(image.get(x, y));
  }
  return plane;
}

// The rows of `bandStarts` see the row above as it was before the call.
template <class T>
void model(Plane<T>& p, T border, int32_t norm, const std::vector<int32_t>& bandStarts = {}) {
  const int32_t h = int32_t(p.size()), w = int32_t(p[0].size());
  const Plane<T> atFirst = p;
  for (int32_t y = 0; y < h; ++y) {
    const bool bandStart = std::count(bandStarts.begin(), bandStarts.end(), y) != 0;
    for (int32_t x = 0; x < w; ++x) {
      const T before = p[y][x];
      const auto test = [&](int32_t dx, int32_t dy) {
        if (x + dx < 0 || x + dx >= w || y + dy < 0) return;
        const T other = (dy < 0 && bandStart ? atFirst : p)[y + dy][x + dx];
        if (other != border && other != before) p[y][x] = border;
      };
      const bool eight = norm == qorNormInf && w > 1;
      if (eight) test(-1, -1);
      test(0, -1);
      if (eight) test(1, -1);
      test(-1, 0);
    }
  }
}

// Areas of a few values.
template <class T>
void fillWithAreas(Image<T>& image, Random& random, T border) {
  const int32_t cell = int32_t(random.pick(std::vector<int32_t>{1, 2, 5, 13, 40}));
  const int32_t columns = image.width() / cell + 1;
  std::vector<T> values;
  for (int32_t i = 0; i < columns * (image.height() / cell + 1); ++i) {
    values.push_back(random.chance(0.1) ? border : T(random.number(0, 3)));
  }
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) image.set(x, y, values[size_t(y / cell * columns + x / cell)]);
  }
}

class Bounds : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

}  // namespace

TEST_F(Bounds, LieBetweenAreas) {
  Random random(1);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Type;
    for (int round = 0; round < 1000; ++round) {
      const QoriSize size = {random.width(140), int32_t(random.number(1, 20))};
      AnyImage<T> image(random, size);
      const T border = random.chance(0.5) ? std::numeric_limits<T>::max() : T(random.number(0, 4));
      fillWithAreas(image, random, border);
      const int32_t norm = int32_t(random.number(0, 1));
      Plane<T> expected = planeOf(image);
      model(expected, border, norm);
      ASSERT_EQ(member.bound(image.data(), image.step(), size, border, norm), qorStatusOk);
      ASSERT_EQ(difference(image, [&](int32_t x, int32_t y, int32_t) { return expected[y][x]; }), "") << norm;
      ASSERT_TRUE(image.gapsIntact());
    }
  });
}

TEST_F(Bounds, OfOneColumnLookUpOnly) {
  Image<uint8_t> image(1, 5);
  const std::vector<uint8_t> values = {1, 2, 2, 3, 3}, expected = {1, 9, 2, 9, 3};
  for (int32_t y = 0; y < 5; ++y) image.set(0, y, values[size_t(y)]);
  EXPECT_EQ(qoriBoundSegments_8u_C1IR(image.data(), image.step(), image.size(), 9, qorNormInf), qorStatusOk);
  EXPECT_EQ(difference(image, [&](int32_t, int32_t y, int32_t) { return expected[size_t(y)]; }), "");
}

TEST_F(Bounds, AreDrawnByOneThreadFromSerialCode) {
  services::threads(4);
  Image<uint8_t> image(128, 128);
  EXPECT_EQ(requestedTeam([&] { qoriBoundSegments_8u_C1IR(image.data(), image.step(), image.size(), 9, qorNormL1); }),
            0);
}

// The team of the caller decides. An inner team of one thread gives what serial code gives; in larger ones the first
// row of a band sees the row above as it was.
TEST_F(Bounds, AreTheSameFromInsideATeam) {
  Random random(2);
  for (const int innerThreads : {1, 3}) {
    for (const int32_t suggested : {1, 2, 3, 8}) {
      services::threads(suggested);
      Image<uint8_t> image(70, 100);
      fillWithAreas(image, random, uint8_t(200));
      Plane<uint8_t> expected = planeOf(image);
      const int32_t bands = std::min(3, suggested);
      std::vector<int32_t> bandStarts;
      for (int32_t b = 1; b < bands && innerThreads > 1; ++b) {
        bandStarts.push_back(int32_t(float(b) * (100.0f / float(bands)) + 0.5f));
      }
      model(expected, uint8_t(200), qorNormInf, bandStarts);
      omp_set_max_active_levels(innerThreads == 1 ? 1 : 2);
      QorStatus status = 1;
#pragma omp parallel num_threads(3)
      {
#pragma omp master
        status = qoriBoundSegments_8u_C1IR(image.data(), image.step(), image.size(), 200, qorNormInf);
      }
      omp_set_max_active_levels(1);
      EXPECT_EQ(status, qorStatusOk);
      EXPECT_EQ(difference(image, [&](int32_t x, int32_t y, int32_t) { return expected[y][x]; }), "")
          << innerThreads << " " << suggested;
    }
  }
}

TEST_F(Bounds, RefuseBadArguments) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Type;
    struct Args {
      T* srcDst;
      int32_t step;
      QoriSize size;
      int32_t norm;
    };
    Image<T> image(6, 4, 1, 1);
    for (int32_t i = 0; i < 24; ++i) image.set(i % 6, i / 6, T(i % 3));
    const auto set = [](auto member_, auto value) { return [=](Args& a) { a.*member_ = value; }; };
    std::vector<Fault<Args>> faults = {
        {"srcDst", qorStatusNullPtr, set(&Args::srcDst, nullptr)},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{0, 4})},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{6, 0})},
        {"step", qorStatusBadStep, set(&Args::step, int32_t(6 * sizeof(T) - 1))},
    };
    if (sizeof(T) == 2) faults.push_back({"step", qorStatusBadStepAlign, set(&Args::step, 13)});
    faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, 2)});
    faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, -1)});
    expectStatuses<Args>(
        {image.data(), image.step(), image.size(), 1}, faults,
        [&](const Args& a) { return member.bound(a.srcDst, a.step, a.size, T(9), a.norm); },
        [&] { return image.bytes(); });
  });
}
