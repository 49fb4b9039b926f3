// qorsSortAscend_64f_I against std::sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "frame/kit/vector_cases.h"
#include "frame/kit/vectors.h"
#include "support/random.h"

namespace {

void expectSorted(std::vector<double> values, const std::string& what) {
  const int32_t len = int32_t(values.size());
  for (const Edge edge : {Edge::begin, Edge::end}) {
    Vector<double> data(len, edge, len % 2 ? 1 : 0);
    for (int32_t i = 0; i < len; ++i) data.set(i, 0, values[size_t(i)]);
    ASSERT_EQ(qorsSortAscend_64f_I(data.data(), len), qorStatusOk);
    std::vector<double> expected = values;
    std::sort(expected.begin(), expected.end());
    for (int32_t i = 0; i < len; ++i) ASSERT_EQ(data[i], expected[size_t(i)]) << what << " " << i << " of " << len;
    ASSERT_TRUE(data.gapsIntact()) << what;
  }
}

void expectSortedInAllOrders(int32_t len, Random& random) {
  const auto values = [&](auto value) {
    std::vector<double> list;
    for (int32_t i = 0; i < len; ++i) list.push_back(double(value(i)));
    return list;
  };
  expectSorted(values([](int32_t i) { return i; }), "sorted");
  expectSorted(values([&](int32_t i) { return len - i; }), "reversed");
  expectSorted(values([](int32_t) { return 3.5; }), "equal");
  expectSorted(values([](int32_t i) { return i % 3; }), "three values in turn");
  expectSorted(values([&](int32_t) { return random.number(0, 4); }), "duplicates");
  expectSorted(values([&](int32_t i) { return std::min(i, len - 1 - i); }), "organ pipe");
  expectSorted(values([&](int32_t i) { return std::max(i, len - 1 - i); }), "valley");
  expectSorted(values([&](int32_t i) { return i == 0 ? len : i; }), "rotated");
  expectSorted(values([&](int32_t) { return double(random.number(-1000000, 1000000)) / 7; }), "random");
  expectSorted(values([&](int32_t) {
                 float f;
                 do f = random.anyFloat();
                 while (f != f);
                 return f;
               }),
               "special values");
}

TEST(KitSort, AllShortLengths) {
  Random random(9);
  for (int32_t len = 1; len <= 300; ++len) expectSortedInAllOrders(len, random);
}

TEST(KitSort, LongVectors) {
  Random random(10);
  for (const int32_t len : {1000, 4096, 50001}) expectSortedInAllOrders(len, random);
}

// All orders of up to 8 elements, with ties.
TEST(KitSort, AllPermutations) {
  for (int32_t len = 1; len <= 8; ++len) {
    std::vector<double> order;
    for (int32_t i = 0; i < len; ++i) order.push_back(i / 2);
    do {
      std::vector<double> data = order;
      ASSERT_EQ(qorsSortAscend_64f_I(data.data(), len), qorStatusOk);
      ASSERT_TRUE(std::is_sorted(data.begin(), data.end()));
    } while (std::next_permutation(order.begin(), order.end()));
  }
}

TEST(KitSort, AllPatternsOfZerosAndOnes) {
  for (int32_t len = 9; len <= 13; ++len) {
    for (int32_t pattern = 0; pattern < 1 << len; ++pattern) {
      double data[13];
      int32_t ones = 0;
      for (int32_t i = 0; i < len; ++i) {
        data[i] = pattern >> i & 1;
        ones += pattern >> i & 1;
      }
      ASSERT_EQ(qorsSortAscend_64f_I(data, len), qorStatusOk);
      for (int32_t i = 0; i < len; ++i) ASSERT_EQ(data[i], i >= len - ones ? 1 : 0) << pattern;
    }
  }
}

// The order that makes a median of three the worst: the parts are as uneven as can be, the stack must do.
TEST(KitSort, UnevenParts) {
  const int32_t half = 2000;
  std::vector<double> values;
  for (int32_t i = 1; i <= half; ++i) values.push_back(i % 2 ? i : half + i - 1);
  for (int32_t i = 1; i <= half; ++i) values.push_back(2 * i);
  expectSorted(values, "uneven");
}

// NaN have no order, but they must neither lead out of the vector nor get lost.
TEST(KitSort, NanStaysInside) {
  Random random(11);
  for (int32_t round = 0; round < 2000; ++round) {
    const int32_t len = int32_t(random.number(2, 60));
    Vector<double> data(len, round % 2 ? Edge::begin : Edge::end);
    int32_t nans = 0;
    double sum = 0;
    for (int32_t i = 0; i < len; ++i) {
      const bool isNan = random.chance(0.3);
      const double value = double(random.number(0, 20));
      data.set(i, 0, isNan ? std::numeric_limits<double>::quiet_NaN() : value);
      nans += isNan;
      sum += isNan ? 0 : value;
    }
    ASSERT_EQ(qorsSortAscend_64f_I(data.data(), len), qorStatusOk);
    for (int32_t i = 0; i < len; ++i) {
      const bool isNan = data[i] != data[i];
      nans -= isNan;
      sum -= isNan ? 0 : data[i];
    }
    ASSERT_EQ(nans, 0);
    ASSERT_EQ(sum, 0);
    ASSERT_TRUE(data.gapsIntact());
  }
}

TEST(KitSort, OneElementStays) {
  Vector<double> data(1);
  data.set(0, 0, -2.5);
  EXPECT_EQ(qorsSortAscend_64f_I(data.data(), 1), qorStatusOk);
  EXPECT_EQ(data[0], -2.5);
}

TEST(KitSort, Statuses) {
  Vector<double> data(20);
  for (int32_t i = 0; i < 20; ++i) data.set(i, 0, 20 - i);
  expectVectorStatuses(
      1, 20, [&](const VectorArgs& a) { return qorsSortAscend_64f_I(a.pointer(0, data.data()), a.len); },
      [&] { return data.bytes(); });
}

}  // namespace
