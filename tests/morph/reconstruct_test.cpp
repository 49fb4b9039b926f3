// Morphological reconstruction against the definition of its result: dilate by one neighbourhood and clip to the mask,
// until nothing changes any more.
#include <gtest/gtest.h>
#include <omp.h>

#include <memory>

#include "support/image.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
using Function = QorStatus (*)(const T*, int32_t, T*, int32_t, QoriSize, uint8_t*, int32_t);
using Query = QorStatus (*)(QoriSize, int32_t*);

template <class T>
struct Form {
  using Pixel = T;
  Function<T> function;
  Query query;
  bool dilates;
};

// Calls test(form) for all four functions.
template <class Test>
void forForms(Test test) {
  test(Form<uint8_t>{qoriMorphReconstructDilate_8u_C1IR, qoriMorphReconstructGetBufferSize_8u_C1, true});
  test(Form<uint8_t>{qoriMorphReconstructErode_8u_C1IR, qoriMorphReconstructGetBufferSize_8u_C1, false});
  test(Form<float>{qoriMorphReconstructDilate_32f_C1IR, qoriMorphReconstructGetBufferSize_32f_C1, true});
  test(Form<float>{qoriMorphReconstructErode_32f_C1IR, qoriMorphReconstructGetBufferSize_32f_C1, false});
}

template <class T>
struct Plane {
  int32_t width, height;
  std::vector<T> cells;
  Plane(int32_t width_, int32_t height_, T value = 0)
      : width(width_), height(height_), cells(size_t(width_) * height_, value) {}
  T& at(int32_t x, int32_t y) { return cells[size_t(y) * width + x]; }
  const T& at(int32_t x, int32_t y) const { return cells[size_t(y) * width + x]; }
};

// Each pixel takes the extreme of its neighbourhood, clipped to the mask, until none changes any more. The fixed point
// does not depend on the order in which they do; there and back, it is reached sooner. A marker beyond the mask is
// clipped before it can spread.
template <class T>
Plane<T> model(Plane<T> marker, const Plane<T>& mask, bool dilates, int32_t norm) {
  const auto grown = [=](T a, T b) { return dilates ? std::max(a, b) : std::min(a, b); };
  const auto clipped = [=](T a, T b) { return dilates ? std::min(a, b) : std::max(a, b); };
  const int32_t pixels = mask.width * mask.height;
  for (int32_t i = 0; i < pixels; ++i) marker.cells[i] = clipped(marker.cells[i], mask.cells[i]);
  for (bool changed = true, back = false; changed; back = !back) {
    changed = false;
    for (int32_t i = 0; i < pixels; ++i) {
      const int32_t x = (back ? pixels - 1 - i : i) % mask.width, y = (back ? pixels - 1 - i : i) / mask.width;
      T v = marker.at(x, y);
      for (int32_t ny = std::max(y - 1, 0); ny <= std::min(y + 1, mask.height - 1); ++ny) {
        for (int32_t nx = std::max(x - 1, 0); nx <= std::min(x + 1, mask.width - 1); ++nx) {
          if (norm == qorNormInf || nx == x || ny == y) v = grown(v, marker.at(nx, ny));
        }
      }
      v = clipped(v, mask.at(x, y));
      changed |= v != marker.at(x, y);
      marker.at(x, y) = v;
    }
  }
  return marker;
}

