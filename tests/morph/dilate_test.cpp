// Dilation and erosion.
#include <limits>

#include "elements.h"

namespace {

class DilateTest : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { EXPECT_EQ(services::liveBlocks(), 0); }
};

// A state in a block of exactly its size, at any address.
template <class F>
struct State {
  Block block;
  State(const Element& e, int32_t roiWidth, Random& random)
      : block(size_t(stateSizeOf(e, analysed(e, e.anchor), roiWidth, F::channels, sizeof(typename F::T))), random) {
    EXPECT_EQ(F::init(roiWidth, e.taps.data(), e.size(), e.anchor, get()), qorStatusOk);
  }
  QoriMorphState* get() const { return reinterpret_cast<QoriMorphState*>(block.data()); }
};

template <class F>
void expectModel(const Element& e, QoriSize size, int32_t roiWidth, Random& random) {
  using T = typename F::T;
  const State<F> state(e, roiWidth, random);
  Image<T> src = anyImage<T>(random, size, F::channels), dst = anyImage<T>(random, size, F::channels);
  src.fill([&] { return random.value<T>(); });
  const int64_t allocations = services::allocations();
  for (bool largest : {true, false}) {
    SCOPED_TRACE(std::string(largest ? "dilation, " : "erosion, ") + e.text() + "width " + std::to_string(roiWidth));
    ASSERT_EQ((largest ? F::dilate : F::erode)(src.data(), src.step(), dst.data(), dst.step(), size, qorBorderReplicate,
                                               state.get()),
              qorStatusOk);
    ASSERT_EQ(wrongImage(dst, extremeModel(Plane<T>(src), e, largest)), "");
    ASSERT_TRUE(src.gapsIntact() && state.block.intact());
  }
  EXPECT_EQ(services::allocations(), allocations);
}

TEST_F(DilateTest, ExtremeUnderTheSetTapsOfAnyElement) {
  Random random(5);
  forAllForms([&](auto form) {
    for (int32_t trial = 0; trial < 500 && !HasFailure(); ++trial) {
      const QoriSize size = anySize(random);
      const int32_t more = random.chance(0.5) ? 0 : int32_t(random.number(1, 40));
      expectModel<decltype(form)>(anyElement(random), size, size.width + more, random);
    }
  });
}

TEST_F(DilateTest, RegionsSmallerThanTheElement) {
  Random random(6);
  forAllForms([&](auto form) {
    for (int32_t trial = 0; trial < 200 && !HasFailure(); ++trial) {
      const QoriSize size = {int32_t(random.number(1, 6)), int32_t(random.number(1, 6))};
      expectModel<decltype(form)>(anyElement(random, 15), size, size.width, random);
    }
  });
}

// One row, one column, every width around vectors and every remainder of bands.
TEST_F(DilateTest, AllWidthsAndHeights) {
  Random random(7);
  const std::vector<Element> elements = {Element({"#.#", ".#.", "#.#"}, {1, 1}), Element({".##", "###", "#.."}, {2, 0}),
                                         Element({".#.", "###", ".#."}, {1, 1}), Element({"##", "##"}, {1, 0})};
  for (const Element& e : elements) {
    for (int32_t width = 1; width <= 300 && !HasFailure(); width += width < 140 ? 1 : 7) {
      expectModel<Form<uint8_t, 1>>(e, {width, 2}, width, random);
      expectModel<Form<float, 1>>(e, {width, 1}, width, random);
    }
    for (int32_t height = 1; height <= 30 && !HasFailure(); ++height) {
      expectModel<Form<uint8_t, 3>>(e, {1, height}, 1, random);
      expectModel<Form<float, 4>>(e, {7, height}, 9, random);
    }
  }
}

// More taps, and more rows of an ellipse, than are taken at once.
TEST_F(DilateTest, LargeElements) {
  Random random(8);
  Element many(30, 31, {3, 28});
  for (uint8_t& tap : many.taps) tap = random.chance(0.9);
  Element wide(600, 2, {500, 0});
  for (uint8_t& tap : wide.taps) tap = random.chance(0.5);
  Element high(9, 700, {4, 350});
  for (int32_t y = 0; y < high.height; ++y) {
    const int32_t half = int32_t(random.number(0, 4));
    for (int32_t x = 4 - half; x <= 4 + half; ++x) high.at(x, y) = 1;
  }
  ASSERT_EQ(analysed(high, high.anchor).kind, ellipse);
  Element disc(41, 41, {20, 20});
  for (int32_t y = 0; y < 41; ++y) {
    for (int32_t x = 0; x < 41; ++x) disc.at(x, y) = (x - 20) * (x - 20) + (y - 20) * (y - 20) <= 410;
  }
  ASSERT_EQ(analysed(disc, disc.anchor).kind, ellipse);
  // Runs that grow by more than their length, or to one side alone, or that do not contain each other.
  const Element steps({"....#.....", "..###.....", "....######", "##########"}, {4, 2});
  ASSERT_EQ(analysed(steps, steps.anchor).kind, ellipse);
  Element box(50, 50, {49, 0});
  for (uint8_t& tap : box.taps) tap = 1;
  for (const Element& e : {many, wide, high, disc, steps, box}) {
    expectModel<Form<uint8_t, 1>>(e, {70, 20}, 75, random);
    expectModel<Form<uint8_t, 1>>(e, {9, 45}, 9, random);
    expectModel<Form<uint8_t, 4>>(e, {18, 9}, 20, random);
    expectModel<Form<float, 3>>(e, {11, 13}, 11, random);
  }
}

