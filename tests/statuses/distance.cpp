// Distance maps, inpainting, flood fills.
#include <cmath>
#include <memory>

#include "statuses/table.h"

namespace statuses {

static void chamfer(Rows& rows) {
  static const int32_t good[3] = {5, 7, 11}, bad[4][3] = {{0, 7, 11}, {5, 0, 11}, {-1, 7, 11}, {5, 7, 0}};
  static const float goodFloat[3] = {1, 1.4f, 2.1f},
                     badFloat[5][3] = {{0, 1, 2}, {1, 0, 2}, {-1, 1, 2}, {NAN, 1, 2}, {1, 1.4f, 0}};
  for (const std::string mask : {"3x3", "5x5"}) {
    for (const std::string form : {"8u_C1R", "8u16u_C1R", "8u32f_C1R", "8u_C1IR"}) {
      const bool floats = form == "8u32f_C1R";
      std::vector<Value> wrong;
      for (int i = 0; i < (floats ? 5 : 4); ++i) wrong.push_back(floats ? Value(badFloat[i]) : Value(bad[i]));
      if (mask == "3x3") wrong.pop_back();  // without a third cost
      rows.push_back(Row("qoriDistanceTransform_" + mask + "_" + form)
                         .with("metrics", floats ? Value(goodFloat) : Value(good))
                         .null()
                         .size()
                         .step()
                         .align()
                         .bad("metrics", wrong, qorStatusBadMetric));
    }
  }
  for (const std::string type : {"32f", "32s"})
    rows.push_back(Row("qoriGetDistanceTransformMask_" + type)
                       .with("kernelSize", 3)
                       .with("normType", 2)
                       .null()
                       .bad("kernelSize", {0, 1, 2, 4, 7, -3}, qorStatusBadSize)
                       .bad("normType", {-1, 3, 50}, qorStatusBadArg)
                       .accepts("kernelSize", {5})
                       .accepts("normType", {0, 1}));
  rows.push_back(Row("qoriGetDistanceTransformMask")
                     .with("maskType", 32)
                     .bad("maskType", {33, 39, 53, 58, 9}, qorStatusBadArg)
                     .null()
                     .bad("maskType", {0, 2, 10, 40, 62, 300}, qorStatusBadSize)
                     .accepts("maskType", {30, 31, 50, 51, 52}));
}

static void trueDistance(Rows& rows) {
  rows.push_back(Row("qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs").null().size());
  rows.push_back(Row("qoriTrueDistanceTransformGetBufferSize_8u32f_C1R").null().size());
  rows.push_back(Row("qoriTrueDistanceTransform_8u16u_C1RSfs").any("scaleFactor", -4).null().size().step().align());
  rows.push_back(Row("qoriTrueDistanceTransform_8u32f_C1R").null().size().step().align());
  rows.push_back(Row("qoriFastMarchingGetBufferSize_8u32f_C1R").null().size());
  rows.push_back(Row("qoriFastMarching_8u32f_C1R")
                     .with("radius", 2.f)
                     .null()
                     .size()
                     .step()
                     .align()
                     .bad("radius", {-1.f, -1e-30f, -INFINITY}, qorStatusBadArg)
                     .accepts("radius", {0.f, -0.f, NAN}));
}

static void inpainting(Rows& rows) {
  for (const std::string form : {"8u_C1R", "8u_C3R"}) {
    rows.push_back(Row("qoriInpaintInitAlloc_" + form)
                       .with("radius", 2.f)
                       .with("flags", 0)
                       .frees("qoriInpaintFree_" + form)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("flags", {-1, 2, INT32_MIN}, qorStatusBadArg)
                       .bad("radius", {0.999f, 0.f, -3.f, NAN}, qorStatusBadArg)
                       .accepts("flags", {1})
                       .acceptsCase("no hole", [](Call& c) { __builtin_memset(c.bytes("mask"), 0, 12 * 19); })
                       .accepts("radius", {1.f}));
    // A hole of four pixels, one pixel deep, in a state of either channel count.
    const auto make = [](const std::string& which, void* state) {
      std::vector<uint8_t> mask(16 * 12);
      std::vector<float> distance(16 * 12);
      for (const int i : {5 * 16 + 7, 5 * 16 + 8, 6 * 16 + 7, 6 * 16 + 8}) mask[i] = 1, distance[i] = 1;
      call("qoriInpaintInitAlloc_" + which,
           {state, distance.data(), 64, mask.data(), 16, sizeOf(goodWidth, goodHeight), 2.f, 0});
    };
    rows.push_back(Row("qoriInpaintFree_" + form)
                       .setup([=](Call& c) {
                         make(form, c.bytes("state"));
                         c.at("state") = outOf(c, "state");
                       })
                       .null());
    const auto other = std::make_shared<void*>();
    rows.push_back(
        Row("qoriInpaint_" + form)
            .setup([=](Call& c) {
              make(form == "8u_C1R" ? "8u_C3R" : "8u_C1R", other.get());
              make(form, c.bytes("state"));
              c.at("state") = outOf(c, "state");
            })
            .teardown([=](Call& c) {
              call("qoriInpaintFree_" + form, {c.at("state")});
              call("qoriInpaintFree_" + form, {*other});
            })
            .null()
            .size()
            .bad("roiSize", {sizeOf(15, 12), sizeOf(17, 12), sizeOf(16, 11), sizeOf(16, 13)}, qorStatusBadSize)
            .fault(
                "state", qorStatusBadSize, [=](Call& c) { c.at("state") = *other; }, "of other channels")
            .step());
  }
}

static void floodFill(Rows& rows) {
  rows.push_back(Row("qoriFloodFillGetSize").null().size());
  rows.push_back(Row("qoriFloodFillGetSize_Grad").null().size());
  const std::vector<Value> outside = {point(-1, 5), point(16, 5), point(5, -1), point(5, 12), point(INT32_MIN, 5)};
  static const float negative[3][3] = {{-1, 1, 1}, {1, 1, -1}, {-1, -1, -1}};
  for (const std::string family : {"", "Range", "Grad"}) {
    for (const std::string around : {"4Con", "8Con"}) {
      for (const std::string type : {"8u", "16u", "32f"}) {
        for (const std::string form : {"C1IR", "C3IR"}) {
          const bool three = form == "C3IR", floats = type == "32f";
          Row row("qoriFloodFill_" + family + around + "_" + type + "_" + form);
          row.with("seed", point(7, 6)).room("region", 48).accepts("seed", {point(0, 0), point(15, 11)});
          if (!three) row.any("newValue", 200);
          if (!three && family != "") {
            if (floats && family == "Grad")
              row.with("minDelta maxDelta", 1).accepts("minDelta maxDelta", {0.f, -0.f, NAN, INFINITY});
            else
              row.any("minDelta maxDelta", 1);
          }
          if (floats) row.rowBytes("srcDst", 4);
          if (type == "8u") row.rowBytes("srcDst", 1);
          row.null().size().step();
          row.align("srcDst", floats && family != "Grad" ? 2 : 0);
          row.bad("seed", outside, qorStatusOutOfRange);
          if (floats && family == "Grad") {
            if (three)
              row.bad("minDelta maxDelta", {negative[0], negative[1], negative[2]}, qorStatusOutOfRange);
            else
              row.bad("minDelta maxDelta", {-1.f, -1e-30f}, qorStatusOutOfRange);
          }
          rows.push_back(row);
        }
      }
    }
  }
}

Rows distanceRows() {
  Rows rows;
  chamfer(rows);
  trueDistance(rows);
  inpainting(rows);
  floodFill(rows);
  return rows;
}

}  // namespace statuses
