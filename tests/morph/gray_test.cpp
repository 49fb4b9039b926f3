// Grayscale structuring functions against their formula, and their states.
#include <gtest/gtest.h>

#include <memory>

#include "support/image.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

using State = QoriMorphGrayState;

template <class T, class V>
struct Form {
  using Pixel = T;
  using Value = V;
  QorStatus (*getSize)(QoriSize, const V*, QoriSize, int32_t*);
  QorStatus (*init)(State*, QoriSize, const V*, QoriSize, QoriPoint);
  QorStatus (*initAlloc)(State**, QoriSize, const V*, QoriSize, QoriPoint);
  QorStatus (*release)(State*);
  QorStatus (*filter)(const T*, int32_t, T*, int32_t, QoriSize, QoriBorderType, const State*);
  bool dilates;
};

// Calls test(form) for both operations of both types.
template <class Test>
void forForms(Test test) {
  for (bool dilates : {true, false}) {
    test(Form<uint8_t, int32_t>{qoriMorphGrayGetSize_8u_C1R, qoriMorphGrayInit_8u_C1R, qoriMorphGrayInitAlloc_8u_C1R,
                                qoriMorphGrayFree_8u_C1R,
                                dilates ? qoriGrayDilateBorder_8u_C1R : qoriGrayErodeBorder_8u_C1R, dilates});
    test(Form<float, float>{qoriMorphGrayGetSize_32f_C1R, qoriMorphGrayInit_32f_C1R, qoriMorphGrayInitAlloc_32f_C1R,
                            qoriMorphGrayFree_32f_C1R,
                            dilates ? qoriGrayDilateBorder_32f_C1R : qoriGrayErodeBorder_32f_C1R, dilates});
  }
}

template <class V>
struct Element {
  QoriSize size;
  QoriPoint anchor;
  std::vector<V> taps;
};

// The formula, in 64 bits for integers.
uint8_t model(const Image<uint8_t>& src, const Element<int32_t>& element, bool dilates, int32_t x, int32_t y) {
  int64_t result = dilates ? 0 : 255;
  for (int32_t j = 0; j < element.size.height; ++j) {
    for (int32_t i = 0; i < element.size.width; ++i) {
      const int32_t u = std::clamp(x + i - element.anchor.x, 0, src.width() - 1);
      const int32_t v = std::clamp(y + j - element.anchor.y, 0, src.height() - 1);
      const int64_t sum = int64_t(src.get(u, v)) + element.taps[size_t(j) * element.size.width + i];
      result = dilates ? std::max(result, sum) : std::min(result, sum);
    }
  }
  return uint8_t(std::clamp<int64_t>(result, 0, 255));
}
float model(const Image<float>& src, const Element<float>& element, bool dilates, int32_t x, int32_t y) {
  float result = dilates ? -3.4028235e38f : 3.4028235e38f;
  for (int32_t j = 0; j < element.size.height; ++j) {
    for (int32_t i = 0; i < element.size.width; ++i) {
      const int32_t u = std::clamp(x + i - element.anchor.x, 0, src.width() - 1);
      const int32_t v = std::clamp(y + j - element.anchor.y, 0, src.height() - 1);
      const float sum = src.get(u, v) + element.taps[size_t(j) * element.size.width + i];
      result = dilates ? std::max(result, sum) : std::min(result, sum);
    }
  }
  return result;
}

// A state in memory of exactly the size that is asked for, at any address.
template <class F, class V>
std::shared_ptr<State> stateOf(const F& form, QoriSize roiSize, const Element<V>& element, Random& random) {
  if (random.chance(0.3)) {
    State* state = nullptr;
    EXPECT_EQ(form.initAlloc(&state, roiSize, element.taps.data(), element.size, element.anchor), qorStatusOk);
    return {state, [form](State* s) { EXPECT_EQ(form.release(s), qorStatusOk); }};
  }
  int32_t size = 0;
  EXPECT_EQ(form.getSize(roiSize, element.taps.data(), element.size, &size), qorStatusOk);
  const auto memory = std::make_shared<GuardedMemory>(size, random.chance(0.5) ? Edge::begin : Edge::end);
  // Of the element nothing is needed after the call.
  std::vector<V> taps = element.taps;
  State* const state = reinterpret_cast<State*>(memory->data());
  EXPECT_EQ(form.init(state, roiSize, taps.data(), element.size, element.anchor), qorStatusOk);
  taps.assign(taps.size(), V(77));
  return {state, [memory](State*) { EXPECT_TRUE(memory->patternIntact()); }};
}

