// Gradients of three channels to gray: against the formulas, and inside and outside of parallel regions.
#include <gtest/gtest.h>
#include <math.h>
#include <omp.h>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Pixel = T;
  QorStatus (*convert)(const T*, int32_t, T*, int32_t, QoriSize, int32_t);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{qoriGradientColorToGray_8u_C3C1R});
  body(Member<uint16_t>{qoriGradientColorToGray_16u_C3C1R});
  body(Member<float>{qoriGradientColorToGray_32f_C3C1R});
}

uint8_t model(int32_t norm, uint8_t a, uint8_t b, uint8_t c) {
  const int32_t squares = a * a + b * b + c * c;
  if (norm == 0) return std::max({a, b, c});
  if (norm == 1) return uint8_t(((a + b + c) * 1365 + 2048) >> 12);
  return uint8_t(trunc(sqrt(double(float(squares) / 3.0f)) + 0.5));
}
uint16_t model(int32_t norm, uint16_t a, uint16_t b, uint16_t c) {
  if (norm == 0) return std::max({a, b, c});
  if (norm == 1) return uint16_t(((int64_t(a) + b + c) * 5461 + 8192) >> 14);
  return uint16_t(trunc(sqrt((double(a) * a + double(b) * b + double(c) * c) / 3.0) + 0.5));
}
float model(int32_t norm, float a, float b, float c) {
  a = float(fabs(double(a)));
  b = float(fabs(double(b)));
  c = float(fabs(double(c)));
  if (norm == 0) return std::max({a, b, c});
  volatile float sum = norm == 1 ? a + b : a * a;
  if (norm == 1) return sum + c;
  volatile float square = b * b;
  sum = sum + square;
  square = c * c;
  sum = sum + square;
  return float(sqrt(double(sum)));
}

template <class T>
void expectModel(const Member<T>& member, const Image<T>& src, const Image<T>& dst, int32_t norm) {
  ASSERT_EQ(member.convert(src.data(), src.step(), dst.data(), dst.step(), src.size(), norm), qorStatusOk);
  ASSERT_TRUE(dst.gapsIntact());
  ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y,
                                int32_t) { return model(norm, src.get(x, y, 0), src.get(x, y, 1), src.get(x, y, 2)); }),
            "")
      << "rule " << norm;
}

class GradientColorToGray : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

TEST_F(GradientColorToGray, RandomImages) {
  Random random(4);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (int32_t round = 0; round < 120; ++round) {
      const QoriSize size = round == 0 ? QoriSize{1, 1} : QoriSize{random.width(200), int32_t(random.number(1, 9))};
      AnyImage<T> src(random, size, 3), dst(random, size);
      src.fill([&] { return random.value<T>(); });
      for (int32_t norm = 0; norm < 3; ++norm) expectModel<T>(member, src, dst, norm);
    }
  });
}

// Every sum of squares that three bytes can have, and all sums.
TEST_F(GradientColorToGray, AllBytes) {
  std::vector<uint32_t> triples(3 * 255 * 255 + 1, UINT32_MAX);
  for (uint32_t a = 0; a < 256; ++a) {
    for (uint32_t b = 0; b <= a; ++b) {
      for (uint32_t c = 0; c <= b; ++c) triples[a * a + b * b + c * c] = a << 16 | b << 8 | c;
    }
  }
  Image<uint8_t> src(1024, 192, 3);
  const Image<uint8_t> dst(1024, 192);
  for (size_t n = 0; n < triples.size(); ++n) {
    const uint32_t t = triples[n] == UINT32_MAX ? uint32_t(n % 256) << 8 : triples[n];
    for (int32_t c = 0; c < 3; ++c) src.set(int32_t(n % 1024), int32_t(n / 1024), c, uint8_t(t >> (8 * c)));
  }
  for (int32_t norm = 0; norm < 3; ++norm) {
    expectModel(Member<uint8_t>{qoriGradientColorToGray_8u_C3C1R}, src, dst, norm);
  }
}

