// 5x5 Gaussian levels, against models that sum all 25 products, or in floats in the order that counts.
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "qorcvmx.h"
#include "support/image.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Element = T;
  const char* name;
  int32_t channels;
  QorDataType type;
  bool up;
  QorStatus (*function)(const T*, int32_t, T*, int32_t, QoriSize, uint8_t*);

  QoriSize result(QoriSize s) const {
    return up ? QoriSize{2 * s.width, 2 * s.height} : QoriSize{(s.width + 1) / 2, (s.height + 1) / 2};
  }
  int32_t bufferSize(int32_t width) const {
    int32_t bytes = -1;
    const auto query = up ? qoriPyrUpGetBufSize_Gauss5x5 : qoriPyrDownGetBufSize_Gauss5x5;
    EXPECT_EQ(query(width, type, channels, &bytes), qorStatusOk);
    return bytes;
  }
};

template <class Body>
void forMembers(Body body) {
#define MEMBER(T, form, type, channels)                                                               \
  body(Member<T>{"qoriPyrDown_Gauss5x5_" #form, channels, type, false, qoriPyrDown_Gauss5x5_##form}); \
  body(Member<T>{"qoriPyrUp_Gauss5x5_" #form, channels, type, true, qoriPyrUp_Gauss5x5_##form});
  MEMBER(uint8_t, 8u_C1R, qor8u, 1)
  MEMBER(uint8_t, 8u_C3R, qor8u, 3)
  MEMBER(int8_t, 8s_C1R, qor8s, 1)
  MEMBER(int8_t, 8s_C3R, qor8s, 3)
  MEMBER(float, 32f_C1R, qor32f, 1)
  MEMBER(float, 32f_C3R, qor32f, 3)
#undef MEMBER
}

// Where the weights are not rounded: integers, and floats of few bits.

int32_t downIndex(int32_t j, int32_t length) {
  if (j < 0) j = -j;
  if (j >= length) j = 2 * length - 2 - j;
  return j < 0 || j >= length ? 0 : j;
}

int32_t upIndex(int32_t j, int32_t length) {
  if (j < 0) j = 1;
  return std::min(j, length - 1);
}

// Weighted source positions of one output position.
std::vector<std::pair<int32_t, int32_t>> weighted(bool up, int32_t output, int32_t length) {
  const int32_t i = output / 2;
  if (!up) {
    const int32_t weights[5] = {1, 4, 6, 4, 1};
    std::vector<std::pair<int32_t, int32_t>> all;
    for (int32_t k = 0; k < 5; ++k) all.push_back({downIndex(2 * output + k - 2, length), weights[k]});
    return all;
  }
  if (output % 2 == 0) return {{upIndex(i - 1, length), 1}, {i, 6}, {upIndex(i + 1, length), 1}};
  return {{i, 4}, {upIndex(i + 1, length), 4}};
}

template <class T>
T exactModel(const Image<T>& src, bool up, int32_t x, int32_t y, int32_t c) {
  double sum = 0;
  for (const auto& [row, rowWeight] : weighted(up, y, src.height())) {
    for (const auto& [column, weight] : weighted(up, x, src.width())) {
      sum += rowWeight * weight * double(src.get(column, row, c));
    }
  }
  const double all = up ? 64 : 256;
  if (std::is_same_v<T, float>) return T(sum / all);
  return T(floor((sum + all / 2) / all));
}

// Floats in the order of the contract.

float downRow(const Image<float>& src, int32_t y, int32_t i, int32_t c) {
  const int32_t w = src.width(), x = 2 * i;
  const auto p = [&](int32_t column) { return src.get(column, y, c); };
  if (w == 1) return 16 * p(0);
  if (w == 2) return 8 * (p(0) + p(1));
  if (i == 0) return 6 * p(0) + 8 * p(1) + 2 * p(2);
  if (x == w - 2) return 4 * (p(x - 1) + p(x + 1)) + p(x - 2) + 7 * p(x);
  if (x == w - 1) return 8 * p(x - 1) + 6 * p(x) + 2 * p(x - 2);
  return 6 * p(x) + 4 * (p(x - 1) + p(x + 1)) + p(x - 2) + p(x + 2);
}

float downModel(const Image<float>& src, int32_t i, int32_t j, int32_t c) {
  const int32_t h = src.height();
  if (h < 3) return (downRow(src, 0, i, c) + downRow(src, h - 1, i, c)) * 8 * 0.00390625f;
  const auto vertical = [&](auto at) {
    const int32_t y = 2 * j;
    return 6 * at(y) + 4 * (at(downIndex(y - 1, h)) + at(downIndex(y + 1, h))) + at(downIndex(y - 2, h)) +
           at(downIndex(y + 2, h));
  };
  if (src.width() < 3) {
    return (vertical([&](int32_t y) { return src.get(0, y, c); }) +
            vertical([&](int32_t y) { return src.get(src.width() - 1, y, c); })) *
           8 * 0.00390625f;
  }
  return vertical([&](int32_t y) { return downRow(src, y, i, c); }) * 0.00390625f;
}

float upRow(const Image<float>& src, int32_t y, int32_t x, int32_t c) {
  const int32_t w = src.width(), i = x / 2;
  const auto p = [&](int32_t column) { return src.get(column, y, c); };
  if (w == 1) return 8 * p(0);
  if (x == 0) return 6 * p(0) + 2 * p(1);
  if (x == 2 * w - 2) return p(i - 1) + 7 * p(i);
  if (x == 2 * w - 1) return 8 * p(i);
  return x % 2 == 0 ? p(i - 1) + 6 * p(i) + p(i + 1) : 4 * (p(i) + p(i + 1));
}

float upModel(const Image<float>& src, int32_t x, int32_t y, int32_t c) {
  const int32_t h = src.height(), row = y / 2;
  const auto r = [&](int32_t which) { return upRow(src, which, x, c); };
  if (h == 1) return 8 * r(0) * 0.015625f;
  if (y % 2 == 0) return (6 * r(row) + r(upIndex(row - 1, h)) + r(upIndex(row + 1, h))) * 0.015625f;
  return (r(row) + r(upIndex(row + 1, h))) * 4 * 0.015625f;
}

// Runs a member on `src` with scratch of exactly the reported size, `shift` bytes away from an aligned place, and
// compares with model(x, y, c).
template <class M, class T, class Model>
void expectResult(const M& m, const Image<T>& src, int32_t gap, Edge edge, size_t shift, Model model) {
  const QoriSize size = m.result(src.size());
  Image<T> dst(size.width, size.height, m.channels, gap, edge, shift % 2);
  const size_t bytes = size_t(m.bufferSize(src.width()));
  GuardedMemory buffer(bytes + shift, edge);
  std::fill(buffer.data(), buffer.data() + bytes + shift, uint8_t(0xc3));
  uint8_t* const start = buffer.data() + (edge == Edge::begin ? shift : 0);
  const auto before = src.bytes();
  ASSERT_EQ(m.function(src.data(), src.step(), dst.data(), dst.step(), src.size(), start), qorStatusOk);
  EXPECT_EQ(difference(dst, model), "") << m.name << " of " << src.width() << "x" << src.height();
  EXPECT_TRUE(dst.gapsIntact() && buffer.patternIntact()) << m.name;
  EXPECT_TRUE(src.bytes() == before) << m.name << ": the source changed";
  for (size_t i = 0; i < shift; ++i) {
    ASSERT_EQ(buffer.data()[edge == Edge::begin ? i : bytes + i], 0xc3) << m.name << ": outside the scratch";
  }
}

std::vector<QoriSize> sizes(Random& random) {
  std::vector<QoriSize> all;
  for (int32_t w = 1; w <= 9; ++w) {
    for (int32_t h = 1; h <= 9; ++h) all.push_back({w, h});
  }
  for (int32_t w = 10; w <= 300; w += w < 160 ? 1 : 7) all.push_back({w, int32_t(random.number(1, 7))});
  all.push_back({641, 33});
  all.push_back({1030, 6});
  all.push_back({2, 200});
  all.push_back({200, 2});
  return all;
}

class GaussLevels : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { EXPECT_EQ(services::allocations(), 0); }
};

}  // namespace

TEST_F(GaussLevels, EverySizeExactly) {
  Random random(61);
  for (const QoriSize size : sizes(random)) {
    forMembers([&](const auto& m) {
      using T = typename std::decay_t<decltype(m)>::Element;
      const int32_t gap = int32_t(random.number(0, 5));
      const Edge edge = random.chance(0.7) ? Edge::end : Edge::begin;
      const size_t shift = random.chance(0.5) ? 0 : size_t(random.number(1, 31));
      Image<T> src(size.width, size.height, m.channels, gap, edge, shift % 2);
      src.fill([&] { return std::is_same_v<T, float> ? T(random.number(-2048, 2047)) : random.value<T>(); });
      expectResult(m, src, gap, edge, shift,
                   [&](int32_t x, int32_t y, int32_t c) { return exactModel(src, m.up, x, y, c); });
    });
  }
}

TEST_F(GaussLevels, FloatsAreSummedInTheirOrder) {
  Random random(62);
  for (const QoriSize size : sizes(random)) {
    forMembers([&](const auto& m) {
      if constexpr (std::is_same_v<typename std::decay_t<decltype(m)>::Element, float>) {
        Image<float> src(size.width, size.height, m.channels, 1);
        const bool special = random.chance(0.2);
        src.fill([&] { return special ? random.anyFloat() : random.value<float>(); });
        expectResult(m, src, 1, Edge::end, 0, [&](int32_t x, int32_t y, int32_t c) {
          return m.up ? upModel(src, x, y, c) : downModel(src, x, y, c);
        });
      }
    });
  }
}

TEST_F(GaussLevels, AConstantStays) {
  for (const QoriSize size : {QoriSize{1, 1}, QoriSize{2, 5}, QoriSize{5, 2}, QoriSize{70, 9}, QoriSize{131, 4}}) {
    forMembers([&](const auto& m) {
      using T = typename std::decay_t<decltype(m)>::Element;
      using Limits = std::numeric_limits<T>;
      const bool isFloat = std::is_same_v<T, float>;
      const T lowest = isFloat ? T(-3.5) : Limits::lowest(), highest = isFloat ? T(1e6) : Limits::max();
      for (const T value : {lowest, highest, T(0), T(1), T(77)}) {
        Image<T> src(size.width, size.height, m.channels);
        src.fill([&] { return value; });
        expectResult(m, src, 0, Edge::end, 0, [&](int32_t, int32_t, int32_t) { return value; });
      }
    });
  }
}

// Extremes side by side reach the largest and smallest sums on their way, not only in the end.
TEST_F(GaussLevels, ExtremesSideBySide) {
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    if constexpr (!std::is_same_v<T, float>) {
      Random random(63);
      Image<T> src(150, 20, m.channels);
      src.fill([&] { return random.chance(0.1) ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max(); });
      expectResult(m, src, 0, Edge::end, 3,
                   [&](int32_t x, int32_t y, int32_t c) { return exactModel(src, m.up, x, y, c); });
      src.fill([&] { return random.chance(0.1) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::lowest(); });
      expectResult(m, src, 0, Edge::end, 5,
                   [&](int32_t x, int32_t y, int32_t c) { return exactModel(src, m.up, x, y, c); });
    }
  });
}

