// Analysis of structuring elements, sizes of states, and states.
#include "elements.h"

namespace {

class ElementTest : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { EXPECT_EQ(services::liveBlocks(), 0); }
};

int32_t kindOf(const std::vector<std::string>& rows, QoriPoint anchor) {
  const Element e(rows, anchor);
  QoriMorphState* state = nullptr;
  EXPECT_EQ(qoriMorphologyInitAlloc_8u_C1R(10, e.taps.data(), e.size(), anchor, &state), qorStatusOk);
  const int32_t kind = state->kind;
  qoriMorphologyFree(state);
  return kind;
}

// Every field of a state, and that all it points at lies in its block.
template <class F>
void expectState(const uint8_t* block, const Element& e, int32_t roiWidth) {
  using T = typename F::T;
  const Analysis a = analysed(e, e.anchor);
  const auto s = recordAt<QoriMorphState>(block);
  const int32_t size = stateSizeOf(e, a, roiWidth, F::channels, sizeof(T));
  const auto inBlock = [&](const void* p, int32_t bytes) {
    const uint8_t* first = static_cast<const uint8_t*>(p);
    return first >= block + sizeof(QoriMorphState) && first + bytes <= block + size;
  };
  ASSERT_EQ(s.kind, a.kind);
  const bool boxed = a.kind == rectangle || a.kind == ellipse;
  const int32_t ax = boxed ? e.anchor.x - a.left : e.anchor.x, ay = boxed ? e.anchor.y - a.top : e.anchor.y;
  EXPECT_EQ(s.maskWidth, boxed ? a.width : e.width);
  EXPECT_EQ(s.maskHeight, boxed ? a.height : e.height);
  EXPECT_EQ(s.anchorX, ax);
  EXPECT_EQ(s.anchorY, ay);
  EXPECT_EQ(s.rightExtent, a.kind == general ? e.width - e.anchor.x - 1 : 0);
  EXPECT_EQ(s.bottomExtent, a.kind == general ? e.height - e.anchor.y - 1 : 0);
  const int32_t padded = int32_t(((roiWidth + e.width) * F::channels * sizeof(T) + 15) / 16 * 16);
  EXPECT_EQ(s.paddedStride, a.kind == general ? padded : 0);
  EXPECT_EQ(s.stateSize, size);
  EXPECT_EQ(s.dataType, sizeof(T) == 1 ? 1 : 13);
  EXPECT_EQ(s.channels, F::channels);
  EXPECT_EQ(s.roiWidth, roiWidth);
  EXPECT_EQ(s.reserved, -1);
  ASSERT_TRUE(inBlock(s.maskData, e.width * e.height));
  EXPECT_EQ(memcmp(s.maskData, e.taps.data(), e.taps.size()), 0);
  EXPECT_EQ(s.maskErode, a.kind == general ? s.maskData : nullptr);
  EXPECT_EQ(s.maskDilate, s.maskErode);
  EXPECT_EQ(s.work == nullptr, a.kind == empty);
  EXPECT_TRUE(!s.work || inBlock(s.work, 1));
  EXPECT_EQ(s.shape == nullptr, a.kind == general);
  if (a.kind == empty) {
    EXPECT_EQ(s.shape->width, 1);
    EXPECT_EQ(s.shape->height, 1);
    EXPECT_EQ(s.shape->anchorX, 0);
    EXPECT_EQ(s.shape->anchorY, 0);
  }
  if (!boxed) return;
  ASSERT_TRUE(inBlock(s.shape, a.kind == rectangle ? 32 : int32_t(sizeof(QoriMorphShape))));
  QoriMorphShape shape = {};
  memcpy(static_cast<void*>(&shape), static_cast<void*>(s.shape), a.kind == rectangle ? 32 : sizeof shape);
  EXPECT_EQ(shape.width, a.width);
  EXPECT_EQ(shape.height, a.height);
  EXPECT_EQ(shape.anchorX, ax);
  EXPECT_EQ(shape.anchorY, ay);
  if (a.kind != ellipse) return;
  ASSERT_EQ(shape.rowCount, int32_t(a.rowIndex.size()));
  ASSERT_EQ(shape.runCount, int32_t(a.anchorOfLength.size()));
  ASSERT_TRUE(inBlock(shape.rowIndex, 4 * shape.rowCount) && inBlock(shape.rowRun, 4 * shape.rowCount));
  ASSERT_TRUE(inBlock(shape.runLength, 4 * shape.runCount) && inBlock(shape.runAnchor, 4 * shape.runCount));
  for (int32_t i = 0; i < shape.rowCount; ++i) {
    EXPECT_EQ(shape.rowIndex[i], a.rowIndex[size_t(i)]);
    EXPECT_EQ(shape.runLength[shape.rowRun[i]], a.rowLength[size_t(i)]);
  }
  int32_t i = 0;
  for (const auto& [length, anchor] : a.anchorOfLength) {
    EXPECT_EQ(shape.runLength[i], length);
    EXPECT_EQ(shape.runAnchor[i], anchor);
    ++i;
  }
}