TEST_F(DilateTest, AnElementWithoutTapsCopiesWhateverItsAnchor) {
  Random random(9);
  forAllForms([&](auto form) {
    for (int32_t y = 0; y < 3; ++y) {
      for (int32_t x = 0; x < 4; ++x) expectModel<decltype(form)>(Element(4, 3, {x, y}), {13, 7}, 13, random);
    }
  });
}

TEST_F(DilateTest, ASingleTapMovesTheImageAndContinuesItsEdge) {
  Random random(10);
  forAllForms([&](auto form) {
    using F = decltype(form);
    using T = typename F::T;
    for (int32_t trial = 0; trial < 200; ++trial) {
      const QoriSize size = {int32_t(random.number(1, 12)), int32_t(random.number(1, 12))};
      Element e(20, 20, {int32_t(random.number(0, 19)), int32_t(random.number(0, 19))});
      const int32_t x0 = int32_t(random.number(0, 19)), y0 = int32_t(random.number(0, 19));
      e.at(x0, y0) = 1;
      const State<F> state(e, size.width, random);
      Image<T> src = anyImage<T>(random, size, F::channels), dst = anyImage<T>(random, size, F::channels);
      src.fill([&] { return random.value<T>(); });
      for (auto function : {F::dilate, F::erode}) {
        ASSERT_EQ(function(src.data(), src.step(), dst.data(), dst.step(), size, qorBorderReplicate, state.get()),
                  qorStatusOk);
        ASSERT_EQ(difference(dst,
                             [&](int32_t x, int32_t y, int32_t c) {
                               return src.get(std::clamp(x + x0 - e.anchor.x, 0, size.width - 1),
                                              std::clamp(y + y0 - e.anchor.y, 0, size.height - 1), c);
                             }),
                  "")
            << e.text();
        ASSERT_TRUE(dst.gapsIntact() && state.block.intact());
      }
    }
  });
}

// What does not change a result: rows and columns of the element without taps around a box.
TEST_F(DilateTest, BoxesAnywhereInTheElement) {
  Random random(11);
  forAllForms([&](auto form) {
    for (int32_t trial = 0; trial < 150 && !HasFailure(); ++trial) {
      Element e(14, 11, {int32_t(random.number(0, 13)), int32_t(random.number(0, 10))});
      const int32_t left = int32_t(random.number(0, 13)), top = int32_t(random.number(0, 10));
      const int32_t right = int32_t(random.number(left, 13)), bottom = int32_t(random.number(top, 10));
      for (int32_t y = top; y <= bottom; ++y) {
        for (int32_t x = left; x <= right; ++x) e.at(x, y) = 1;
      }
      expectModel<decltype(form)>(e, anySize(random), 300, random);
    }
  });
}

TEST_F(DilateTest, AStateServesManyRegions) {
  Random random(12);
  using F = Form<uint8_t, 3>;
  for (int32_t trial = 0; trial < 40; ++trial) {
    const Element e = anyElement(random);
    const State<F> state(e, 50, random);
    for (int32_t call = 0; call < 5; ++call) {
      const QoriSize size = {int32_t(random.number(1, 50)), int32_t(random.number(1, 30))};
      Image<uint8_t> src = anyImage<uint8_t>(random, size, 3), dst = anyImage<uint8_t>(random, size, 3);
      src.fill([&] { return random.value<uint8_t>(); });
      ASSERT_EQ(F::dilate(src.data(), src.step(), dst.data(), dst.step(), size, qorBorderReplicate, state.get()),
                qorStatusOk);
      ASSERT_EQ(wrongImage(dst, extremeModel(Plane<uint8_t>(src), e, true)), "");
    }
    Image<uint8_t> wide = anyImage<uint8_t>(random, {51, 2}, 3), dst = anyImage<uint8_t>(random, {51, 2}, 3);
    EXPECT_EQ(F::dilate(wide.data(), wide.step(), dst.data(), dst.step(), {51, 2}, qorBorderReplicate, state.get()),
              qorStatusBadSize);
  }
}

