// What the tests of integral images and of window deviations share.
#pragma once

#include <gtest/gtest.h>
#include <math.h>

#include <functional>
#include <string>
#include <vector>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

// A double with any bits, or one with the values of a float, the special ones often.
inline double anyDouble(Random& random) {
  if (random.chance(0.5)) return double(random.anyFloat());
  const uint64_t bits = uint64_t(random.number(INT64_MIN, INT64_MAX));
  double d;
  memcpy(&d, &bits, sizeof d);
  return d == d ? d : double(NAN);
}

// Any value of a cell.
template <class T>
T anyCell(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.anyFloat();
  } else if constexpr (std::is_same_v<T, double>) {
    return anyDouble(random);
  } else {
    return random.value<T>();
  }
}

// A starting value: often a plain one, sometimes anything.
template <class T>
T anyStart(Random& random) {
  if (random.chance(0.3)) return T(0);
  if (random.chance(0.4)) return T(random.number(-100000, 100000));
  return anyCell<T>(random);
}

// Sums of integers wrap, as two's complement has it.
inline int32_t wrapped(uint32_t value) { return int32_t(value); }
inline uint32_t bitsOf(int32_t value) { return uint32_t(value); }

// A plane of a model.
template <class T>
struct Plane {
  int32_t width, height;
  std::vector<T> cells;
  Plane(int32_t width_, int32_t height_) : width(width_), height(height_), cells(size_t(width_) * height_) {}
  T& at(int32_t column, int32_t row) { return cells[size_t(row) * width + column]; }
  const T& at(int32_t column, int32_t row) const { return cells[size_t(row) * width + column]; }
};

template <class T>
std::string wrongPlane(const Image<T>& image, const Plane<T>& model) {
  if (!image.gapsIntact()) return "wrote outside the region";
  return difference(image, [&](int32_t x, int32_t y, int32_t) { return model.at(x, y); });
}

// ---- Plane builders

template <class Cell>
using Integral = QorStatus (*)(const uint8_t*, int32_t, Cell*, int32_t, QoriSize, Cell);
template <class Cell, class Square>
using SqrIntegral = QorStatus (*)(const uint8_t*, int32_t, Cell*, int32_t, Square*, int32_t, QoriSize, Cell, Square);

template <class Cell, class Square>
struct BuilderArguments {
  const uint8_t* src;
  int32_t srcStep;
  Cell* dst;
  int32_t dstStep;
  Square* sqr;
  int32_t sqrStep;
  QoriSize size;
};

// Faults of the two kinds that follow one another for a step of `row` bytes.
template <class Args>
void addStepFaults(std::vector<Fault<Args>>& faults, const char* name, int32_t Args::*step, int32_t row) {
  for (int32_t bad : {row - 1, row - 8, 0, -row, INT32_MIN}) {
    faults.push_back({name, qorStatusBadStep, [=](Args& a) { a.*step = bad; }});
  }
}
template <class Args>
void addAlignFaults(std::vector<Fault<Args>>& faults, const char* name, int32_t Args::*step, int32_t row,
                    int32_t size) {
  for (int32_t more = 1; more < size; ++more) {
    faults.push_back({name, qorStatusBadStepAlign, [=](Args& a) { a.*step = row + more; }});
  }
}
template <class Args>
void addSizeFaults(std::vector<Fault<Args>>& faults) {
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({"width", qorStatusBadSize, [=](Args& a) { a.size.width = bad; }});
    faults.push_back({"height", qorStatusBadSize, [=](Args& a) { a.size.height = bad; }});
  }
}

// The status matrix of a plane builder; `call` takes a BuilderArguments, `border` is 1 upright and 2 tilted.
template <class Cell, class Square, class Call>
void expectBuilderStatuses(int32_t border, bool squares, Call call) {
  using A = BuilderArguments<Cell, Square>;
  constexpr int32_t width = 9, height = 3;
  const Image<uint8_t> src(width + 1, height, 1, 3);
  const Image<Cell> dst(width + border, height + border, 1, 2);
  const Image<Square> sqr(width + border, height + border, 1, 2);
  const int32_t row = (width + border) * int32_t(sizeof(Cell)), sqrRow = (width + border) * int32_t(sizeof(Square));
  const A good = {src.data(), width, dst.data(), row, sqr.data(), sqrRow, {width, height}};
  std::vector<Fault<A>> faults;
  faults.push_back({"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }});
  faults.push_back({"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }});
  if (squares) faults.push_back({"sqr", qorStatusNullPtr, [](A& a) { a.sqr = nullptr; }});
  addSizeFaults(faults);
  addStepFaults(faults, "srcStep", &A::srcStep, width);
  addStepFaults(faults, "dstStep", &A::dstStep, row);
  if (squares) addStepFaults(faults, "sqrStep", &A::sqrStep, sqrRow);
  addAlignFaults(faults, "dstStep", &A::dstStep, row, int32_t(sizeof(Cell)));
  if (squares) addAlignFaults(faults, "sqrStep", &A::sqrStep, sqrRow, int32_t(sizeof(Square)));
  expectStatuses<A>(good, faults, call, [&] {
    std::vector<uint8_t> bytes = dst.bytes();
    const std::vector<uint8_t> more = sqr.bytes();
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
  });
}
template <class Cell>
void expectStatusesOf(Integral<Cell> function, int32_t border) {
  expectBuilderStatuses<Cell, double>(border, false, [=](const BuilderArguments<Cell, double>& a) {
    return function(a.src, a.srcStep, a.dst, a.dstStep, a.size, Cell(5));
  });
}
template <class Cell, class Square>
void expectStatusesOf(SqrIntegral<Cell, Square> function, int32_t border) {
  expectBuilderStatuses<Cell, Square>(border, true, [=](const BuilderArguments<Cell, Square>& a) {
    return function(a.src, a.srcStep, a.dst, a.dstStep, a.sqr, a.sqrStep, a.size, Cell(5), Square(6));
  });
}

// The team that a builder asks for where many threads are allowed and the image is large.
template <class Cell>
int32_t builderTeam(Integral<Cell> function) {
  services::threads(8);
  const QoriSize size = {600, 500};
  const Image<uint8_t> src(size.width, size.height);
  const Image<Cell> dst(size.width + 2, size.height + 2);
  return requestedTeam(
      [&] { EXPECT_EQ(function(src.data(), src.step(), dst.data(), dst.step(), size, Cell(0)), qorStatusOk); });
}
template <class Cell, class Square>
int32_t builderTeam(SqrIntegral<Cell, Square> function) {
  services::threads(8);
  const QoriSize size = {600, 500};
  const Image<uint8_t> src(size.width + 1, size.height);
  const Image<Cell> dst(size.width + 2, size.height + 2);
  const Image<Square> sqr(size.width + 2, size.height + 2);
  return requestedTeam([&] {
    EXPECT_EQ(
        function(src.data(), src.step(), dst.data(), dst.step(), sqr.data(), sqr.step(), size, Cell(0), Square(0)),
        qorStatusOk);
  });
}