template <class T>
std::unique_ptr<Image<T>> anyImage(Random& random, QoriSize size) {
  return std::make_unique<Image<T>>(size.width, size.height, 1, int32_t(random.number(0, 3)),
                                    random.chance(0.5) ? Edge::begin : Edge::end,
                                    random.chance(0.5) ? size_t(random.number(1, 7)) : 0);
}

template <class F, class V>
std::string wrong(const F& form, QoriSize size, const Element<V>& element, Random& random) {
  using T = typename F::Pixel;
  const auto src = anyImage<T>(random, size), dst = anyImage<T>(random, size);
  src->fill([&] { return random.value<T>(); });
  const std::vector<uint8_t> before = src->bytes();
  const QoriSize roiSize = {size.width + int32_t(random.number(0, 1)), size.height + int32_t(random.number(0, 1))};
  const auto state = stateOf(form, roiSize, element, random);
  const QorStatus status =
      form.filter(src->data(), src->step(), dst->data(), dst->step(), size, qorBorderReplicate, state.get());
  if (status != qorStatusOk) return "status " + std::to_string(status);
  if (src->bytes() != before || !dst->gapsIntact()) return "wrote outside the region";
  return difference(*dst, [&](int32_t x, int32_t y, int32_t) { return model(*src, element, form.dilates, x, y); });
}

// Taps of one kind or of all: none, small ones of both signs, those around the range of a byte, any.
template <class V>
Element<V> anyElement(Random& random, QoriSize most) {
  Element<V> element;
  element.size = {int32_t(random.number(1, most.width)), int32_t(random.number(1, most.height))};
  element.anchor = {int32_t(random.number(0, element.size.width - 1)),
                    int32_t(random.number(0, element.size.height - 1))};
  element.taps.resize(size_t(element.size.width) * element.size.height);
  const int64_t kind = random.number(0, 4);
  for (V& tap : element.taps) {
    const int64_t k = kind == 4 ? random.number(0, 3) : kind;
    if (k == 0) tap = V(0);
    if (k == 1) tap = V(random.number(-40, 40));
    if (k == 2) tap = V(random.number(253, 257) * (random.chance(0.5) ? 1 : -1));
    if (k == 3) tap = random.value<V>();
  }
  return element;
}

class Gray : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
};

}  // namespace

TEST_F(Gray, likeTheFormulaOnRandomImages) {
  Random random(1);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    for (int32_t run = 0; run < 200; ++run) {
      const QoriSize size = {random.width(300), int32_t(random.number(1, 12))};
      ASSERT_EQ(wrong(form, size, anyElement<V>(random, {7, 5}), random), "");
    }
  });
}

TEST_F(Gray, everyWidthUpTo270) {
  Random random(2);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    for (int32_t width = 1; width <= 270; ++width) {
      ASSERT_EQ(wrong(form, {width, 2}, anyElement<V>(random, {4, 2}), random), "");
    }
  });
}

TEST_F(Gray, elementsLargerThanTheImage) {
  Random random(3);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    for (int32_t run = 0; run < 60; ++run) {
      const QoriSize size = {int32_t(random.number(1, 20)), int32_t(random.number(1, 6))};
      Element<V> element = anyElement<V>(random, {1, 1});
      element.size = {size.width + int32_t(random.number(1, 150)), size.height + int32_t(random.number(1, 9))};
      element.anchor = {int32_t(random.number(0, element.size.width - 1)),
                        int32_t(random.number(0, element.size.height - 1))};
      element.taps.resize(size_t(element.size.width) * element.size.height);
      for (V& tap : element.taps) tap = V(random.number(-100, 100));
      ASSERT_EQ(wrong(form, size, element, random), "");
    }
  });
}