// A general element starts from the largest finite number, in the middle and at the edges; the others do not.
TEST_F(DilateTest, GeneralElementsNeverGiveTheWrongInfinity) {
  Random random(13);
  constexpr float infinity = std::numeric_limits<float>::infinity(), most = std::numeric_limits<float>::max();
  struct Case {
    Element element;
    float dilated, eroded;
  };
  const std::vector<Case> cases = {{Element({"#.#", ".#.", "#.#"}, {1, 1}), -most, most},
                                   {Element({".#.", "###", ".#."}, {1, 1}), -infinity, infinity},
                                   {Element({"###", "###", "###"}, {1, 1}), -infinity, infinity},
                                   {Element({"...", "...", "..."}, {1, 1}), -infinity, infinity}};
  for (const Case& c : cases) {
    for (QoriSize size : {QoriSize{40, 9}, QoriSize{2, 9}, QoriSize{40, 2}}) {
      const State<Form<float, 1>> state(c.element, size.width, random);
      Image<float> src(size.width, size.height), dst(size.width, size.height);
      const auto all = [](float value) { return [=](int32_t, int32_t, int32_t) { return value; }; };
      src.fill([] { return -infinity; });
      EXPECT_EQ(qoriDilateBorderReplicate_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), size,
                                                  qorBorderReplicate, state.get()),
                qorStatusOk);
      EXPECT_EQ(difference(dst, all(c.dilated)), "");
      src.fill([] { return infinity; });
      EXPECT_EQ(qoriErodeBorderReplicate_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), size,
                                                 qorBorderReplicate, state.get()),
                qorStatusOk);
      EXPECT_EQ(difference(dst, all(c.eroded)), "");
    }
  }
}

TEST_F(DilateTest, AnyFloatBits) {
  Random random(14);
  for (int32_t trial = 0; trial < 300; ++trial) {
    const Element e = anyElement(random);
    const QoriSize size = anySize(random);
    const State<Form<float, 3>> state(e, size.width, random);
    Image<float> src = anyImage<float>(random, size, 3), dst = anyImage<float>(random, size, 3);
    src.fill([&] { return random.anyFloat(); });
    for (auto function : {qoriDilateBorderReplicate_32f_C3R, qoriErodeBorderReplicate_32f_C3R}) {
      ASSERT_EQ(function(src.data(), src.step(), dst.data(), dst.step(), size, qorBorderReplicate, state.get()),
                qorStatusOk);
      ASSERT_TRUE(dst.gapsIntact() && src.gapsIntact() && state.block.intact());
    }
  }
}

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize size;
  QoriBorderType border;
  QoriMorphState* state;
};

TEST_F(DilateTest, Statuses) {
  Random random(15);
  forAllForms([&](auto form) {
    using F = decltype(form);
    using T = typename F::T;
    using A = Args<T>;
    for (const Element& e : {Element({".#.", "###"}, {1, 0}), Element({"#.#"}, {0, 0}), Element({"..#"}, {0, 0}),
                             Element({"..."}, {2, 0})}) {
      const State<F> state(e, 10, random);
      const Image<T> src(11, 4, F::channels), dst(11, 4, F::channels);
      const int32_t row = 9 * F::channels * int32_t(sizeof(T));
      const A good = {src.data(), row, dst.data(), row, {9, 4}, qorBorderReplicate, state.get()};
      std::vector<Fault<A>> faults = {{"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }},
                                      {"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }},
                                      {"state", qorStatusNullPtr, [](A& a) { a.state = nullptr; }}};
      for (int32_t bad : {0, -1, INT32_MIN}) {
        faults.push_back({"size", qorStatusBadSize, [=](A& a) { a.size.width = bad; }});
        faults.push_back({"size", qorStatusBadSize, [=](A& a) { a.size.height = bad; }});
      }
      for (int32_t bad : {row - 1, row - 4, 0, -row, INT32_MIN}) {
        faults.push_back({"srcStep", qorStatusBadStep, [=](A& a) { a.srcStep = bad; }});
        faults.push_back({"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = bad; }});
      }
      if (sizeof(T) > 1) {
        for (int32_t more : {1, 2, 3}) {
          faults.push_back({"srcStep", qorStatusBadStepAlign, [=](A& a) { a.srcStep = row + more; }});
          faults.push_back({"dstStep", qorStatusBadStepAlign, [=](A& a) { a.dstStep = row + more; }});
        }
      }
      for (QoriBorderType bad : {0, 2, 3, 4, -1, 17, 33, INT32_MAX}) {
        faults.push_back({"border", qorStatusBadArg, [=](A& a) { a.border = bad; }});
      }
      for (auto function : {F::dilate, F::erode}) {
        const auto call = [&](const A& a) {
          return function(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.border, a.state);
        };
        expectStatuses<A>(good, faults, call, [&] { return dst.bytes(); });
        // Wider than the state: last, so every other fault comes first.
        A wide = {src.data(), src.step(), dst.data(), dst.step(), {11, 4}, qorBorderReplicate, state.get()};
        const auto before = dst.bytes();
        EXPECT_EQ(call(wide), qorStatusBadSize);
        EXPECT_TRUE(before == dst.bytes());
        wide.border = qorBorderWrap;
        EXPECT_EQ(call(wide), qorStatusBadArg);
        wide.size.width = 10;
        wide.border = qorBorderReplicate;
        EXPECT_EQ(call(wide), qorStatusOk);
      }
    }
  });
}

}  // namespace