TEST_F(ElementTest, KindsSizesAndFieldsFollowTheRules) {
  Random random(1);
  int32_t seen[4] = {};
  forAllForms([&](auto form) {
    using F = decltype(form);
    for (int32_t trial = 0; trial < 1500; ++trial) {
      const Element e = anyElement(random);
      const int32_t roiWidth = int32_t(random.number(1, 100));
      SCOPED_TRACE(e.text() + "width " + std::to_string(roiWidth));
      const Analysis a = analysed(e, e.anchor);
      ++seen[a.kind];
      int32_t size = 0;
      ASSERT_EQ(F::getSize(roiWidth, e.taps.data(), e.size(), &size), qorStatusOk);
      EXPECT_EQ(size, stateSizeOf(e, analysed(e, e.centre()), roiWidth, F::channels, sizeof(typename F::T)));

      QoriMorphState* state = nullptr;
      ASSERT_EQ(F::initAlloc(roiWidth, e.taps.data(), e.size(), e.anchor, &state), qorStatusOk);
      expectState<F>(reinterpret_cast<uint8_t*>(state), e, roiWidth);
      EXPECT_EQ(services::liveBlocks(), 1);
      EXPECT_EQ(qoriMorphologyFree(state), qorStatusOk);

      const Block block(size_t(stateSizeOf(e, a, roiWidth, F::channels, sizeof(typename F::T))), random);
      ASSERT_EQ(F::init(roiWidth, e.taps.data(), e.size(), e.anchor, reinterpret_cast<QoriMorphState*>(block.data())),
                qorStatusOk);
      expectState<F>(block.data(), e, roiWidth);
      EXPECT_TRUE(block.intact());
      EXPECT_EQ(services::liveBlocks(), 0);
      if (HasFailure()) return;
    }
  });
  for (int32_t kind : seen) EXPECT_GT(kind, 300);
}

TEST_F(ElementTest, KindsOfKnownShapes) {
  for (int32_t y = 0; y < 2; ++y) {
    for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(kindOf({"...", "..."}, {x, y}), empty);
  }
  EXPECT_EQ(kindOf({"#"}, {0, 0}), rectangle);
  EXPECT_EQ(kindOf({"...", "..#"}, {0, 0}), rectangle) << "a single tap away from the anchor";
  EXPECT_EQ(kindOf({"....", ".##.", ".##.", "...."}, {2, 2}), rectangle) << "empty rows and columns around";
  EXPECT_EQ(kindOf({"....", ".##.", ".##.", "...."}, {3, 0}), rectangle) << "anchor outside";
  EXPECT_EQ(kindOf({".#.", "###", ".#."}, {1, 1}), ellipse) << "cross";
  EXPECT_EQ(kindOf({".#.", "###", ".#."}, {0, 1}), general) << "not all rows have the anchor's column";
  EXPECT_EQ(kindOf({"###", "#.#", "###"}, {1, 1}), general) << "ring";
  EXPECT_EQ(kindOf({"#..", ".#.", "..#"}, {1, 1}), general) << "diagonal";
  EXPECT_EQ(kindOf({"##.", ".##"}, {1, 1}), general) << "equal lengths, placed differently";
  EXPECT_EQ(kindOf({"#..", "#..", "###"}, {0, 1}), ellipse) << "an L with the anchor in its upright part";
  EXPECT_EQ(kindOf({"##", "##", "..", "##"}, {0, 1}), ellipse) << "an empty row between";
  EXPECT_EQ(kindOf({"##", "##", "..", "##"}, {0, 2}), ellipse) << "the anchor in it";
  EXPECT_EQ(kindOf({".#.", "###", "..."}, {1, 2}), general) << "the anchor's row below all set rows";
  EXPECT_EQ(kindOf({"...", "###", "###"}, {1, 0}), rectangle) << "the same for a rectangle";
}