// A wide element on a wide image: blocks of pixels whose taps are left, inside and right of the image.
TEST_F(Gray, wideElementsOnWideImages) {
  Random random(4);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    for (int32_t run = 0; run < 12; ++run) {
      Element<V> element;
      element.size = {int32_t(random.number(100, 400)), 1};
      element.anchor = {int32_t(random.number(0, element.size.width - 1)), 0};
      element.taps.resize(size_t(element.size.width));
      for (V& tap : element.taps) tap = V(random.number(-200, 200));
      ASSERT_EQ(wrong(form, {int32_t(random.number(100, 500)), 2}, element, random), "");
    }
  });
}

TEST_F(Gray, anchorsInTheCorners) {
  Random random(5);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    for (int32_t corner = 0; corner < 4; ++corner) {
      Element<V> element = anyElement<V>(random, {1, 1});
      element.size = {4, 3};
      element.anchor = {corner & 1 ? 3 : 0, corner & 2 ? 2 : 0};
      element.taps = {1, -2, 3, 0, 5, 9, -7, 8, 2, 4, -6, 7};
      ASSERT_EQ(wrong(form, {9, 7}, element, random), "");
    }
  });
}

// Neither is the element reflected nor does the erosion subtract its taps.
TEST_F(Gray, anExampleByHand) {
  Image<uint8_t> pixels(3, 1), dst(3, 1);
  pixels.set(0, 0, 10);
  pixels.set(1, 0, 20);
  pixels.set(2, 0, 40);
  const int32_t taps[2] = {7, -3};
  State* state = nullptr;
  ASSERT_EQ(qoriMorphGrayInitAlloc_8u_C1R(&state, {3, 1}, taps, {2, 1}, {0, 0}), qorStatusOk);
  const auto result = [&](auto filter) {
    EXPECT_EQ(filter(pixels.data(), pixels.step(), dst.data(), dst.step(), {3, 1}, qorBorderReplicate, state),
              qorStatusOk);
    return std::vector<int>{dst.get(0, 0), dst.get(1, 0), dst.get(2, 0)};
  };
  // Sums 10 + 7 and 20 - 3, 20 + 7 and 40 - 3, 40 + 7 and 40 - 3.
  EXPECT_EQ(result(qoriGrayDilateBorder_8u_C1R), (std::vector<int>{17, 37, 47}));
  EXPECT_EQ(result(qoriGrayErodeBorder_8u_C1R), (std::vector<int>{17, 27, 37}));
  EXPECT_EQ(qoriMorphGrayFree_8u_C1R(state), qorStatusOk);
}

TEST_F(Gray, tapsBeyondTheRangeOfAByte) {
  const auto result = [](auto filter, int32_t tap, uint8_t pixel) {
    Image<uint8_t> src(200, 3), dst(200, 3);
    src.fill([=] { return pixel; });
    const std::vector<int32_t> taps(9, tap);
    State* state = nullptr;
    EXPECT_EQ(qoriMorphGrayInitAlloc_8u_C1R(&state, {200, 3}, taps.data(), {3, 3}, {1, 1}), qorStatusOk);
    EXPECT_EQ(filter(src.data(), src.step(), dst.data(), dst.step(), {200, 3}, qorBorderReplicate, state), qorStatusOk);
    EXPECT_EQ(qoriMorphGrayFree_8u_C1R(state), qorStatusOk);
    EXPECT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return dst.get(0, 0); }), "");
    return int(dst.get(0, 0));
  };
  for (uint8_t pixel : {uint8_t(0), uint8_t(1), uint8_t(100), uint8_t(255)}) {
    for (int32_t tap : {1000, 256, 255, INT32_MAX}) {
      EXPECT_EQ(result(qoriGrayDilateBorder_8u_C1R, tap, pixel), 255);
      EXPECT_EQ(result(qoriGrayErodeBorder_8u_C1R, tap, pixel), 255);
    }
    for (int32_t tap : {-1000, -256, -255, INT32_MIN}) {
      EXPECT_EQ(result(qoriGrayDilateBorder_8u_C1R, tap, pixel), 0);
      EXPECT_EQ(result(qoriGrayErodeBorder_8u_C1R, tap, pixel), 0);
    }
    EXPECT_EQ(result(qoriGrayDilateBorder_8u_C1R, 0, pixel), pixel);
    EXPECT_EQ(result(qoriGrayErodeBorder_8u_C1R, 0, pixel), pixel);
  }
  EXPECT_EQ(result(qoriGrayDilateBorder_8u_C1R, 254, 0), 254);
  EXPECT_EQ(result(qoriGrayErodeBorder_8u_C1R, -254, 255), 1);
}