TEST_F(GaussLevels, OnePixelIsCopied) {
  for (int32_t value = 0; value < 256; ++value) {
    uint8_t src = uint8_t(value), down = 0, up[4] = {}, buffer[256];
    ASSERT_EQ(qoriPyrDown_Gauss5x5_8u_C1R(&src, 1, &down, 1, {1, 1}, buffer), qorStatusOk);
    ASSERT_EQ(qoriPyrUp_Gauss5x5_8u_C1R(&src, 1, up, 2, {1, 1}, buffer), qorStatusOk);
    EXPECT_EQ(down, value);
    for (const uint8_t pixel : up) EXPECT_EQ(pixel, value);
  }
  for (const float value : {0.1f, -7e-30f, 3.3e30f}) {
    float down = 0, up[4] = {};
    uint8_t buffer[256];
    ASSERT_EQ(qoriPyrDown_Gauss5x5_32f_C1R(&value, 4, &down, 4, {1, 1}, buffer), qorStatusOk);
    ASSERT_EQ(qoriPyrUp_Gauss5x5_32f_C1R(&value, 4, up, 8, {1, 1}, buffer), qorStatusOk);
    EXPECT_EQ(down, value);
    for (const float pixel : up) EXPECT_EQ(pixel, value);
  }
}

// Also where a sum would leave the floats.
TEST_F(GaussLevels, OnePixelOfAnySizeIsDoubled) {
  for (const float value : {3.4e38f, -3.4e38f, 1e-45f}) {
    const float src[3] = {value, 1, -value};
    float up[12] = {};
    uint8_t buffer[256];
    ASSERT_EQ(qoriPyrUp_Gauss5x5_32f_C3R(src, 12, up, 24, {1, 1}, buffer), qorStatusOk);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(up[i], src[i % 3]);
  }
}