// Runs the function on images with gaps at an unmapped page and a buffer of just the size that is asked for, at an
// address of any kind, and compares. Floats are compared by value: 0.0 may be -0.0.
template <class T>
std::string wrong(const Form<T>& form, const Plane<T>& marker, const Plane<T>& mask, int32_t norm, Random& random,
                  const Plane<T>* should = nullptr) {
  const int32_t width = mask.width, height = mask.height;
  const auto image = [&](const Plane<T>& plane) {
    auto made = std::make_unique<Image<T>>(width, height, 1, int32_t(random.number(0, 3)),
                                           random.chance(0.5) ? Edge::begin : Edge::end,
                                           random.chance(0.5) ? size_t(random.number(1, 7)) : 0);
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) made->set(x, y, plane.at(x, y));
    }
    return made;
  };
  const auto src = image(mask), srcDst = image(marker);
  const std::vector<uint8_t> srcBytes = src->bytes();
  int32_t size = 0;
  if (form.query({width, height}, &size) != qorStatusOk) return "size query";
  const size_t shift = size_t(random.number(0, 33));
  const GuardedMemory buffer(size_t(size) + shift, random.chance(0.5) ? Edge::begin : Edge::end);
  memset(buffer.data(), int(random.number(0, 255)), buffer.size());
  const bool atEnd = random.chance(0.5);
  uint8_t* const room = buffer.data() + (atEnd ? shift : 0);
  const std::vector<uint8_t> before(buffer.data(), buffer.data() + buffer.size());
  const QorStatus status =
      form.function(src->data(), src->step(), srcDst->data(), srcDst->step(), {width, height}, room, norm);
  if (status != qorStatusOk) return "status " + std::to_string(status);
  for (size_t i = 0; i < buffer.size(); ++i) {
    const bool inside = buffer.data() + i >= room && buffer.data() + i < room + size;
    if (!inside && buffer.data()[i] != before[i]) return "wrote outside the buffer";
  }
  if (!buffer.patternIntact()) return "wrote outside the buffer's memory";
  if (!src->gapsIntact() || !srcDst->gapsIntact() || src->bytes() != srcBytes) return "wrote outside the marker";
  const Plane<T> expected = should ? *should : model(marker, mask, form.dilates, norm);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      if (srcDst->get(x, y) != expected.at(x, y)) {
        return "at column " + std::to_string(x) + ", row " + std::to_string(y) + " of " + std::to_string(width) + "x" +
               std::to_string(height) + ", norm " + std::to_string(norm) + ": " + std::to_string(srcDst->get(x, y)) +
               " instead of " + std::to_string(expected.at(x, y));
      }
    }
  }
  return "";
}

template <class T>
Plane<T> turned(Plane<T> plane, bool dilates) {
  if (!dilates) {
    for (T& c : plane.cells) c = T(255 - c);
  }
  return plane;
}

// Mask and marker of random kind: noise, few levels, ridges; the marker a few points, the mask less something, or
// noise, which is beyond the mask in many places.
template <class T>
void fillRandomly(Random& random, Plane<T>& marker, Plane<T>& mask) {
  const int32_t kind = int32_t(random.number(0, 3)), levels = int32_t(random.number(1, 8));
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      T& m = mask.at(x, y);
      if (kind == 0) m = random.value<T>();
      if (kind == 1) m = T(random.number(0, levels) * 30);
      if (kind == 2) m = T((x * levels / 3 + y * 5) % 256);
      if (kind == 3) m = random.chance(0.85) ? T(200) : T(random.number(0, 199));
    }
  }
  const int32_t markerKind = int32_t(random.number(0, 2)), less = int32_t(random.number(0, 60));
  for (size_t i = 0; i < mask.cells.size(); ++i) {
    T& c = marker.cells[i];
    if (markerKind == 0) c = random.chance(0.02) ? mask.cells[i] : T(0);
    if (markerKind == 1) c = mask.cells[i] > T(less) ? T(mask.cells[i] - T(less)) : T(0);
    if (markerKind == 2) c = random.value<T>();
  }
}

// A corridor of width 1 that goes along every other row, or column, there and back.
template <class T>
Plane<T> serpentine(int32_t width, int32_t height, bool columns) {
  Plane<T> mask(width, height, T(5));
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const int32_t along = columns ? y : x, across = columns ? x : y, length = columns ? height : width;
      const bool turn = along == (across / 2 % 2 == 0 ? length - 1 : 0);
      if (across % 2 == 0 || turn) mask.at(x, y) = T(250 - across % 7);
    }
  }
  return mask;
}

class Reconstruct : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

const std::vector<int32_t> norms = {qorNormInf, qorNormL1};

}  // namespace

TEST_F(Reconstruct, likeTheModelOnRandomImagesWithTeamsOfAnySize) {
  Random random(1);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t run = 0; run < 100; ++run) {
      services::threads(random.pick(std::vector<int32_t>{1, 2, 3, 40}));
      const int32_t width = random.chance(0.2) ? int32_t(random.number(9, 12)) : random.width(150);
      const int32_t height = random.chance(0.3) ? int32_t(random.number(9, 12)) : int32_t(random.number(1, 30));
      Plane<T> marker(width, height), mask(width, height);
      fillRandomly(random, marker, mask);
      if (random.chance(0.5)) {
        marker = turned(marker, form.dilates);
        mask = turned(mask, form.dilates);
      }
      ASSERT_EQ(wrong(form, marker, mask, random.pick(norms), random), "");
    }
  });
}