// The extremes begin at the largest finite floats, so no infinity beyond them comes out.
TEST_F(Gray, infiniteFloats) {
  const float infinity = std::numeric_limits<float>::infinity(), largest = std::numeric_limits<float>::max();
  const auto result = [](auto filter, float tap, float pixel) {
    Image<float> src(5, 3), dst(5, 3);
    src.fill([=] { return pixel; });
    const float taps[2] = {tap, tap};
    State* state = nullptr;
    EXPECT_EQ(qoriMorphGrayInitAlloc_32f_C1R(&state, {5, 3}, taps, {2, 1}, {1, 0}), qorStatusOk);
    EXPECT_EQ(filter(src.data(), src.step(), dst.data(), dst.step(), {5, 3}, qorBorderReplicate, state), qorStatusOk);
    EXPECT_EQ(qoriMorphGrayFree_32f_C1R(state), qorStatusOk);
    return dst.get(4, 2);
  };
  EXPECT_EQ(result(qoriGrayDilateBorder_32f_C1R, 1, -infinity), -largest);
  EXPECT_EQ(result(qoriGrayErodeBorder_32f_C1R, 1, infinity), largest);
  EXPECT_EQ(result(qoriGrayDilateBorder_32f_C1R, 1, infinity), infinity);
  EXPECT_EQ(result(qoriGrayErodeBorder_32f_C1R, -infinity, 1), -infinity);
  EXPECT_EQ(result(qoriGrayDilateBorder_32f_C1R, -largest, -largest), -largest);
}

TEST_F(Gray, neverThreads) {
  Random random(6);
  services::threads(8);
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    const Element<V> element = {{1, 2}, {0, 1}, {V(3), V(-4)}};
    EXPECT_EQ(requestedTeam([&] { EXPECT_EQ(wrong(form, {700, 400}, element, random), ""); }), 0);
  });
}

TEST_F(Gray, whatAStateHolds) {
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    const V taps[6] = {V(1), V(-2), V(3), V(-4), V(5), V(-6)};
    State* state = nullptr;
    ASSERT_EQ(form.initAlloc(&state, {12, 7}, taps, {3, 2}, {2, 1}), qorStatusOk);
    EXPECT_EQ(static_cast<void*>(state->kernel), static_cast<void*>(state + 1));
    EXPECT_EQ(memcmp(state->kernel, taps, sizeof taps), 0);
    EXPECT_EQ(state->maskWidth, 3);
    EXPECT_EQ(state->maskHeight, 2);
    EXPECT_EQ(state->anchorX, 2);
    EXPECT_EQ(state->anchorY, 1);
    EXPECT_EQ(state->roiWidth, 12);
    EXPECT_EQ(state->roiHeight, 7);
    EXPECT_EQ(services::liveBlocks(), 1);
    EXPECT_EQ(form.release(state), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 0);
    EXPECT_EQ(form.release(nullptr), qorStatusNullPtr);
  });
}

