// qorsMalloc_* and qorsFree.
#include <gtest/gtest.h>
#include <malloc.h>
#include <string.h>

#include <limits>

#include "frame/kit/vectors.h"
#include "support/instrumented.h"
#include "support/services.h"

namespace {

struct KitMemory : testing::Test {
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

template <class T>
void expectAllocator(T* (*allocate)(int32_t)) {
  services::reset();
  for (const int32_t len : {1, 2, 63, 64, 65, 100000}) {
    T* block = allocate(len);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(services::liveBlocks(), 1);
    memset(static_cast<void*>(block), 0x77, size_t(len) * sizeof(T));
    qorsFree(block);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
  EXPECT_EQ(services::allocations(), 6);
}

TEST_F(KitMemory, GivesRoomForAllElements) {
  expectAllocator(qorsMalloc_8u);
  expectAllocator(qorsMalloc_16u);
  expectAllocator(qorsMalloc_32s);
  expectAllocator(qorsMalloc_32f);
  expectAllocator(qorsMalloc_64f);
}

template <class T>
void expectNothingAsked(T* (*allocate)(int32_t)) {
  services::reset();
  for (const int32_t len : {0, -1, std::numeric_limits<int32_t>::min()}) EXPECT_EQ(allocate(len), nullptr) << len;
  EXPECT_EQ(services::allocations(), 0);
}

TEST_F(KitMemory, LengthBelowOneDoesNotAskForMemory) {
  expectNothingAsked(qorsMalloc_8u);
  expectNothingAsked(qorsMalloc_16u);
  expectNothingAsked(qorsMalloc_32s);
  expectNothingAsked(qorsMalloc_32f);
  expectNothingAsked(qorsMalloc_64f);
}

template <class T>
void expectNullWhenFailing(T* (*allocate)(int32_t)) {
  services::reset();
  services::failAfter(0);
  EXPECT_EQ(allocate(10), nullptr);
  EXPECT_EQ(services::allocations(), 1);
  EXPECT_EQ(services::liveBlocks(), 0);
}

TEST_F(KitMemory, FailedAllocationIsNull) {
  expectNullWhenFailing(qorsMalloc_8u);
  expectNullWhenFailing(qorsMalloc_16u);
  expectNullWhenFailing(qorsMalloc_32s);
  expectNullWhenFailing(qorsMalloc_32f);
  expectNullWhenFailing(qorsMalloc_64f);
}

// In 32 bits these lengths would wrap to a few bytes. A machine may refuse such a block; what it gives must be large.
template <class T>
void expectWideSize(T* (*allocate)(int32_t), int32_t len) {
  T* block = allocate(len);
  if (!block) return;
  EXPECT_GE(malloc_usable_size(block), size_t(len) * sizeof(T));
  qorsFree(block);
}

TEST_F(KitMemory, ByteCountDoesNotWrap) {
  if (instrumented()) GTEST_SKIP() << "the sanitizer would need an eighth of these blocks in real memory";
  expectWideSize(qorsMalloc_8u, std::numeric_limits<int32_t>::max());
  expectWideSize(qorsMalloc_32s, (1 << 30) + 1);
  expectWideSize(qorsMalloc_32f, (1 << 30) + 1);
  expectWideSize(qorsMalloc_64f, (1 << 29) + 1);
  EXPECT_EQ(services::allocations(), 4);
  EXPECT_EQ(services::liveBlocks(), 0);
}

TEST_F(KitMemory, FreeOfNullIsHarmless) { qorsFree(nullptr); }

}  // namespace