// Doubling mirrors before the first pixel and repeats the last one: a single bright pixel shows it.
TEST_F(GaussLevels, DoublingIsAsymmetric) {
  const auto doubled = [](std::vector<float> row) {
    std::vector<float> out(row.size() * 4);
    std::vector<uint8_t> buffer(4096);
    const int32_t width = int32_t(row.size());
    EXPECT_EQ(qoriPyrUp_Gauss5x5_32f_C1R(row.data(), width * 4, out.data(), width * 8, {width, 1}, buffer.data()),
              qorStatusOk);
    out.resize(row.size() * 2);
    return out;
  };
  EXPECT_EQ(doubled({8, 0, 0}), (std::vector<float>{6, 4, 1, 0, 0, 0}));
  EXPECT_EQ(doubled({0, 8, 0}), (std::vector<float>{2, 4, 6, 4, 1, 0}));
  EXPECT_EQ(doubled({0, 0, 8}), (std::vector<float>{0, 0, 1, 4, 7, 8}));
}

TEST_F(GaussLevels, NarrowImagesLeaveTheBufferAlone) {
  uint8_t* const nowhere = reinterpret_cast<uint8_t*>(16);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    const int32_t most = m.up ? 1 : 2;
    for (int32_t narrow = 1; narrow <= most; ++narrow) {
      for (const QoriSize size : {QoriSize{narrow, 9}, QoriSize{40, narrow}, QoriSize{narrow, narrow}}) {
        const Image<T> src(size.width, size.height, m.channels);
        const QoriSize result = m.result(size);
        const Image<T> dst(result.width, result.height, m.channels);
        EXPECT_EQ(m.function(src.data(), src.step(), dst.data(), dst.step(), size, nowhere), qorStatusOk) << m.name;
      }
    }
  });
}