TEST_F(Gray, sizesOfStates) {
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    const V tap = V(1);
    const auto bytes = [&](QoriSize maskSize) {
      int32_t size = -1;
      EXPECT_EQ(form.getSize({5, 5}, &tap, maskSize, &size), qorStatusOk);
      return size;
    };
    EXPECT_EQ(bytes({1, 1}), 36);
    EXPECT_EQ(bytes({3, 5}), 92);
    EXPECT_EQ(bytes({1, 0x10000000}), 0x40000000 + 32);
    // Products and sums wrap.
    EXPECT_EQ(bytes({1, 0x20000000}), int32_t(0x80000000u + 32));
    EXPECT_EQ(bytes({65536, 65536}), 32);
    EXPECT_EQ(bytes({65537, 65537}), 4 * 131073 + 32);
  });
}

TEST_F(Gray, withoutMemory) {
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    const V taps[6] = {};
    services::failAfter(0);
    State other, *state = &other;
    EXPECT_EQ(form.initAlloc(&state, {12, 7}, taps, {3, 2}, {2, 1}), qorStatusNoMemory);
    EXPECT_EQ(state, &other);
    EXPECT_EQ(services::liveBlocks(), 0);
    services::failAfter(-1);
    // A size that has wrapped below 1 is no block either.
    EXPECT_EQ(form.initAlloc(&state, {12, 7}, taps, {1, 0x20000000}, {0, 0}), qorStatusNoMemory);
    EXPECT_EQ(services::liveBlocks(), 0);
  });
}

TEST_F(Gray, regionsUpToThoseOfTheState) {
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    using V = typename decltype(form)::Value;
    const V tap = V(1);
    State* state = nullptr;
    ASSERT_EQ(form.initAlloc(&state, {6, 4}, &tap, {1, 1}, {0, 0}), qorStatusOk);
    const Image<T> src(8, 8), dst(8, 8);
    const auto status = [&](QoriSize size) {
      return form.filter(src.data(), src.step(), dst.data(), dst.step(), size, qorBorderReplicate, state);
    };
    const std::vector<uint8_t> before = dst.bytes();
    EXPECT_EQ(status({7, 4}), qorStatusBadSize);
    EXPECT_EQ(status({6, 5}), qorStatusBadSize);
    EXPECT_EQ(status({1, 5}), qorStatusBadSize);
    EXPECT_EQ(dst.bytes(), before);
    EXPECT_EQ(status({6, 4}), qorStatusOk);
    EXPECT_EQ(status({1, 1}), qorStatusOk);
    EXPECT_EQ(form.release(state), qorStatusOk);
  });
}

namespace {

template <class T>
struct FilterArguments {
  const T* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize size;
  QoriBorderType border;
  const State* state;
};

template <class V>
struct InitArguments {
  void* room;
  QoriSize roiSize;
  const V* kernel;
  QoriSize maskSize;
  QoriPoint anchor;
};

template <class A>
void addSizeFaults(std::vector<Fault<A>>& faults, const std::string& name, QoriSize A::*size) {
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({name + ".width", qorStatusBadSize, [=](A& a) { (a.*size).width = bad; }});
    faults.push_back({name + ".height", qorStatusBadSize, [=](A& a) { (a.*size).height = bad; }});
  }
}

}  // namespace

