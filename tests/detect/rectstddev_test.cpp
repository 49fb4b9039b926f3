// Window deviations: every function against its formula, with the widths and the order of each operation spelled out.
#include <sys/mman.h>

#include "detect/planes.h"
#include "support/instrumented.h"

namespace {

template <class Cell, class Square>
using Deviation = QorStatus (*)(const Cell*, int32_t, const Square*, int32_t, float*, int32_t, QoriSize, QoriRect);
using ScaledDeviation = QorStatus (*)(const int32_t*, int32_t, const int32_t*, int32_t, int32_t*, int32_t, QoriSize,
                                      QoriRect, int32_t);

// ---- The formulas. A, B, C, D are corners of an upright window, P[0] to P[3] those of a tilted one.

template <class T>
struct Upright {
  T A, B, C, D;
};
template <class T>
struct Tilted {
  T P[4];
};

float rootOf(double v) {
  if (v < 0.0) v = 0.0;
  const float rounded = float(v);
  return float(sqrt(double(rounded)));
}

int32_t truncated(double value) {
  const double whole = trunc(value);
  if (whole >= -2147483648.0 && whole <= 2147483647.0) return int32_t(whole);
  return INT32_MIN;  // a NaN too
}

float scaleOf(int32_t scaleFactor) {
  const int64_t magnitude = llabs(int64_t(scaleFactor));
  const int64_t shift = magnitude % 32;
  const float power = shift == 31 ? -2147483648.0f : float(1 << shift);
  return scaleFactor < 0 ? power : 1.0f / power;
}

float result(const Upright<float>& s, const Upright<double>& q, QoriRect rect) {
  const float N = float(rect.width * rect.height);
  float sum = s.A - s.C;
  sum = sum - s.B;
  sum = sum + s.D;
  const float m = sum / N;
  double squares = q.A - q.C;
  squares = squares - q.B;
  squares = squares + q.D;
  const double mean = squares / double(N);
  const double product = double(m) * double(m);
  return rootOf(mean - product);
}

float result(const Upright<int32_t>& s, const Upright<double>& q, QoriRect rect) {
  const float N = float(rect.width * rect.height);
  const int32_t sum = wrapped((bitsOf(s.A) - bitsOf(s.C)) - (bitsOf(s.B) - bitsOf(s.D)));
  const float m = float(sum) / N;
  double squares = q.A - q.C;
  squares = squares - q.B;
  squares = squares + q.D;
  const double mean = squares / double(N);
  const double product = double(m) * double(m);
  return rootOf(mean - product);
}

int32_t result(const Upright<int32_t>& s, const Upright<int32_t>& q, QoriRect rect, int32_t scaleFactor) {
  const float N = float(rect.width * rect.height);
  const int32_t sum = wrapped((bitsOf(s.A) - bitsOf(s.C)) - (bitsOf(s.B) - bitsOf(s.D)));
  const float m = float(sum) / N;
  const int32_t squares = wrapped((bitsOf(q.A) - bitsOf(q.C)) + (bitsOf(q.D) - bitsOf(q.B)));
  const float mean = float(squares) / N;
  const float product = m * m;
  float v = mean - product;
  if (v < 0.0f) v = 0.0f;
  const double r = sqrt(double(v));
  const double scaled = r * double(scaleOf(scaleFactor));
  return truncated(scaled + 0.5);
}

float result(const Tilted<float>& s, const Tilted<double>& q, QoriRect rect) {
  const double area = double(2 * rect.width * rect.height);
  double sum = double(s.P[0]) - double(s.P[2]);
  sum = sum - double(s.P[1]);
  sum = sum + double(s.P[3]);
  const double m = sum / area;
  double squares = q.P[0] - q.P[2];
  squares = squares - q.P[1];
  squares = squares + q.P[3];
  const double mean = squares / area;
  const double product = m * m;
  return rootOf(mean - product);
}

float result(const Tilted<int32_t>& s, const Tilted<double>& q, QoriRect rect) {
  const float area = float(2 * rect.width * rect.height);
  const int32_t sum = wrapped((bitsOf(s.P[0]) - bitsOf(s.P[2])) + (bitsOf(s.P[3]) - bitsOf(s.P[1])));
  const float m = float(sum) / area;
  double squares = q.P[0] - q.P[2];
  squares = squares - q.P[1];
  squares = squares + q.P[3];
  const double mean = squares / double(area);
  const double product = double(m) * double(m);
  return rootOf(mean - product);
}

int32_t result(const Tilted<int32_t>& s, const Tilted<int32_t>& q, QoriRect rect, int32_t scaleFactor) {
  const float area = float(2 * rect.width * rect.height);
  const int32_t sum = wrapped((bitsOf(s.P[0]) - bitsOf(s.P[2])) + (bitsOf(s.P[3]) - bitsOf(s.P[1])));
  const float m = float(sum) / area;
  const int32_t squares = wrapped((bitsOf(q.P[0]) - bitsOf(q.P[2])) + (bitsOf(q.P[3]) - bitsOf(q.P[1])));
  const float mean = float(squares) / area;
  const double product = double(m) * double(m);
  const float root = rootOf(double(mean) - product);
  const double scaled = double(root) * double(scaleOf(scaleFactor));
  return truncated(scaled + 0.5);
}

// ---- Planes

// A plane with just the cells that the windows read; `left` of its columns lie left of the pointer that a call gets.
template <class T>
struct Cells {
  AnyImage<T> image;
  int32_t left;
  const T* origin() const { return image.data() + left; }
  T at(int32_t column, int32_t row) const { return image.get(left + column, row); }
};

struct Layout {
  int32_t left, columns, rows, reach;
};
Layout layoutOf(bool tilted, QoriSize size, QoriRect r) {
  if (!tilted) return {0, size.width + r.x + r.width, size.height + r.y + r.height, size.width + r.x + r.width};
  const int32_t leftmost = r.x - r.y - r.height, rightmost = r.x - r.y + r.width + size.width - 1;
  const int32_t left = leftmost < 0 ? -leftmost : 0;
  return {left, left + (rightmost < 0 ? 0 : rightmost) + 1, r.x + r.y + r.width + r.height + size.height,
          size.width + r.width + (r.x + r.y) + r.height - 1};
}

template <class T>
Cells<T> cellsFor(Random& random, const Layout& layout) {
  const int32_t leastGap = layout.reach > layout.columns ? layout.reach - layout.columns : 0;
  return {AnyImage<T>(random, {layout.columns, layout.rows}, 1, leastGap), layout.left};
}

// 0: as from a picture: growing sums; 1: small numbers; 2: large ones; 3: anything.
template <class T>
void fillCells(Cells<T>& cells, Random& random, int64_t kind) {
  if (kind == 0) {
    for (int32_t y = 0; y < cells.image.height(); ++y) {
      for (int32_t x = 0; x < cells.image.width(); ++x) {
        cells.image.set(x, y, T(double(x) * y * (sizeof(T) == 8 ? 16900 : 130) + double(random.number(-20, 20))));
      }
    }
  } else if (kind == 1) {
    cells.image.fill([&] { return T(random.number(-300, 300)); });
  } else if (kind == 2) {
    cells.image.fill([&] { return T(random.number(-2000000000, 2000000000)); });
  } else {
    cells.image.fill([&] { return anyCell<T>(random); });
  }
}

template <class Corners, class Cell>
Corners cornersOf(const Cells<Cell>& cells, QoriRect r, int32_t i, int32_t j) {
  if constexpr (std::is_same_v<Corners, Upright<Cell>>) {
    return {cells.at(i + r.x + r.width, j + r.y + r.height), cells.at(i + r.x, j + r.y + r.height),
            cells.at(i + r.x + r.width, j + r.y), cells.at(i + r.x, j + r.y)};
  } else {
    const int32_t column = r.x - r.y + i, row = r.x + r.y + j, w = r.width, h = r.height;
    return {{cells.at(column, row), cells.at(column + w, row + w), cells.at(column - h, row + h),
             cells.at(column + w - h, row + w + h)}};
  }
}

QoriRect anyRect(Random& random) {
  QoriRect r;
  r.x = int32_t(random.number(0, 6));
  r.y = int32_t(random.number(0, 6));
  r.width = int32_t(random.number(1, 9));
  r.height = int32_t(random.number(1, 9));
  return r;
}

// Compares with the model, then all team sizes with what has come out.
template <template <class> class Corners, class Cell, class Square, class Result, class Function, class... Scale>
std::string wrongDeviation(Function function, Random& random, QoriSize size, QoriRect rect,
                           const std::vector<int32_t>& teams, Scale... scale) {
  const Layout layout = layoutOf(std::is_same_v<Corners<Cell>, Tilted<Cell>>, size, rect);
  Cells<Cell> src = cellsFor<Cell>(random, layout);
  Cells<Square> sqr = cellsFor<Square>(random, layout);
  AnyImage<Result> dst(random, size);
  fillCells(src, random, random.number(0, 3));
  fillCells(sqr, random, random.number(0, 3));
  dst.fill([&] { return anyCell<Result>(random); });
  const std::vector<uint8_t> srcBytes = src.image.bytes(), sqrBytes = sqr.image.bytes();
  const auto call = [&] {
    return function(src.origin(), src.image.step(), sqr.origin(), sqr.image.step(), dst.data(), dst.step(), size, rect,
                    scale...);
  };
  if (call() != qorStatusOk) return "status";
  if (src.image.bytes() != srcBytes || sqr.image.bytes() != sqrBytes) return "wrote into a plane";
  if (!dst.gapsIntact()) return "wrote outside the region";
  const std::string wrong = difference(dst, [&](int32_t i, int32_t j, int32_t) {
    return result(cornersOf<Corners<Cell>>(src, rect, i, j), cornersOf<Corners<Square>>(sqr, rect, i, j), rect,
                  scale...);
  });
  if (!wrong.empty()) return wrong;
  const std::vector<uint8_t> right = dst.bytes();
  for (int32_t team : teams) {
    dst.fill([] { return Result(77); });
    services::maxThreads = team < 1 ? 40 : team;
    services::teamSize = team;
    if (call() != qorStatusOk || dst.bytes() != right) return "with a team of " + std::to_string(team);
  }
  return "";
}

// Calls body(check), where check(random, size, rect, teams) says what is wrong with a function; Sfs forms get a factor.
template <class Body>
void forDeviations(Body body) {
  const auto factor = [](Random& random) {
    static const std::vector<int32_t> extremes = {INT32_MIN, INT32_MIN + 1, INT32_MAX, 0};
    return random.chance(0.1) ? random.pick(extremes) : int32_t(random.number(-40, 40));
  };
  using Teams = std::vector<int32_t>;
  body([=](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Upright, int32_t, int32_t, int32_t>(qoriRectStdDev_32s_C1RSfs, random, size, rect, teams,
                                                              factor(random));
  });
  body([](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Upright, int32_t, double, float>(qoriRectStdDev_32s32f_C1R, random, size, rect, teams);
  });
  body([](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Upright, float, double, float>(qoriRectStdDev_32f_C1R, random, size, rect, teams);
  });
  body([=](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Tilted, int32_t, int32_t, int32_t>(qoriTiltedRectStdDev_32s_C1RSfs, random, size, rect, teams,
                                                             factor(random));
  });
  body([](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Tilted, int32_t, double, float>(qoriTiltedRectStdDev_32s32f_C1R, random, size, rect, teams);
  });
  body([](Random& random, QoriSize size, QoriRect rect, const Teams& teams) {
    return wrongDeviation<Tilted, float, double, float>(qoriTiltedRectStdDev_32f_C1R, random, size, rect, teams);
  });
}

// The same for the bare functions.
template <class Body>
void forFunctions(Body body) {
  body(qoriRectStdDev_32s_C1RSfs, false);
  body(qoriRectStdDev_32s32f_C1R, false);
  body(qoriRectStdDev_32f_C1R, false);
  body(qoriTiltedRectStdDev_32s_C1RSfs, true);
  body(qoriTiltedRectStdDev_32s32f_C1R, true);
  body(qoriTiltedRectStdDev_32f_C1R, true);
}

// ---- Statuses and teams

template <class Cell, class Square, class Result>
struct DeviationArguments {
  const Cell* src;
  int32_t srcStep;
  const Square* sqr;
  int32_t sqrStep;
  Result* dst;
  int32_t dstStep;
  QoriSize size;
  QoriRect rect;
};

template <class Cell, class Square>
QorStatus callWith(Deviation<Cell, Square> function, const DeviationArguments<Cell, Square, float>& a) {
  return function(a.src, a.srcStep, a.sqr, a.sqrStep, a.dst, a.dstStep, a.size, a.rect);
}
QorStatus callWith(ScaledDeviation function, const DeviationArguments<int32_t, int32_t, int32_t>& a) {
  return function(a.src, a.srcStep, a.sqr, a.sqrStep, a.dst, a.dstStep, a.size, a.rect, 0);
}

template <class Function>
struct ArgumentsOf;
template <class Cell, class Square>
struct ArgumentsOf<Deviation<Cell, Square>> {
  using Source = Cell;
  using Squares = Square;
  using Result = float;
};
template <>
struct ArgumentsOf<ScaledDeviation> {
  using Source = int32_t;
  using Squares = int32_t;
  using Result = int32_t;
};

template <class Function>
void expectDeviationStatuses(Function function, bool tilted) {
  using Cell = typename ArgumentsOf<Function>::Source;
  using Square = typename ArgumentsOf<Function>::Squares;
  using Result = typename ArgumentsOf<Function>::Result;
  using A = DeviationArguments<Cell, Square, Result>;
  const QoriSize size = {9, 3};
  const QoriRect rect = {3, 2, 5, 4};
  const int32_t reach = tilted ? 9 + 5 + (3 + 2) + 4 - 1 : 9 + 3 + 5;
  const Image<Cell> src(reach + 8, 20, 1, 2);
  const Image<Square> sqr(reach + 8, 20, 1, 2);
  const Image<Result> dst(9, 3, 1, 2);
  const int32_t row = reach * int32_t(sizeof(Cell)), sqrRow = reach * int32_t(sizeof(Square)), dstRow = 9 * 4;
  const A good = {src.data() + 8, row, sqr.data() + 8, sqrRow, dst.data(), dstRow, size, rect};
  std::vector<Fault<A>> faults;
  faults.push_back({"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }});
  faults.push_back({"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }});
  faults.push_back({"sqr", qorStatusNullPtr, [](A& a) { a.sqr = nullptr; }});
  addSizeFaults(faults);
  addStepFaults(faults, "srcStep", &A::srcStep, row);
  addStepFaults(faults, "dstStep", &A::dstStep, dstRow);
  addStepFaults(faults, "sqrStep", &A::sqrStep, sqrRow);
  // Beside a smaller rectangle these steps are still long enough.
  addAlignFaults(faults, "srcStep", &A::srcStep, row, 4);
  addAlignFaults(faults, "dstStep", &A::dstStep, dstRow, 4);
  addAlignFaults(faults, "sqrStep", &A::sqrStep, sqrRow, int32_t(sizeof(Square)));
  std::vector<Fault<A>> rectFaults;
  for (int32_t bad : {-1, -3}) {
    rectFaults.push_back({"rect.x", qorStatusBadSize, [=](A& a) { a.rect.x = bad; }});
    rectFaults.push_back({"rect.y", qorStatusBadSize, [=](A& a) { a.rect.y = bad; }});
  }
  for (int32_t bad : {0, -1}) {
    rectFaults.push_back({"rect.width", qorStatusBadSize, [=](A& a) { a.rect.width = bad; }});
    rectFaults.push_back({"rect.height", qorStatusBadSize, [=](A& a) { a.rect.height = bad; }});
  }
  const std::function<QorStatus(const A&)> call = [=](const A& a) { return callWith(function, a); };
  const std::function<std::vector<uint8_t>()> written = [&] { return dst.bytes(); };
  expectStatuses<A>(good, faults, call, written);
  // A bad rectangle shortens the steps that are due, so a step by itself too short may be long enough beside it; null
  // pointers, sizes, far too short and odd steps go first.
  std::vector<Fault<A>> firm;
  for (const Fault<A>& fault : faults) {
    A probe = good;
    fault.apply(probe);
    const bool barelyShort = fault.status == qorStatusBadStep && ((probe.srcStep > 0 && probe.srcStep < row) ||
                                                                  (probe.sqrStep > 0 && probe.sqrStep < sqrRow));
    if (!barelyShort) firm.push_back(fault);
  }
  firm.insert(firm.end(), rectFaults.begin(), rectFaults.end());
  expectStatuses<A>(good, firm, call, written);
}

// The team that a call asks for on that many windows.
template <class Function>
int32_t teamFor(Function function, QoriSize size) {
  using Cell = typename ArgumentsOf<Function>::Source;
  using Square = typename ArgumentsOf<Function>::Squares;
  using Result = typename ArgumentsOf<Function>::Result;
  const Image<Cell> src(size.width + 8, size.height + 8);
  const Image<Square> sqr(size.width + 8, size.height + 8);
  const Image<Result> dst(size.width, size.height);
  return requestedTeam([&] {
    const DeviationArguments<Cell, Square, Result> a = {src.data() + 2, src.step(), sqr.data() + 2, sqr.step(),
                                                        dst.data(),     dst.step(), size,           {0, 0, 2, 2}};
    EXPECT_EQ(callWith(function, a), qorStatusOk);
  });
}

class Deviations : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

}  // namespace

TEST_F(Deviations, likeTheModelOnRandomPlanes) {
  Random random(1);
  forDeviations([&](auto wrong) {
    for (int32_t run = 0; run < 400; ++run) {
      ASSERT_EQ(wrong(random, {random.width(200), int32_t(random.number(1, 5))}, anyRect(random), {}), "");
    }
  });
}

TEST_F(Deviations, everyWidthUpTo150) {
  Random random(2);
  forDeviations([&](auto wrong) {
    for (int32_t width = 1; width <= 150; ++width) ASSERT_EQ(wrong(random, {width, 1}, anyRect(random), {}), "");
  });
}

TEST_F(Deviations, tiltedWindowsLeftOfTheOrigin) {
  Random random(3);
  forDeviations([&](auto wrong) {
    ASSERT_EQ(wrong(random, {70, 4}, {0, 30, 2, 3}, {}), "");  // x - y is -30
    ASSERT_EQ(wrong(random, {1, 1}, {1, 50, 1, 9}, {}), "");
    ASSERT_EQ(wrong(random, {70, 4}, {30, 0, 2, 3}, {}), "");
  });
}

TEST_F(Deviations, largeWindows) {
  Random random(4);
  forDeviations([&](auto wrong) { ASSERT_EQ(wrong(random, {3, 2}, {1, 0, 701, 333}, {}), ""); });
}

// 2^24 + 1 is no float: the norm of 32f is the float beside it, in both divisions; the tilted 32f area is a double.
TEST_F(Deviations, normsAreRoundedToFloatWhereTheyAreFloats) {
  const int32_t width = 16777217;
  const QoriRect rect = {0, 0, width, 1};
  const size_t row = size_t(width) + 1;
  float* const sums = static_cast<float*>(calloc(2 * row, 4));
  double* const squares = static_cast<double*>(calloc(2 * row, 8));
  ASSERT_TRUE(sums && squares);
  // The variance is a small difference of large terms, so that the last bit of the norm shows.
  const double mean = 3.5e9 / 16777216.0, ofSquares = mean * mean * 16777216.0 * (1 + 2e-7);
  sums[row + size_t(width)] = 3.5e9f;
  squares[row + size_t(width)] = ofSquares;
  float is = 0;
  ASSERT_EQ(qoriRectStdDev_32f_C1R(sums, int32_t(4 * row), squares, int32_t(8 * row), &is, 4, {1, 1}, rect),
            qorStatusOk);
  EXPECT_EQ(is, result(Upright<float>{3.5e9f, 0, 0, 0}, Upright<double>{ofSquares, 0, 0, 0}, rect));
  EXPECT_EQ(is, float(sqrt(float(ofSquares / 16777216.0 - mean * mean))));
  EXPECT_GT(is, 0.09f);
  free(sums);
  free(squares);
}

// 2 * 4097 * 4099 is no float either: the tilted 32f form divides by the exact area, the 32s32f form by the float.
TEST_F(Deviations, theTiltedAreaIsADoubleIn32fOnly) {
  const int32_t w = 4097, h = 4099, columns = w + h + 1, rows = w + h + 1;
  const QoriRect rect = {0, 0, w, h};
  const size_t cells = size_t(columns) * size_t(rows);
  void *src = calloc(cells, 4), *sqr = calloc(cells, 8);
  ASSERT_TRUE(src && sqr);
  // The top corner at column h of row 0; all other cells are 0.
  double* const squares = static_cast<double*>(sqr) + h;
  const auto deviation = [&](auto* sums, auto function, double mean, double ofSquares) {
    using Cell = std::remove_pointer_t<decltype(sums)>;
    sums[h] = Cell(mean);
    *squares = ofSquares;
    float is = 0;
    EXPECT_EQ(function(sums + h, 4 * columns, squares, 8 * columns, &is, 4, {1, 1}, rect), qorStatusOk);
    const auto expected = result(Tilted<Cell>{{Cell(mean), 0, 0, 0}}, Tilted<double>{{ofSquares, 0, 0, 0}}, rect);
    EXPECT_EQ(is, expected);
    return is;
  };
  int32_t differing = 0;
  for (int32_t k = 1; k <= 20; ++k) {
    // The variance is a small difference of large terms, so that the last bits of the area show.
    const double area = 2.0 * w * h, mean = 2.0e9 + 128.0 * k;
    const double ofSquares = mean / area * mean * (1 + 1e-9 * k);
    const float one = deviation(static_cast<float*>(src), qoriTiltedRectStdDev_32f_C1R, mean, ofSquares);
    const float other = deviation(static_cast<int32_t*>(src), qoriTiltedRectStdDev_32s32f_C1R, mean, ofSquares);
    differing += one != other;
  }
  EXPECT_GT(differing, 10);
  free(src);
  free(sqr);
}

// A window of 65536 x 32768: eight cells of gigabytes that are never touched.
TEST_F(Deviations, theAreaWraps) {
  if (instrumented()) GTEST_SKIP() << "the sanitizer would need an eighth of these images in real memory";
  const QoriRect rect = {0, 0, 65536, 32768};
  const size_t row = 65537, cells = row * 32769;
  const auto map = [](size_t bytes) {
    return mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  };
  void *src = map(cells * 4), *sqr = map(cells * 8);
  ASSERT_NE(src, MAP_FAILED);
  ASSERT_NE(sqr, MAP_FAILED);
  static_cast<float*>(src)[cells - 1] = 1e10f;
  static_cast<double*>(sqr)[cells - 1] = -1e12;
  float is = 0;
  ASSERT_EQ(qoriRectStdDev_32f_C1R(static_cast<float*>(src), int32_t(4 * row), static_cast<double*>(sqr),
                                   int32_t(8 * row), &is, 4, {1, 1}, rect),
            qorStatusOk);
  const double m = double(1e10f / -2147483648.0f);
  EXPECT_EQ(is, float(sqrt(double(float(-1e12 / -2147483648.0 - m * m)))));
  EXPECT_GT(is, 20.0f);
  munmap(src, cells * 4);
  munmap(sqr, cells * 8);
}

TEST_F(Deviations, allScaleFactors) {
  Random random(5);
  std::vector<int32_t> factors = {INT32_MIN, INT32_MIN + 1, INT32_MIN + 31, INT32_MAX, INT32_MAX - 1, INT32_MAX - 31};
  for (int32_t factor = -40; factor <= 40; ++factor) factors.push_back(factor);
  for (int32_t factor : factors) {
    for (int32_t run = 0; run < 8; ++run) {
      const QoriSize size = {40, 3};
      ASSERT_EQ((wrongDeviation<Upright, int32_t, int32_t, int32_t>(qoriRectStdDev_32s_C1RSfs, random, size,
                                                                    anyRect(random), {}, factor)),
                "")
          << factor;
      ASSERT_EQ((wrongDeviation<Tilted, int32_t, int32_t, int32_t>(qoriTiltedRectStdDev_32s_C1RSfs, random, size,
                                                                   anyRect(random), {}, factor)),
                "")
          << factor;
    }
  }
}

namespace {

// One upright window of 1x1 and one tilted one of area 2, given the four cells' sums; other cells are 0.
int32_t uprightScaled(int32_t sum, int32_t squares, int32_t scaleFactor) {
  const int32_t src[4] = {0, 0, 0, sum}, sqr[4] = {0, 0, 0, squares};
  int32_t dst = 0;
  EXPECT_EQ(qoriRectStdDev_32s_C1RSfs(src, 8, sqr, 8, &dst, 4, {1, 1}, {0, 0, 1, 1}, scaleFactor), qorStatusOk);
  return dst;
}
int32_t tiltedScaled(int32_t sum, int32_t squares, int32_t scaleFactor) {
  int32_t src[9] = {0, sum}, sqr[9] = {0, squares}, dst = 0;
  EXPECT_EQ(qoriTiltedRectStdDev_32s_C1RSfs(src + 1, 12, sqr + 1, 12, &dst, 4, {1, 1}, {0, 0, 1, 1}, scaleFactor),
            qorStatusOk);
  return dst;
}

}  // namespace

// The half that is added rounds to nearest.
TEST_F(Deviations, aScaleFactorOf0RoundsToNearest) {
  EXPECT_EQ(uprightScaled(0, 2, 0), 1);  // 1.41
  EXPECT_EQ(uprightScaled(0, 3, 0), 2);  // 1.73
  EXPECT_EQ(uprightScaled(0, 9, 1), 2);  // 1.5
  EXPECT_EQ(uprightScaled(0, 1, 1), 1);  // 0.5
  EXPECT_EQ(uprightScaled(0, 1, 2), 0);
  EXPECT_EQ(tiltedScaled(0, 4, 0), 1);
  EXPECT_EQ(tiltedScaled(0, 6, 0), 2);
  EXPECT_EQ(tiltedScaled(0, 18, 1), 2);
}

TEST_F(Deviations, resultsBeyond32BitsDoNotSaturate) {
  EXPECT_EQ(uprightScaled(0, 1 << 30, -15), 1 << 30);
  EXPECT_EQ(uprightScaled(0, 1 << 30, -16), INT32_MIN);  // 2^31
  EXPECT_EQ(uprightScaled(0, 1 << 30, -30), INT32_MIN);
  EXPECT_EQ(tiltedScaled(0, INT32_MAX, -15), 1 << 30);  // 2^31 - 1 is 2^31 as a float
  EXPECT_EQ(tiltedScaled(0, INT32_MAX, -16), INT32_MIN);
}

TEST_F(Deviations, onlyFiveBitsOfTheScaleFactorCount) {
  EXPECT_EQ(uprightScaled(0, 16, -32), 4);
  EXPECT_EQ(uprightScaled(0, 16, -33), 8);
  EXPECT_EQ(uprightScaled(0, 16, 33), 2);
  EXPECT_EQ(uprightScaled(0, 16, INT32_MIN), 4);
  EXPECT_EQ(tiltedScaled(0, 32, INT32_MIN), 4);
}

// The power of 31 is a negative integer: 1 * -2^31 + 0.5 is just inside the range, 2 * -2^31 outside.
TEST_F(Deviations, aShiftOf31IsNegative) {
  EXPECT_EQ(uprightScaled(0, 1, -31), INT32_MIN + 1);
  EXPECT_EQ(uprightScaled(0, 4, -31), INT32_MIN);
  EXPECT_EQ(uprightScaled(0, 1 << 30, 31), 0);  // 0.5 - 2^-16
  EXPECT_EQ(tiltedScaled(0, 2, -31), INT32_MIN + 1);
}

TEST_F(Deviations, aNegativeVarianceIsExactlyZero) {
  EXPECT_EQ(uprightScaled(10, 99, 0), 0);
  EXPECT_EQ(tiltedScaled(10, 49, 0), 0);
  float dst = 7;
  const float sums[4] = {0, 0, 0, 3};
  const double squares[4] = {0, 0, 0, 8.999};
  ASSERT_EQ(qoriRectStdDev_32f_C1R(sums, 8, squares, 16, &dst, 4, {1, 1}, {0, 0, 1, 1}), qorStatusOk);
  EXPECT_TRUE(sameValue(dst, 0.0f));
}

// Every pixel the same: rounding alone makes some variances negative, and none may come out as NaN.
TEST_F(Deviations, roundingErrorsGiveZeroOnFlatPictures) {
  Image<uint8_t> src(60, 50);
  const Image<float> sums(61, 51);
  const Image<double> squares(61, 51);
  const QoriRect rect = {0, 0, 7, 3};
  const Image<float> dst(54, 48);
  int32_t negative = 0;
  for (int32_t pixel : {1, 3, 77, 201, 255}) {
    src.fill([&] { return uint8_t(pixel); });
    ASSERT_EQ(qoriSqrIntegral_8u32f64f_C1R(src.data(), src.step(), sums.data(), sums.step(), squares.data(),
                                           squares.step(), src.size(), 0.1f, 0.3),
              qorStatusOk);
    ASSERT_EQ(qoriRectStdDev_32f_C1R(sums.data(), sums.step(), squares.data(), squares.step(), dst.data(), dst.step(),
                                     dst.size(), rect),
              qorStatusOk);
    for (int32_t j = 0; j < 48; ++j) {
      for (int32_t i = 0; i < 54; ++i) {
        const float A = sums.get(i + 7, j + 3), B = sums.get(i, j + 3), C = sums.get(i + 7, j), D = sums.get(i, j);
        const float m = (((A - C) - B) + D) / 21.0f;
        const double q =
            (((squares.get(i + 7, j + 3) - squares.get(i + 7, j)) - squares.get(i, j + 3)) + squares.get(i, j)) / 21.0;
        if (q - double(m) * double(m) < 0) {
          ++negative;
          ASSERT_TRUE(sameValue(dst.get(i, j), 0.0f));
        }
      }
    }
  }
  EXPECT_GT(negative, 100);
}

// Neither a NaN nor a zero with a sign is below zero.
TEST_F(Deviations, theClampLetsNaNAndNegativeZeroThrough) {
  float dst = 7;
  const float sums[4] = {0, 0, 0, 0};
  const double nan[4] = {0, 0, 0, NAN};
  ASSERT_EQ(qoriRectStdDev_32f_C1R(sums, 8, nan, 16, &dst, 4, {1, 1}, {0, 0, 1, 1}), qorStatusOk);
  EXPECT_TRUE(dst != dst);
  const double zeros[4] = {-0.0, 0.0, 0.0, -0.0};  // -0 - 0 - 0 + -0 is -0
  ASSERT_EQ(qoriRectStdDev_32f_C1R(sums, 8, zeros, 16, &dst, 4, {1, 1}, {0, 0, 1, 1}), qorStatusOk);
  EXPECT_TRUE(sameValue(dst, -0.0f));
  const int32_t ints[4] = {0, 0, 0, 0};
  ASSERT_EQ(qoriRectStdDev_32s32f_C1R(ints, 8, zeros, 16, &dst, 4, {1, 1}, {0, 0, 1, 1}), qorStatusOk);
  EXPECT_TRUE(sameValue(dst, -0.0f));
}

// Planes of 32 bits that have wrapped: differences are right as long as the window's sum fits.
TEST_F(Deviations, differencesOfWrappedSumsAreExact) {
  Random random(6);
  Image<uint8_t> src(200, 200);
  src.fill([&] { return random.value<uint8_t>(); });
  const Image<int32_t> plain(201, 201), wrappedSums(201, 201);
  const Image<double> squares(201, 201);
  ASSERT_EQ(qoriSqrIntegral_8u32s64f_C1R(src.data(), 200, plain.data(), 804, squares.data(), 1608, src.size(), 0, 0),
            qorStatusOk);
  ASSERT_EQ(qoriIntegral_8u32s_C1R(src.data(), 200, wrappedSums.data(), 804, src.size(), INT32_MAX - 100000),
            qorStatusOk);
  EXPECT_LT(wrappedSums.get(200, 200), 0);
  Image<float> one(181, 181), other(181, 181);
  for (const auto& [sums, dst] : {std::make_pair(&plain, &one), std::make_pair(&wrappedSums, &other)}) {
    ASSERT_EQ(qoriRectStdDev_32s32f_C1R(sums->data(), 804, squares.data(), 1608, dst->data(), dst->step(), {181, 181},
                                        {0, 0, 20, 20}),
              qorStatusOk);
  }
  EXPECT_EQ(one.bytes(), other.bytes());
}

// On planes of a picture the result is what its name says.
TEST_F(Deviations, ofAPicture) {
  Random random(7);
  constexpr int32_t width = 60, height = 50;
  Image<uint8_t> src(width + 1, height);
  src.fill([&] { return random.value<uint8_t>(); });
  const Image<float> sums(width + 1, height + 1), tiltedSums(width + 2, height + 2);
  const Image<double> squares(width + 1, height + 1), tiltedSquares(width + 2, height + 2);
  const QoriSize size = {width, height};
  ASSERT_EQ(qoriSqrIntegral_8u32f64f_C1R(src.data(), src.step(), sums.data(), sums.step(), squares.data(),
                                         squares.step(), size, 0, 0),
            qorStatusOk);
  ASSERT_EQ(qoriTiltedSqrIntegral_8u32f64f_C1R(src.data(), src.step(), tiltedSums.data(), tiltedSums.step(),
                                               tiltedSquares.data(), tiltedSquares.step(), size, 0, 0),
            qorStatusOk);
  const auto deviation = [&](const std::vector<int32_t>& pixels) {
    double sum = 0, sqr = 0;
    for (int32_t p : pixels) {
      sum += p;
      sqr += p * p;
    }
    const double mean = sum / double(pixels.size());
    return sqrt(sqr / double(pixels.size()) - mean * mean);
  };
  Image<float> dst(30, 20);
  ASSERT_EQ(qoriRectStdDev_32f_C1R(sums.data(), sums.step(), squares.data(), squares.step(), dst.data(), dst.step(),
                                   dst.size(), {3, 2, 11, 7}),
            qorStatusOk);
  for (int32_t j = 0; j < 20; ++j) {
    for (int32_t i = 0; i < 30; ++i) {
      std::vector<int32_t> pixels;
      for (int32_t y = j + 2; y < j + 9; ++y) {
        for (int32_t x = i + 3; x < i + 14; ++x) pixels.push_back(src.get(x, y));
      }
      EXPECT_NEAR(dst.get(i, j), deviation(pixels), 1e-3);
    }
  }
  // Tilted: row by row down from the top corner, two pixels, then two more each up to one side's corner; 2 * 5 * 4.
  ASSERT_EQ(qoriTiltedRectStdDev_32f_C1R(tiltedSums.data(), tiltedSums.step(), tiltedSquares.data(),
                                         tiltedSquares.step(), dst.data(), dst.step(), dst.size(), {7, 1, 5, 4}),
            qorStatusOk);
  for (int32_t j = 0; j < 20; ++j) {
    for (int32_t i = 0; i < 30; ++i) {
      std::vector<int32_t> pixels;
      const int32_t column = 7 - 1 + i, row = 7 + 1 + j;
      for (int32_t k = 1; k < 5 + 4; ++k) {
        const int32_t first = k < 4 ? column - k : column - 8 + k, last = k < 5 ? column + k : column + 10 - k;
        for (int32_t x = first; x < last; ++x) pixels.push_back(src.get(x, row - 1 + k));
      }
      ASSERT_EQ(pixels.size(), 40u);
      EXPECT_NEAR(dst.get(i, j), deviation(pixels), 1e-3);
    }
  }
}

TEST_F(Deviations, theSameBytesWithEveryTeam) {
  Random random(8);
  std::vector<int32_t> teams = {0, -1, INT32_MIN};
  for (int32_t team = 1; team <= 40; ++team) teams.push_back(team);
  const auto wrong = [&](QoriSize size) {
    services::reset();
    return wrongDeviation<Upright, float, double, float>(qoriRectStdDev_32f_C1R, random, size, {1, 2, 3, 4}, teams);
  };
  EXPECT_EQ(wrong({211, 203}), "");  // at most 41 threads by the number of windows
  EXPECT_EQ(wrong({14000, 3}), "");  // fewer rows than threads
  EXPECT_EQ(wrong({1051, 39}), "");  // one row a thread, and the remainder
}

// The least of the most threads allowed, one per 1024 windows, 32, and what the core services suggest; 0 is serial.
TEST_F(Deviations, theGateAndTheTeam) {
  struct Case {
    int32_t maxThreads, teamSize;
    QoriSize size;
    int32_t team;
  };
  const Case cases[] = {
      {2, 9, {2048, 1}, 2},     {2, 9, {2047, 1}, 0},     {2, 9, {64, 32}, 2},      {9, 9, {89, 23}, 0},
      {9, 9, {3071, 1}, 2},     {9, 9, {3072, 1}, 3},     {9, 9, {5, 615}, 3},      {1, 9, {300, 300}, 0},
      {3, 9, {300, 300}, 3},    {9, 4, {300, 300}, 4},    {9, 1, {300, 300}, 1},    {40, 50, {200, 200}, 32},
      {50, 40, {200, 200}, 32}, {33, 31, {200, 200}, 31}, {31, 33, {200, 200}, 31}, {40, 40, {20, 1023}, 19},
  };
  for (const Case& c : cases) {
    services::reset();
    services::maxThreads = c.maxThreads;
    services::teamSize = c.teamSize;
    EXPECT_EQ(teamFor(qoriRectStdDev_32f_C1R, c.size), c.team)
        << c.maxThreads << " " << c.teamSize << " " << c.size.width << "x" << c.size.height;
  }
}

TEST_F(Deviations, theOthersAreSerialAtAnySize) {
  services::threads(8);
  forFunctions([](auto function, bool tilted) {
    const bool threaded = std::is_same_v<decltype(function), Deviation<float, double>> && !tilted;
    EXPECT_EQ(teamFor(function, {600, 500}), threaded ? 8 : 0);
  });
}

TEST_F(Deviations, statuses) {
  forFunctions([](auto function, bool tilted) { expectDeviationStatuses(function, tilted); });
}

// Only x, the width and, tilted, all four fields count for the steps; the rectangle is looked at after them.
TEST_F(Deviations, stepsAreCheckedBeforeTheRectangle) {
  const float src[64] = {};
  const double sqr[64] = {};
  float dst[4] = {};
  const auto upright = [&](int32_t srcStep, int32_t sqrStep, QoriRect rect) {
    return qoriRectStdDev_32f_C1R(src, srcStep, sqr, sqrStep, dst, 4, {1, 1}, rect);
  };
  EXPECT_EQ(upright(4 * 7, 8 * 7, {2, 0, 4, 1}), qorStatusOk);
  EXPECT_EQ(upright(4 * 6, 8 * 7, {2, 0, 4, 1}), qorStatusBadStep);
  EXPECT_EQ(upright(4 * 7, 8 * 6, {2, 0, 4, 1}), qorStatusBadStep);
  EXPECT_EQ(upright(4 * 7 - 1, 8 * 7, {2, -1, 4, 1}), qorStatusBadStep);
  EXPECT_EQ(upright(4 * 7 + 1, 8 * 7, {2, -1, 4, 0}), qorStatusBadStepAlign);
  EXPECT_EQ(upright(4 * 7, 8 * 7 + 4, {2, -1, 4, 0}), qorStatusBadStepAlign);
  EXPECT_EQ(upright(4, 8, {-5, 0, 4, 1}), qorStatusBadSize);
  // The number of cells wraps to INT32_MIN, its bytes to 0.
  EXPECT_EQ(upright(0, 0, {0, 0, INT32_MAX, 0}), qorStatusBadSize);
  const auto tilted = [&](int32_t srcStep, int32_t sqrStep, QoriRect rect) {
    return qoriTiltedRectStdDev_32f_C1R(src + 8, srcStep, sqr + 8, sqrStep, dst, 4, {1, 1}, rect);
  };
  EXPECT_EQ(tilted(4 * 6, 8 * 6, {1, 0, 2, 3}), qorStatusOk);
  EXPECT_EQ(tilted(4 * 6, 8 * 6, {0, 1, 2, 3}), qorStatusOk);
  EXPECT_EQ(tilted(4 * 5, 8 * 6, {1, 0, 2, 3}), qorStatusBadStep);
  EXPECT_EQ(tilted(4 * 6, 8 * 5, {0, 1, 2, 3}), qorStatusBadStep);
  EXPECT_EQ(tilted(4 * 6, 8 * 6, {1, 0, 2, 0}), qorStatusBadSize);
  EXPECT_EQ(tilted(0, 0, {0, 1, INT32_MAX, 0}), qorStatusBadSize);
}
