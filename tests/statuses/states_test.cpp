// Functions that allocate memory, when there is none: each says so, gives back what it has got, and writes nothing.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include "qorcvmx.h"
#include "statuses/table.h"
#include "support/services.h"

using namespace statuses;

static bool startsWith(const std::string& name, const std::string& start) {
  return name.compare(0, start.size(), start) == 0;
}

// What the descriptions say of memory; all else takes none.
static bool mayAllocate(const std::string& name) {
  if (name.find("InitAlloc") != std::string::npos) return true;
  for (const char* start : {"qoriMorphologyGetSize_", "qoriMorphologyInit_", "qoriMorphAdvGetSize_",
                            "qoriMorphAdvInit_", "qoriPyramidLayerUp_", "qoriApplyHaarClassifier_"})
    if (startsWith(name, start)) return true;
  return false;
}

TEST(Memory, isAskedForAndGivenBackAsToldWhenItRunsOut) {
  int records = 0;
  for (const auto table : {versionRows, arithRows, statsRows, filterRows, morphRows, pyramidRows, featureRows,
                           distanceRows, segmentRows, detectRows, motionRows, geometryRows}) {
    for (const Row& row : table()) {
      services::reset();
      bool allocates = false;
      const std::vector<std::string> wrong = row.runWithoutMemory(allocates);
      for (size_t i = 0; i < wrong.size() && i < 10; ++i) ADD_FAILURE() << row.name() << ": " << wrong[i];
      EXPECT_EQ(allocates, mayAllocate(row.name())) << row.name();
      records += row.name().find("InitAlloc") != std::string::npos;
    }
  }
  EXPECT_EQ(records, 42);
  services::reset();
}

// Two kinds of failure do write. A search for lines in an empty interval tells that there are none.
TEST(Memory, ofALineCountIsClearedByAnEmptyInterval) {
  static const uint8_t pixels[16] = {1, 1, 1};
  static uint8_t buffer[1 << 16];
  const float intervals[4][4] = {{-5, 2, 20, 1}, {20, 0, -5, 3}, {-5, NAN, 20, 3}, {-5, 0, NAN, 3}};
  for (const auto& interval : intervals) {
    float region[4] = {interval[0], interval[1], interval[2], interval[3]};
    QoriPointPolar line = {7, 7};
    int32_t count = 9;
    EXPECT_EQ(qoriHoughLine_Region_8u32f_C1R(pixels, 4, {4, 4}, &line, region, 1, &count, {1, 0.5f}, 1, buffer),
              qorStatusBadRange);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(memcmp(region, interval, sizeof region), 0);
    EXPECT_TRUE(line.rho == 7 && line.theta == 7);
  }
}

// And a stage with a bad rectangle, found when the memory is there already.
TEST(Memory, ofAStageWithABadRectangleIsReplacedByNull) {
  services::reset();
  static const QoriRect bad[1] = {{-1, 0, 2, 2}};
  static const int32_t one[1] = {1};
  static const float number[1] = {1};
  for (const std::string name : {"qoriHaarClassifierInitAlloc_32f", "qoriHaarClassifierInitAlloc_32s",
                                 "qoriTiltedHaarClassifierInitAlloc_32f", "qoriTiltedHaarClassifierInitAlloc_32s"}) {
    int place = 0;
    void* state = &place;
    const Value numbers = name.find("_32f") != std::string::npos ? Value(number) : Value(one);
    EXPECT_EQ(call(name, {&state, bad, numbers, numbers, numbers, numbers, one, 1}), qorStatusBadArg) << name;
    EXPECT_EQ(state, name == "qoriHaarClassifierInitAlloc_32f" ? &place : nullptr) << name;
    EXPECT_EQ(services::liveBlocks(), 0) << name;
    state = &place;
    services::failAfter(0);
    EXPECT_EQ(call(name, {&state, bad, numbers, numbers, numbers, numbers, one, 1}),
              name == "qoriHaarClassifierInitAlloc_32f" ? qorStatusBadArg : qorStatusNoMemory)
        << name;
    EXPECT_EQ(state, &place) << name;
    services::failAfter(-1);
  }
  services::reset();
}