TEST_F(Reconstruct, everyWidthUpTo140AndEveryHeightUpTo14) {
  Random random(2);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t width = 1; width <= 140; ++width) {
      services::threads(1 + width % 2);
      const int32_t height = 1 + width % 14;
      Plane<T> marker(width, height), mask(width, height);
      fillRandomly(random, marker, mask);
      for (int32_t norm : norms) ASSERT_EQ(wrong(form, marker, mask, norm, random), "");
    }
  });
}

TEST_F(Reconstruct, imagesOf80x80) {
  Random random(3);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t threads : {1, 2}) {
      services::threads(threads);
      for (int32_t run = 0; run < 8; ++run) {
        const int32_t width = int32_t(random.number(70, 90)), height = int32_t(random.number(70, 90));
        Plane<T> marker(width, height), mask(width, height);
        fillRandomly(random, marker, mask);
        ASSERT_EQ(wrong(form, turned(marker, form.dilates), turned(mask, form.dilates), random.pick(norms), random),
                  "");
      }
    }
  });
}

TEST_F(Reconstruct, aMarkerEqualToTheMaskStays) {
  Random random(4);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t threads : {1, 2}) {
      services::threads(threads);
      Plane<T> mask(70, 20);
      for (T& c : mask.cells) c = random.value<T>();
      for (int32_t norm : norms) ASSERT_EQ(wrong(form, mask, mask, norm, random, &mask), "");
    }
  });
}

TEST_F(Reconstruct, aSeedInACornerFillsAPlateau) {
  Random random(5);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t corner = 0; corner < 8; ++corner) {
      services::threads(corner < 4 ? 1 : 2);
      const Plane<T> mask = turned(Plane<T>(131, 37, T(100)), form.dilates);
      Plane<T> marker = turned(Plane<T>(131, 37, T(3)), form.dilates);
      marker.at(corner & 1 ? 130 : 0, corner & 2 ? 36 : 0) = mask.at(0, 0);
      for (int32_t norm : norms) ASSERT_EQ(wrong(form, marker, mask, norm, random, &mask), "");
    }
  });
}

// All of the corridor is reached from its one end, from its other end, and from its middle; nothing else is.
TEST_F(Reconstruct, corridorsThatGoBackAndForth) {
  Random random(6);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t run = 0; run < 24; ++run) {
      services::threads(1 + run % 2);
      const QoriSize size = run % 3 ? QoriSize{35, 17} : QoriSize{14, 31};
      const Plane<T> mask = serpentine<T>(size.width, size.height, run & 4);
      Plane<T> marker(size.width, size.height, T(0));
      const int32_t place = run / 8 % 3;
      if (place == 0) marker.at(0, 0) = T(240);
      if (place == 1) marker.at((size.width - 1) / 2 * 2, (size.height - 1) / 2 * 2) = T(240);
      if (place == 2) marker.at(size.width / 4 * 2, size.height / 4 * 2) = T(240);
      ASSERT_EQ(wrong(form, turned(marker, form.dilates), turned(mask, form.dilates), random.pick(norms), random), "");
    }
  });
}

// Values that are only reached through a chain of diagonal steps, down and up again: rows change again and again, and
// the modes of the checking scans go down to their last.
TEST_F(Reconstruct, zigzags) {
  Random random(7);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t run = 0; run < 16; ++run) {
      services::threads(1 + run % 2);
      const int32_t height = 12 + run, width = 70;
      Plane<T> mask(width, height, T(0)), marker(width, height, T(0));
      int32_t y = 0, way = 1;
      for (int32_t x = run % 5; x < width; ++x) {
        mask.at(x, y) = T(200 - x);
        if (run & 2) mask.at(x, y + way >= 0 && y + way < height ? y + way : y) = T(200 - x);
        if (y + way < 0 || y + way >= height) way = -way;
        y += way;
      }
      marker.at(run & 4 ? width - 1 : run % 5, run & 4 ? y - way : 0) = T(255);
      for (int32_t norm : norms) {
        ASSERT_EQ(wrong(form, turned(marker, form.dilates), turned(mask, form.dilates), norm, random), "");
      }
    }
  });
}