TEST_F(Gray, statusesOfTheFilters) {
  forForms([&](auto form) {
    using T = typename decltype(form)::Pixel;
    using V = typename decltype(form)::Value;
    using A = FilterArguments<T>;
    const V tap = V(1);
    State *state = nullptr, *narrow = nullptr, *low = nullptr;
    ASSERT_EQ(form.initAlloc(&state, {9, 4}, &tap, {1, 1}, {0, 0}), qorStatusOk);
    ASSERT_EQ(form.initAlloc(&narrow, {8, 4}, &tap, {1, 1}, {0, 0}), qorStatusOk);
    ASSERT_EQ(form.initAlloc(&low, {9, 3}, &tap, {1, 1}, {0, 0}), qorStatusOk);
    const Image<T> src(9, 4), dst(9, 4, 1, 2);
    const int32_t row = 9 * int32_t(sizeof(T));
    const A good = {src.data(), row, dst.data(), dst.step(), {9, 4}, qorBorderReplicate, state};
    std::vector<Fault<A>> faults;
    faults.push_back({"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }});
    faults.push_back({"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }});
    faults.push_back({"state", qorStatusNullPtr, [](A& a) { a.state = nullptr; }});
    addSizeFaults(faults, "size", &A::size);
    for (int32_t bad : {row - 1, row - 8, 0, -row, INT32_MIN}) {
      faults.push_back({"srcStep", qorStatusBadStep, [=](A& a) { a.srcStep = bad; }});
      faults.push_back({"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = bad; }});
    }
    for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](A& a) { a.srcStep = row + more; }});
      faults.push_back({"dstStep", qorStatusBadStepAlign, [=](A& a) { a.dstStep = row + more; }});
    }
    for (int32_t bad : {0, 2, 3, 4, 5, 17, 33, -1}) {
      faults.push_back({"border", qorStatusBadArg, [=](A& a) { a.border = bad; }});
    }
    for (const State* smaller : {narrow, low}) {
      faults.push_back({"state", qorStatusBadSize, [=](A& a) { a.state = smaller; }});
    }
    expectStatuses<A>(
        good, faults,
        [=](const A& a) { return form.filter(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.border, a.state); },
        [&] { return dst.bytes(); });
    for (State* s : {state, narrow, low}) EXPECT_EQ(form.release(s), qorStatusOk);
  });
}

TEST_F(Gray, statusesOfTheStates) {
  forForms([&](auto form) {
    using V = typename decltype(form)::Value;
    using A = InitArguments<V>;
    const V taps[6] = {};
    GuardedMemory block(56), result(8);
    memset(block.data(), 0, block.size());
    memset(result.data(), 0, result.size());
    const auto written = [&] {
      std::vector<uint8_t> bytes(block.data(), block.data() + block.size());
      bytes.insert(bytes.end(), result.data(), result.data() + result.size());
      return bytes;
    };
    const auto faultsOf = [](bool anchors) {
      std::vector<Fault<A>> faults;
      faults.push_back({"room", qorStatusNullPtr, [](A& a) { a.room = nullptr; }});
      faults.push_back({"kernel", qorStatusNullPtr, [](A& a) { a.kernel = nullptr; }});
      addSizeFaults(faults, "roiSize", &A::roiSize);
      addSizeFaults(faults, "maskSize", &A::maskSize);
      if (!anchors) return faults;
      for (int32_t bad : {-1, INT32_MIN, 3, INT32_MAX}) {
        faults.push_back({"anchor.x", qorStatusBadAnchor, [=](A& a) { a.anchor.x = bad; }});
      }
      for (int32_t bad : {-1, INT32_MIN, 2, INT32_MAX}) {
        faults.push_back({"anchor.y", qorStatusBadAnchor, [=](A& a) { a.anchor.y = bad; }});
      }
      return faults;
    };
    const A good = {block.data(), {5, 4}, taps, {3, 2}, {2, 1}};
    expectStatuses<A>(
        good, faultsOf(true),
        [=](const A& a) { return form.init(static_cast<State*>(a.room), a.roiSize, a.kernel, a.maskSize, a.anchor); },
        written);
    const A goodResult = {result.data(), {5, 4}, taps, {3, 2}, {2, 1}};
    expectStatuses<A>(
        goodResult, faultsOf(false),
        [=](const A& a) { return form.getSize(a.roiSize, a.kernel, a.maskSize, static_cast<int32_t*>(a.room)); },
        written);
    State* made = nullptr;
    expectStatuses<A>(
        goodResult, faultsOf(true),
        [&](const A& a) {
          const QorStatus status =
              form.initAlloc(static_cast<State**>(a.room), a.roiSize, a.kernel, a.maskSize, a.anchor);
          if (status == qorStatusOk) memcpy(&made, a.room, sizeof made);
          return status;
        },
        written);
    EXPECT_EQ(form.release(made), qorStatusOk);
  });
}
