// What the exported functions never ask of the states of pyramid layers: other channels and types.
#include <gtest/gtest.h>

#include "pyramid/layerstate.h"
#include "support/services.h"

TEST(PyramidLayerState, refusesOtherChannelsThenOtherTypes) {
  services::reset();
  const int16_t kernel[3] = {1, 2, 1};
  for (const auto init : {ownPyramidLayerDownInitAlloc, ownPyramidLayerUpInitAlloc}) {
    QoriPyramidLayerState* state = nullptr;
    for (const int32_t channels : {0, 2, 4, -1}) {
      EXPECT_EQ(init(&state, {8, 8}, kernel, 3, 2, 2.0f, qor8u, channels), qorStatusBadChannels);
      EXPECT_EQ(init(&state, {8, 8}, kernel, 3, 2, 2.0f, 0, channels), qorStatusBadChannels);
      EXPECT_EQ(init(&state, {8, 8}, kernel, 4, 2, 2.0f, qor8u, channels), qorStatusBadArg);
    }
    for (const QorDataType type : {0, 2, 3, 4, 6, 7, 12, 14}) {
      EXPECT_EQ(init(&state, {8, 8}, kernel, 3, 2, 2.0f, type, 1), qorStatusBadDataType) << type;
    }
    EXPECT_EQ(services::allocations(), 0);
    EXPECT_EQ(state, nullptr);
  }
  EXPECT_EQ(qoriPyramidLayerDownFree(nullptr), qorStatusNullPtr);
  EXPECT_EQ(qoriPyramidLayerUpFree(nullptr), qorStatusNullPtr);
}
