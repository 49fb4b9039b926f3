// Gaussian levels, pyramid records, layers of any rate.
#include <cmath>

#include "statuses/table.h"

namespace statuses {

static const std::vector<Value> badRates = {1.f, 0.f, -2.f, 10.5f, NAN, INFINITY};

static void gauss(Rows& rows, bool down) {
  const std::string name = down ? "qoriPyrDown" : "qoriPyrUp";
  rows.push_back(Row(name + "GetBufSize_Gauss5x5")
                     .with("roiWidth", goodWidth)
                     .with("dataType", qor8u)
                     .with("channels", 1)
                     .null()
                     .bad("roiWidth", {0, -1, INT32_MIN}, qorStatusBadSize)
                     .bad("channels", {0, 2, 4, -1}, qorStatusBadChannels)
                     .bad("dataType", {0, 2, 4, qor16u, 7, 12, 14, -1}, qorStatusBadDataType)
                     .accepts("dataType", {qor8s, qor32f})
                     .accepts("channels", {3}));
  for (const std::string form : {"8u_C1R", "8u_C3R", "8s_C1R", "8s_C3R", "32f_C1R", "32f_C3R"})
    rows.push_back(Row(name + "_Gauss5x5_" + form)
                       .region("dst", down ? goodWidth / 2 : 2 * goodWidth, down ? goodHeight / 2 : 2 * goodHeight)
                       .null()
                       .size()
                       .step()
                       .align());
}

static const int16_t taps16s[3] = {1, 2, 1}, crooked16s[3] = {1, 2, 3};
static const float taps32f[3] = {1, 2, 1}, crooked32f[3] = {1, 2, 3};

static void layer(Rows& rows, bool down, const std::string& form) {
  const std::string name = down ? "qoriPyramidLayerDown" : "qoriPyramidLayerUp";
  const bool floats = form[0] == '3';
  const Value taps = floats ? Value(taps32f) : Value(taps16s), crooked = floats ? Value(crooked32f) : Value(crooked16s);
  rows.push_back(
      Row(name + "InitAlloc_" + form)
          .with("kernel", taps)
          .with("kernelSize", 3)
          .with("mode", 2)
          .with("rate", 2.f)
          .frees(name + "Free_" + form)
          .null()
          .size()
          .bad("mode", {0, 1, 3, -1}, qorStatusBadArg)
          .bad("rate", badRates, qorStatusBadArg)
          .bad("kernelSize", {0, 1, 2, 4, -3, INT32_MIN}, qorStatusBadArg)
          .accepts("rate", {10.f, 1.5f, std::nextafter(1.f, 2.f)})
          .warns("a crooked kernel", qorStatusKernelNotSymmetric, [=](Call& c) { c.at("kernel") = crooked; }));
  const auto make = [=](Call& c) {
    call(name + "InitAlloc_" + form, {c.bytes("state"), sizeOf(goodWidth, goodHeight), taps, 3, 2, 2.f});
    c.at("state") = outOf(c, "state");
  };
  rows.push_back(Row(name + "Free_" + form).setup(make).null());

  Row row(name + "_" + form);
  row.with("srcRoiSize", sizeOf(goodWidth, goodHeight))
      .with("dstRoiSize", down ? sizeOf(goodWidth / 2, goodHeight / 2) : sizeOf(2 * goodWidth, 2 * goodHeight))
      .setup(make)
      .teardown([=](Call& c) { call(name + "Free_" + form, {c.at("state")}); })
      .null()
      .size("srcRoiSize")
      .step()
      .align();
  if (down) {
    row.bad("dstRoiSize", {sizeOf(9, 6), sizeOf(8, 7), sizeOf(8, 5), sizeOf(8, 0), sizeOf(8, -1)}, qorStatusBadArg);
    row.bad("dstRoiSize", {sizeOf(7, 6), sizeOf(0, 6)}, qorStatusBadArg).narrows();
  } else {
    row.bad("dstRoiSize", {sizeOf(33, 24), sizeOf(32, 25), sizeOf(32, 22), sizeOf(32, 0)}, qorStatusBadArg);
    row.bad("dstRoiSize", {sizeOf(30, 24), sizeOf(0, 24)}, qorStatusBadArg).narrows();
    row.accepts("dstRoiSize", {sizeOf(31, 23)});
  }
  for (const QoriSize larger : {sizeOf(goodWidth + 1, goodHeight), sizeOf(goodWidth, goodHeight + 1)})
    row.fault(
        "srcRoiSize", qorStatusBadArg,
        [=](Call& c) {
          const bool wide = larger.width > goodWidth;
          c.at("srcRoiSize") = larger;
          c.at("srcStep") = c.at("dstStep") = 4096;
          c.at("dstRoiSize") = down ? sizeOf(wide ? 9 : 8, wide ? 6 : 7) : sizeOf(2 * larger.width, 2 * larger.height);
        },
        "beyond the state");
  rows.push_back(row);
}

Rows pyramidRows() {
  Rows rows;
  for (const bool down : {true, false}) {
    gauss(rows, down);
    for (const std::string form : {"8u_C1R", "8u_C3R", "16u_C1R", "16u_C3R", "32f_C1R", "32f_C3R"})
      layer(rows, down, form);
    rows.push_back(Row(down ? "qoriGetPyramidDownROI" : "qoriGetPyramidUpROI")
                       .with("srcRoi", sizeOf(goodWidth, goodHeight))
                       .with("rate", 2.f)
                       .null()
                       .size("srcRoi")
                       .bad("rate", badRates, qorStatusBadArg)
                       .accepts("rate", {10.f}));
  }
  rows.push_back(Row("qoriPyramidInitAlloc")
                     .with("level", 2)
                     .with("rate", 2.f)
                     .frees("qoriPyramidFree", "pyramid")
                     .null()
                     .size()
                     .bad("rate", badRates, qorStatusBadArg)
                     .bad("level", {0, -1, INT32_MIN}, qorStatusBadArg)
                     .accepts("level", {1, 100})
                     .accepts("rate", {10.f}));
  rows.push_back(Row("qoriPyramidFree")
                     .setup([](Call& c) {
                       call("qoriPyramidInitAlloc", {c.bytes("pyramid"), 2, sizeOf(goodWidth, goodHeight), 2.f});
                       c.at("pyramid") = outOf(c, "pyramid");
                     })
                     .null());
  return rows;
}

}  // namespace statuses