TEST_F(Reconstruct, aMarkerBeyondTheMaskIsClipped) {
  Random random(8);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t threads : {1, 2}) {
      services::threads(threads);
      Plane<T> mask(50, 23);
      for (T& c : mask.cells) c = T(random.number(1, 254));
      const Plane<T> marker = turned(Plane<T>(50, 23, T(255)), form.dilates);
      for (int32_t norm : norms) ASSERT_EQ(wrong(form, marker, mask, norm, random, &mask), "");
    }
  });
}

TEST_F(Reconstruct, extremeFloats) {
  Random random(9);
  const float infinity = std::numeric_limits<float>::infinity();
  const std::vector<float> values = {0.0f,           -0.0f,    1e-45f,    -1e-45f, 3.4028235e38f,
                                     -3.4028235e38f, infinity, -infinity, 1.5f,    -1.5f};
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    if constexpr (std::is_same_v<T, float>) {
      for (int32_t run = 0; run < 60; ++run) {
        services::threads(1 + run % 2);
        Plane<T> marker(random.width(60), int32_t(random.number(1, 20)));
        Plane<T> mask = marker;
        for (T& c : mask.cells) c = random.pick(values);
        for (T& c : marker.cells) c = random.pick(values);
        ASSERT_EQ(wrong(form, marker, mask, random.pick(norms), random), "");
      }
    }
  });
}

TEST_F(Reconstruct, asksForTwoThreadsFrom11By11Pixels) {
  Random random(10);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    const auto team = [&](int32_t width, int32_t height, int32_t threads) {
      // The other two answers of the core services do not count.
      services::threads(threads == 1 ? 8 : 1);
      services::teamSize = threads;
      Plane<T> marker(width, height), mask(width, height);
      fillRandomly(random, marker, mask);
      return requestedTeam([&] { EXPECT_EQ(wrong(form, marker, mask, random.pick(norms), random), ""); });
    };
    EXPECT_EQ(team(11, 11, 1), 0);
    EXPECT_EQ(team(11, 11, 2), 2);
    EXPECT_EQ(team(11, 11, 3), 2);
    EXPECT_EQ(team(11, 11, 40), 2);
    EXPECT_EQ(team(10, 11, 2), 0);
    EXPECT_EQ(team(11, 10, 2), 0);
    EXPECT_EQ(team(300, 10, 40), 0);
    EXPECT_EQ(team(10, 300, 40), 0);
  });
}

// From inside a region of the caller's the runtime gives one thread.
TEST_F(Reconstruct, worksAloneWhereTheRuntimeGivesNoSecondThread) {
  Random random(11);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t run = 0; run < 10; ++run) {
      services::threads(2);
      Plane<T> marker(40, 30), mask(40, 30);
      fillRandomly(random, marker, mask);
      std::string result = "not run";
#pragma omp parallel num_threads(2)
      {
#pragma omp single
        result = wrong(form, marker, mask, qorNormInf, random);
      }
      ASSERT_EQ(result, "");
    }
  });
}

TEST_F(Reconstruct, doesNotAllocate) {
  Random random(12);
  services::threads(2);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    Plane<T> marker(40, 30), mask(40, 30);
    fillRandomly(random, marker, mask);
    EXPECT_EQ(wrong(form, marker, mask, qorNormL1, random), "");
  });
  EXPECT_EQ(services::allocations(), 0);
}

// Buffers that end at an unmapped page: their sizes make them begin at addresses of all kinds.
TEST_F(Reconstruct, theBufferSufficesAtAnyAddress) {
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    for (int32_t width : {1, 2, 9, 31, 32, 33, 65}) {
      for (int32_t height = 1; height <= 66; ++height) {
        services::threads(1 + height % 2);
        int32_t size = 0;
        ASSERT_EQ(form.query({width, height}, &size), qorStatusOk);
        const GuardedMemory buffer{size_t(size)};
        const std::vector<T> mask(size_t(width) * height, T(9));
        std::vector<T> marker = mask;
        const int32_t step = width * int32_t(sizeof(T));
        ASSERT_EQ(form.function(mask.data(), step, marker.data(), step, {width, height}, buffer.data(), qorNormInf),
                  qorStatusOk);
        ASSERT_TRUE(buffer.patternIntact());
        ASSERT_EQ(marker, mask);
      }
    }
  });
}