// Sums of squares at the places where the rounded root goes up by one, 3 r (r - 1) + 1, and right below them. Of three
// numbers r + i, r + j and r - 2 - i - j the sum is that near where i i + j j + (2 + i + j)^2 is near r.
TEST_F(GradientColorToGray, WideRootsAtTheirSteps) {
  Random random(5);
  constexpr int32_t width = 250, height = 20;
  Image<uint16_t> src(width, height, 3);
  const Image<uint16_t> dst(width, height);
  int32_t x = 0, y = 0, below = 0, above = 0;
  while (y < height - 1) {
    const int64_t r = random.number(1, random.chance(0.5) ? 65000 : 300);
    const int64_t i = random.number(0, int64_t(sqrt(double(r))));
    const double h = double(2 + i) / 2, rest = h * h - (double(i * i) + double((2 + i) * (2 + i)) - double(r)) / 2;
    const int64_t j = rest < 0 ? 0 : int64_t(-h + sqrt(rest)), a = r + i, b = r + j, c = std::abs(r - 2 - i - j);
    const int64_t off = a * a + b * b + c * c - 3 * r * (r - 1);
    if (off < -1 || off > 2 || std::max(a, b) > 65535) continue;
    (off > 0 ? above : below)++;
    src.set(x, y, 0, uint16_t(c));
    src.set(x, y, 1, uint16_t(a));
    src.set(x, y, 2, uint16_t(b));
    if (++x == width) x = 0, ++y;
  }
  EXPECT_GT(below, 100);
  EXPECT_GT(above, 100);
  for (x = 0; x < width; ++x) {  // nearly equal channels about the greatest values
    for (int32_t c = 0; c < 3; ++c) src.set(x, y, c, uint16_t(65535 - x / 2 - (c == 2 ? x % 2 : 0)));
  }
  expectModel(Member<uint16_t>{qoriGradientColorToGray_16u_C3C1R}, src, dst, 2);
}

// Sums and squares beyond the float range are infinite; a NaN is handed on by sum and root.
TEST_F(GradientColorToGray, SpecialFloats) {
  Random random(6);
  for (int32_t round = 0; round < 40; ++round) {
    Image<float> src(random.width(100), 3, 3);
    const Image<float> dst(src.width(), 3);
    src.fill([&] { return random.anyFloat(); });
    for (int32_t norm = 1; norm < 3; ++norm) {
      expectModel(Member<float>{qoriGradientColorToGray_32f_C3C1R}, src, dst, norm);
    }
    src.fill([&] {
      const float f = random.anyFloat();
      return f == f ? f : 5.0f;
    });
    expectModel(Member<float>{qoriGradientColorToGray_32f_C3C1R}, src, dst, 0);
  }
}

// The gate asks for the size of the team that calls: from serial code there is one thread, whatever the services say.
TEST_F(GradientColorToGray, SerialOutsideOfRegions) {
  services::threads(8);
  Random random(7);
  AnyImage<uint8_t> src(random, {640, 400}, 3), dst(random, {640, 400});
  src.fill([&] { return random.value<uint8_t>(); });
  EXPECT_EQ(requestedTeam([&] { expectModel(Member<uint8_t>{qoriGradientColorToGray_8u_C3C1R}, src, dst, 1); }), 0);
}

struct Seen {
  int32_t caller, requested, inner, rowsWritten;
};

// Calls from one thread of a team of `callers`; nested regions get threads where `levels` is 2. Tells how many rows
// were written from the first one on; no other may be.
template <class T>
Seen callInside(const Member<T>& member, Random& random, QoriSize size, int32_t callers, int32_t levels) {
  AnyImage<T> src(random, size, 3), dst(random, size);
  src.fill([&] { return random.value<T>(); });
  const T untouched = 17;
  dst.fill([&] { return untouched; });
  const int32_t before = omp_get_max_active_levels();
  omp_set_max_active_levels(levels);
  Seen seen = {0, 0, 0, 0};
#pragma omp parallel num_threads(callers)
  {
#pragma omp single
    {
      seen.caller = omp_get_num_threads();
      seen.requested = requestedTeam(
          [&] { EXPECT_EQ(member.convert(src.data(), src.step(), dst.data(), dst.step(), size, 1), qorStatusOk); });
    }
  }
  omp_set_max_active_levels(before);
  EXPECT_TRUE(dst.gapsIntact());
  const auto rowIs = [&](int32_t y, bool written) {
    for (int32_t x = 0; x < size.width; ++x) {
      const T should = written ? model(1, src.get(x, y, 0), src.get(x, y, 1), src.get(x, y, 2)) : untouched;
      if (!sameValue(dst.get(x, y), should)) return false;
    }
    return true;
  };
  while (seen.rowsWritten < size.height && rowIs(seen.rowsWritten, true)) ++seen.rowsWritten;
  for (int32_t y = seen.rowsWritten; y < size.height; ++y) EXPECT_TRUE(rowIs(y, false)) << "row " << y;
  return seen;
}

