// Motion history, optical flow, background models.
#include <cmath>
#include <memory>

#include "statuses/table.h"

namespace statuses {

static const std::vector<Value> none = {0, -1, INT32_MIN};

static void history(Rows& rows) {
  for (const std::string type : {"8u32f", "16u32f", "32f"})
    rows.push_back(Row("qoriUpdateMotionHistory_" + type + "_C1IR")
                       .any("timestamp", 10.f)
                       .with("mhiDuration", 3.f)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("mhiDuration", {-1.f, -1e-30f, -INFINITY}, qorStatusOutOfRange)
                       .accepts("mhiDuration", {0.f, -0.f, NAN}));
}

// Two pyramids of one texture, and what is wrong in copies of the first.
struct Pyramids {
  QoriPyramid* pyramids[2];
  QoriPyramid withoutImages, withoutSizes, withoutRates, withoutSteps;
  std::vector<float> pixels = std::vector<float>(2 * 16 * 12);
};

static void flow(Rows& rows, const std::string& form, int32_t element) {
  rows.push_back(Row("qoriOpticalFlowPyrLKInitAlloc_" + form)
                     .with("winSize", 5)
                     .with("hint", 0)
                     .frees("qoriOpticalFlowPyrLKFree_" + form)
                     .null()
                     .size()
                     .bad("winSize", none, qorStatusBadSize)
                     .accepts("hint", {-1, 7}));
  const auto make = [=](Call& c) {
    call("qoriOpticalFlowPyrLKInitAlloc_" + form, {c.bytes("state"), sizeOf(goodWidth, goodHeight), 5, 0});
    c.at("state") = outOf(c, "state");
  };
  rows.push_back(Row("qoriOpticalFlowPyrLKFree_" + form).setup(make).null());

  const auto both = std::make_shared<Pyramids>();
  Row row("qoriOpticalFlowPyrLK_" + form);
  row.with("numPoints", 2).with("winSize", 5).with("maxLevel", 1).with("maxIter", 3).with("threshold", 0.01f);
  row.data("prevPts", {QoriPoint_32f{7, 6}, QoriPoint_32f{8.5f, 5.5f}});
  row.data("nextPts", {QoriPoint_32f{7, 6}, QoriPoint_32f{8.5f, 5.5f}});
  row.setup(make);
  row.setup([=](Call& c) {
    for (size_t i = 0; i < both->pixels.size(); ++i) both->pixels[i] = static_cast<float>(i * i % 7);
    for (QoriPyramid*& pyramid : both->pyramids) {
      call("qoriPyramidInitAlloc", {&pyramid, 1, sizeOf(goodWidth, goodHeight), 2.f});
      for (int level = 0; level <= 1; ++level) {
        pyramid->levelImages[level] = both->pixels.data() + level * 16 * 12;
        pyramid->levelSteps[level] = 16 * element;
      }
    }
    c.at("pyr1") = both->pyramids[0];
    c.at("pyr2") = both->pyramids[1];
    both->withoutImages = both->withoutSizes = both->withoutRates = both->withoutSteps = *both->pyramids[0];
    both->withoutImages.levelImages = nullptr;
    both->withoutSizes.levelSizes = nullptr;
    both->withoutRates.levelRates = nullptr;
    both->withoutSteps.levelSteps = nullptr;
  });
  row.teardown([=](Call& c) {
    call("qoriOpticalFlowPyrLKFree_" + form, {c.at("state")});
    for (QoriPyramid* pyramid : both->pyramids) call("qoriPyramidFree", {pyramid});
  });
  row.null();
  row.bad("pyr1", {&both->withoutImages, &both->withoutSizes, &both->withoutRates, &both->withoutSteps},
          qorStatusNullPtr);
  row.bad("pyr2", {&both->withoutImages, &both->withoutSizes, &both->withoutSteps}, qorStatusNullPtr);
  row.bad("numPoints", none, qorStatusBadSize).bad("winSize", {0, -1, 4, 3, 6, 7}, qorStatusBadSize);
  row.bad("maxLevel", {-1, 2, INT32_MIN}, qorStatusBadArg).bad("maxIter", none, qorStatusBadArg);
  row.bad("threshold", {-1.f, -1e-30f}, qorStatusBadArg);
  rows.push_back(row.accepts("maxLevel", {0}).accepts("threshold", {0.f, -0.f}));
}

static void backgrounds(Rows& rows, const std::string& form) {
  static uint8_t frame[12 * 48];
  const std::vector<Value> larger = {sizeOf(goodWidth + 1, goodHeight), sizeOf(goodWidth, goodHeight + 1)};
  for (const std::string kind : {"Gaussian", "Histogram"}) {
    const std::string name = "qoriForeground" + kind;
    rows.push_back(Row(name + "InitAlloc_" + form).frees(name + "Free_" + form).null().size().step());
    const auto make = [=](Call& c) {
      call(name + "InitAlloc_" + form, {frame, 48, sizeOf(goodWidth, goodHeight), frame, c.bytes("state")});
      c.at("state") = outOf(c, "state");
    };
    const auto free = [=](Call& c) { call(name + "Free_" + form, {c.at("state")}); };
    rows.push_back(Row(name + "Free_" + form).setup(make).null());
    // Only the frame's step is looked at.
    Row row(name + "_" + form);
    row.channels("dst", 1)
        .setup(make)
        .teardown(free)
        .null()
        .size()
        .bad("roiSize", larger, qorStatusBadSize)
        .step("src");
    row.accepts(kind == "Gaussian" ? "refStep dstStep" : "dstStep", {1});
    rows.push_back(row);
    if (kind == "Histogram")
      rows.push_back(Row(name + "Update_" + form)
                         .setup(make)
                         .teardown(free)
                         .null()
                         .size()
                         .bad("roiSize", larger, qorStatusBadSize)
                         .step("src")
                         .accepts("maskStep refStep", {1}));
  }
}

Rows motionRows() {
  Rows rows;
  history(rows);
  flow(rows, "8u_C1R", 1);
  flow(rows, "16u_C1R", 2);
  flow(rows, "32f_C1R", 4);
  for (const std::string form : {"8u_C1R", "8u_C3R"}) backgrounds(rows, form);
  return rows;
}

}  // namespace statuses