// The size query looks at the centre alone.
TEST_F(ElementTest, AnotherAnchorCanMakeAnotherKindOfAnotherSize) {
  const Element cross({".#.", "###", ".#."}, {0, 1});
  int32_t size = 0;
  EXPECT_EQ(qoriMorphologyGetSize_8u_C1R(20, cross.taps.data(), cross.size(), &size), qorStatusOk);
  EXPECT_EQ(size, 16 + 160 + 8 * (3 + 2) + (3 * 2 + 1) * (20 + 32) + 40 * 3 + 40);
  QoriMorphState* state = nullptr;
  EXPECT_EQ(qoriMorphologyInitAlloc_8u_C1R(20, cross.taps.data(), cross.size(), cross.anchor, &state), qorStatusOk);
  EXPECT_EQ(state->stateSize, 16 + 112 + 2 * 3 * 32);
  qoriMorphologyFree(state);
}

TEST_F(ElementTest, AnyByteButZeroIsSetAndTheBytesAreKept) {
  const uint8_t mask[] = {1, 128, 255, 0};
  QoriMorphState* state = nullptr;
  ASSERT_EQ(qoriMorphologyInitAlloc_32f_C3R(20, mask, {4, 1}, {0, 0}, &state), qorStatusOk);
  EXPECT_EQ(state->kind, rectangle);
  EXPECT_EQ(state->maskWidth, 3);
  EXPECT_EQ(memcmp(state->maskData, mask, 4), 0);
  qoriMorphologyFree(state);
}

struct Args {
  int32_t roiWidth;
  const uint8_t* mask;
  QoriSize size;
  QoriPoint anchor;
  void* out;
  int64_t allocations;  // after which none succeeds; negative: all succeed
};

std::vector<Fault<Args>> faults(bool anchor, int64_t allocations) {
  std::vector<Fault<Args>> f;
  f.push_back({"mask", qorStatusNullPtr, [](Args& a) { a.mask = nullptr; }});
  for (int32_t bad : {0, -1, INT32_MIN}) {
    f.push_back({"roiWidth", qorStatusBadSize, [=](Args& a) { a.roiWidth = bad; }});
    f.push_back({"size", qorStatusBadSize, [=](Args& a) { a.size.width = bad; }});
    f.push_back({"size", qorStatusBadSize, [=](Args& a) { a.size.height = bad; }});
  }
  if (anchor) {
    for (int32_t bad : {-1, 3, INT32_MIN, INT32_MAX}) {
      f.push_back({"anchor", qorStatusBadAnchor, [=](Args& a) { a.anchor.x = bad; }});
    }
    for (int32_t bad : {-1, 2, INT32_MIN, INT32_MAX}) {
      f.push_back({"anchor", qorStatusBadAnchor, [=](Args& a) { a.anchor.y = bad; }});
    }
  }
  for (int64_t n : {0, 1}) f.push_back({"allocation", qorStatusNoMemory, [=](Args& a) { a.allocations = n; }});
  f.push_back({"out", qorStatusNullPtr, [](Args& a) { a.out = nullptr; }});
  if (allocations > 2) f.push_back({"allocation", qorStatusNoMemory, [](Args& a) { a.allocations = 2; }});
  return f;
}