TEST_F(GaussLevels, BufferSizes) {
  for (const bool up : {false, true}) {
    const auto query = up ? qoriPyrUpGetBufSize_Gauss5x5 : qoriPyrDownGetBufSize_Gauss5x5;
    for (const QorDataType type : {qor8u, qor8s, qor32f}) {
      for (const int32_t channels : {1, 3}) {
        for (int32_t width = 1; width < 300; ++width) {
          int32_t bytes = 0;
          EXPECT_EQ(query(width, type, channels, &bytes), qorStatusOk);
          const int32_t rowBytes = (up ? 2 * width : width) * channels * 4;
          EXPECT_EQ(bytes, (rowBytes + 15) / 16 * 16 * (up ? 3 : 6) + 32);
        }
      }
    }
    struct Args {
      int32_t width;
      QorDataType type;
      int32_t channels;
      bool null;
    };
    int32_t bytes = 4711;
    expectStatuses<Args>(
        {7, qor8u, 3, false},
        {{"bufferSize", qorStatusNullPtr, [](Args& a) { a.null = true; }},
         {"width", qorStatusBadSize, [](Args& a) { a.width = 0; }},
         {"width", qorStatusBadSize, [](Args& a) { a.width = -5; }},
         {"channels", qorStatusBadChannels, [](Args& a) { a.channels = 0; }},
         {"channels", qorStatusBadChannels, [](Args& a) { a.channels = 2; }},
         {"channels", qorStatusBadChannels, [](Args& a) { a.channels = 4; }},
         {"type", qorStatusBadDataType, [](Args& a) { a.type = qor16u; }},
         {"type", qorStatusBadDataType, [](Args& a) { a.type = 0; }},
         {"type", qorStatusBadDataType, [](Args& a) { a.type = 14; }}},
        [&](const Args& a) { return query(a.width, a.type, a.channels, a.null ? nullptr : &bytes); },
        [&] {
          const uint8_t* const first = reinterpret_cast<const uint8_t*>(&bytes);
          return std::vector<uint8_t>(first, first + sizeof bytes);
        });
  }
  int32_t bytes = 0;
  EXPECT_EQ(qoriPyrUpGetBufSize_Gauss5x5(1, qor8u, 3, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 128);
}

TEST_F(GaussLevels, Statuses) {
  forMembers([](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    struct Args {
      const T* src;
      int32_t srcStep;
      T* dst;
      int32_t dstStep;
      QoriSize size;
      uint8_t* buffer;
    };
    const QoriSize size = {5, 6}, result = m.result(size);
    const Image<T> src(size.width, size.height, m.channels, 2), dst(result.width, result.height, m.channels, 2);
    std::vector<uint8_t> buffer(size_t(m.bufferSize(size.width)));
    const int32_t bytes = int32_t(sizeof(T)) * m.channels;
    std::vector<Fault<Args>> faults = {
        {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
        {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.height = 0; }},
        {"size", qorStatusBadSize,
         [](Args& a) {
           a.size = {-1, -1};
         }},
        {"srcStep", qorStatusBadStep, [=](Args& a) { a.srcStep = size.width * bytes - 1; }},
        {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = -a.srcStep; }},
        {"dstStep", qorStatusBadStep, [=](Args& a) { a.dstStep = result.width * bytes - 1; }},
        {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = 0; }},
    };
    if (sizeof(T) > 1) {
      for (const int32_t wrong : {1, 2, 3}) {
        faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args& a) { a.srcStep += wrong; }});
        faults.push_back({"dstStep", qorStatusBadStepAlign, [=](Args& a) { a.dstStep += wrong; }});
      }
    }
    expectStatuses<Args>(
        {src.data(), src.step(), dst.data(), dst.step(), size, buffer.data()}, faults,
        [&](const Args& a) { return m.function(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.buffer); },
        [&] { return dst.bytes(); });
    // Steps of exactly a row, odd ones of bytes among them, are right.
    EXPECT_EQ(m.function(src.data(), size.width * bytes, dst.data(), result.width * bytes, size, buffer.data()),
              qorStatusOk);
  });
}