int32_t longestOf(int32_t height, int32_t stripes, int32_t team) {
  const float s = float(height) / float(stripes);
  int32_t longest = 0;
  for (int32_t id = 0; id < team; ++id) {
    longest = std::max(longest, int32_t(float(id + 1) * s + 0.5f) - int32_t(float(id) * s + 0.5f));
  }
  return longest;
}

// Inside a region of the caller's each thread starts at the first row, so the rows past the longest stripe stay as they
// were.
TEST_F(GradientColorToGray, RowsPastTheLongestStripeStayUnwritten) {
  Random random(8);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (const int32_t callers : {2, 3, 4, 7}) {
      for (const int32_t suggested : {1, 2, 3, 40}) {
        for (const QoriSize size : {QoriSize{70, 131}, QoriSize{64, 64}, QoriSize{300, 33}, QoriSize{33, 200}}) {
          services::threads(suggested);
          const int32_t stripes = std::min({size.width * size.height >> 10, size.height >> 4, callers});
          const int32_t most = std::min(stripes, suggested);
          for (const int32_t levels : {1, 2}) {
            const Seen seen = callInside<T>(member, random, size, callers, levels);
            ASSERT_EQ(seen.caller, callers);
            EXPECT_EQ(seen.requested, most);
            const int32_t team = levels == 1 ? 1 : most;
            EXPECT_EQ(seen.rowsWritten, longestOf(size.height, stripes, team)) << callers << " " << suggested;
          }
        }
      }
    }
  });
}

// Too few pixels or rows for two stripes: all rows, also inside a region.
TEST_F(GradientColorToGray, SmallImagesInsideRegions) {
  services::threads(4);
  Random random(9);
  const Member<uint16_t> member = {qoriGradientColorToGray_16u_C3C1R};
  for (const QoriSize size : {QoriSize{31, 64}, QoriSize{1000, 31}, QoriSize{1, 1}}) {
    const Seen seen = callInside(member, random, size, 4, 2);
    EXPECT_EQ(seen.requested, 0);
    EXPECT_EQ(seen.rowsWritten, size.height);
  }
}

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize roiSize;
  int32_t normType;
};

TEST_F(GradientColorToGray, Statuses) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Pixel;
    const Image<T> src(7, 5, 3, 3), dst(7, 5, 1, 2);
    const int32_t row = 7 * int32_t(sizeof(T));
    std::vector<Fault<Args<T>>> faults = {
        {"src", qorStatusNullPtr, [](Args<T>& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](Args<T>& a) { a.dst = nullptr; }},
        {"width", qorStatusBadSize, [](Args<T>& a) { a.roiSize.width = 0; }},
        {"height", qorStatusBadSize, [](Args<T>& a) { a.roiSize.height = -3; }},
        {"srcStep", qorStatusBadStep, [=](Args<T>& a) { a.srcStep = 3 * row - 1; }},
        {"dstStep", qorStatusBadStep, [=](Args<T>& a) { a.dstStep = row - 1; }},
        {"dstStep", qorStatusBadStep, [=](Args<T>& a) { a.dstStep = -row; }},
    };
    if (sizeof(T) > 1) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args<T>& a) { a.srcStep = 3 * row + 1; }});
      faults.push_back({"dstStep", qorStatusBadStepAlign, [=](Args<T>& a) { a.dstStep = row + 1; }});
    }
    if (sizeof(T) > 2) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args<T>& a) { a.srcStep = 3 * row + 2; }});
    }
    for (const int32_t norm : {-1, 3, INT32_MAX}) {
      faults.push_back({"normType", qorStatusBadArg, [=](Args<T>& a) { a.normType = norm; }});
    }
    expectStatuses<Args<T>>(
        {src.data(), src.step(), dst.data(), dst.step(), {7, 5}, 2}, faults,
        [&](const Args<T>& a) { return member.convert(a.src, a.srcStep, a.dst, a.dstStep, a.roiSize, a.normType); },
        [&] { return dst.bytes(); });
  });
}

}  // namespace