TEST_F(ElementTest, Statuses) {
  Random random(3);
  forAllForms([&](auto form) {
    using F = decltype(form);
    const uint8_t mask[6] = {1, 0, 1, 0, 1, 0};
    std::vector<uint8_t> written(16, 0x33);
    const Args good = {20, mask, {3, 2}, {1, 1}, written.data(), -1};
    const auto bytes = [&] { return written; };
    const auto during = [](const Args& a, auto call) {
      services::failAfter(a.allocations);
      const QorStatus status = call();
      services::failAfter(-1);
      return status;
    };
    expectStatuses<Args>(
        good, faults(false, 2),
        [&](const Args& a) {
          return during(a, [&] { return F::getSize(a.roiWidth, a.mask, a.size, static_cast<int32_t*>(a.out)); });
        },
        bytes);
    QoriMorphState* made = nullptr;
    expectStatuses<Args>(
        good, faults(true, 3),
        [&](const Args& a) {
          return during(a, [&] {
            const QorStatus status =
                F::initAlloc(a.roiWidth, a.mask, a.size, a.anchor, static_cast<QoriMorphState**>(a.out));
            if (status == qorStatusOk) memcpy(&made, a.out, sizeof made);
            return status;
          });
        },
        bytes);
    qoriMorphologyFree(made);
    written.assign(4000, 0x44);
    Args block = good;
    block.out = written.data();
    expectStatuses<Args>(
        block, faults(true, 2),
        [&](const Args& a) {
          return during(
              a, [&] { return F::init(a.roiWidth, a.mask, a.size, a.anchor, static_cast<QoriMorphState*>(a.out)); });
        },
        bytes);
  });
  EXPECT_EQ(qoriMorphologyFree(nullptr), qorStatusNullPtr);
}

// The smallest states there are, in new blocks too.
TEST_F(ElementTest, SmallStates) {
  for (int32_t roiWidth = 1; roiWidth <= 20; ++roiWidth) {
    for (int32_t width = 1; width <= 40; ++width) {
      for (int32_t last : {0, width / 2, width - 1}) {
        Element e(width, 1, {0, 0});
        e.at(0, 0) = e.at(last, 0) = 1;
        QoriMorphState* state = nullptr;
        ASSERT_EQ(qoriMorphologyInitAlloc_8u_C1R(roiWidth, e.taps.data(), e.size(), e.anchor, &state), qorStatusOk);
        expectState<Form<uint8_t, 1>>(reinterpret_cast<uint8_t*>(state), e, roiWidth);
        qoriMorphologyFree(state);
      }
    }
  }
}

// A width whose size wraps to nearly nothing gets no block that the state would not fit in.
TEST_F(ElementTest, WrappedSizes) {
  const uint8_t mask[9] = {1, 0, 1, 0, 1, 0, 1, 0, 1};
  for (int32_t roiWidth : {INT32_MAX, INT32_MAX - 3, 1 << 30, (1 << 30) - 3, 715827882, 715827880}) {
    int32_t size = 0;
    EXPECT_EQ(qoriMorphologyGetSize_8u_C1R(roiWidth, mask, {3, 3}, &size), qorStatusOk);
    const int32_t padded = int32_t((uint32_t(roiWidth) + 3 + 15) & ~15u);
    EXPECT_EQ(size, int32_t(uint32_t(16 + 112) + uint32_t(std::max(3, int32_t(6u * uint32_t(padded))))));
    if (size > (64 << 20)) continue;
    QoriMorphState* state = nullptr;
    const QorStatus status = qoriMorphologyInitAlloc_8u_C1R(roiWidth, mask, {3, 3}, {1, 1}, &state);
    EXPECT_EQ(status == qorStatusOk, state != nullptr);
    if (state) qoriMorphologyFree(state);
  }
}

}  // namespace