TEST_F(Reconstruct, sizesOfTheBuffer) {
  const auto bytes = [](Query query, int32_t width, int32_t height) {
    int32_t size = -1;
    EXPECT_EQ(query({width, height}, &size), qorStatusOk);
    return size;
  };
  const Query query8 = qoriMorphReconstructGetBufferSize_8u_C1, query32 = qoriMorphReconstructGetBufferSize_32f_C1;
  EXPECT_EQ(bytes(query8, 1, 1), 4 + 1 + 161);
  EXPECT_EQ(bytes(query32, 1, 1), 16 + 1 + 164);
  EXPECT_EQ(bytes(query8, 640, 480), 2560 + 480 + 161);
  EXPECT_EQ(bytes(query32, 640, 480), 10240 + 480 + 164);
  // Products and sums wrap.
  EXPECT_EQ(bytes(query8, 0x20000000, 7), int32_t(0x80000000u + 7 + 161));
  EXPECT_EQ(bytes(query8, 0x40000000, 7), 7 + 161);
  EXPECT_EQ(bytes(query8, 1, INT32_MAX), int32_t(0x80000000u + 4 + 160));
  EXPECT_EQ(bytes(query32, 0x10000000, 9), 9 + 164);
  EXPECT_EQ(bytes(query32, 1, INT32_MAX), int32_t(0x80000000u + 16 + 163));
  for (Query query : {query8, query32}) {
    int32_t size = 77;
    for (int32_t bad : {0, -1, INT32_MIN}) {
      EXPECT_EQ(query({bad, 5}, &size), qorStatusBadSize);
      EXPECT_EQ(query({5, bad}, &size), qorStatusBadSize);
      EXPECT_EQ(query({bad, 5}, nullptr), qorStatusNullPtr);
      EXPECT_EQ(query({5, bad}, nullptr), qorStatusNullPtr);
    }
    EXPECT_EQ(query({5, 5}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(size, 77);
  }
}

namespace {
template <class T>
struct Arguments {
  const T* src;
  int32_t srcStep;
  T* srcDst;
  int32_t srcDstStep;
  QoriSize size;
  uint8_t* buffer;
  int32_t norm;
};
}  // namespace

TEST_F(Reconstruct, statuses) {
  Random random(13);
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    using A = Arguments<T>;
    const Image<T> src(9, 4), srcDst(9, 4, 1, 2);
    const GuardedMemory buffer(1000);
    memset(buffer.data(), 7, buffer.size());
    const int32_t row = 9 * int32_t(sizeof(T));
    const A good = {src.data(), row, srcDst.data(), srcDst.step(), {9, 4}, buffer.data(), qorNormInf};
    std::vector<Fault<A>> faults;
    faults.push_back({"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }});
    faults.push_back({"srcDst", qorStatusNullPtr, [](A& a) { a.srcDst = nullptr; }});
    faults.push_back({"buffer", qorStatusNullPtr, [](A& a) { a.buffer = nullptr; }});
    for (int32_t bad : {0, -1, INT32_MIN}) {
      faults.push_back({"width", qorStatusBadSize, [=](A& a) { a.size.width = bad; }});
      faults.push_back({"height", qorStatusBadSize, [=](A& a) { a.size.height = bad; }});
    }
    for (int32_t bad : {row - 1, row - 8, 0, -row, INT32_MIN}) {
      faults.push_back({"srcStep", qorStatusBadStep, [=](A& a) { a.srcStep = bad; }});
      faults.push_back({"srcDstStep", qorStatusBadStep, [=](A& a) { a.srcDstStep = bad; }});
    }
    for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](A& a) { a.srcStep = row + more; }});
      faults.push_back({"srcDstStep", qorStatusBadStepAlign, [=](A& a) { a.srcDstStep = row + more; }});
    }
    for (int32_t bad : {-1, 2, 3, INT32_MAX, INT32_MIN}) {
      faults.push_back({"norm", qorStatusBadArg, [=](A& a) { a.norm = bad; }});
    }
    expectStatuses<A>(
        good, faults,
        [=](const A& a) { return form.function(a.src, a.srcStep, a.srcDst, a.srcDstStep, a.size, a.buffer, a.norm); },
        [&] {
          std::vector<uint8_t> bytes = srcDst.bytes();
          bytes.insert(bytes.end(), buffer.data(), buffer.data() + buffer.size());
          return bytes;
        });
  });
}
