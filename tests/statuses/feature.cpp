// Edges, corners, lines, small measures.
#include <cmath>

#include "statuses/table.h"

namespace statuses {

static const std::vector<Value> none = {0, -1, INT32_MIN};

static void canny(Rows& rows) {
  rows.push_back(Row("qoriCannyGetSize").null().size());
  for (const std::string type : {"16s8u", "32f8u"})
    rows.push_back(Row("qoriCanny_" + type + "_C1R")
                       .with("lowThresh", 1.f)
                       .with("highThresh", 3.f)
                       .null()
                       .size()
                       .step()
                       .align("srcDx srcDy")
                       .bad("lowThresh", {-1.f, -1e-30f, 3.5f, INFINITY}, qorStatusBadArg)
                       .bad("highThresh", {0.5f, -1.f}, qorStatusBadArg)
                       .accepts("lowThresh", {0.f, -0.f, 3.f, NAN})
                       .accepts("highThresh", {NAN, INFINITY}));
}

static void corners(Rows& rows) {
  for (const std::string measure : {"EigenValsVecs", "MinEigenVal"}) {
    for (const std::string type : {"32f", "8u32f"}) {
      const bool six = measure == "EigenValsVecs";
      Row row("qori" + measure + "_" + type + "_C1R");
      row.with("kernelType", 0).with("apertureSize avgWindow", 3).room("buffer", 32768);
      // A float image's six floats a pixel are asked for one at a time.
      if (six) row.channels("dst", 6).rowBytes("dst", type == "32f" ? 4 : 24);
      row.null().size().step().align();
      row.bad("kernelType", {-1, 2}, qorStatusBadArg);
      row.bad("apertureSize", {0, 1, 2, 4, 7, -3}, qorStatusBadSize);
      row.fault(
          "apertureSize", qorStatusBadSize,
          [](Call& c) {
            if (c.at("kernelType").number == 0) c.at("kernelType") = 1;
            c.at("apertureSize") = 5;
          },
          "5 for Scharr");
      row.bad("avgWindow", {0, 1, 2, 4, 7, -3}, qorStatusBadSize);
      row.accepts("kernelType", {1}).accepts("apertureSize avgWindow", {5});
      rows.push_back(row);
      rows.push_back(Row("qori" + measure + "GetBufferSize_" + type + "_C1R")
                         .with("apertureSize avgWindow", 3)
                         .null()
                         .size()
                         .bad("apertureSize avgWindow", {0, 1, 4, 7, -3}, qorStatusBadSize)
                         .accepts("apertureSize avgWindow", {5}));
    }
  }
}

static Value polar(float rho, float theta) { return QoriPointPolar{rho, theta}; }

static void lines(Rows& rows) {
  const std::vector<Value> badDelta = {polar(0, 0.5f), polar(-1, 0.5f), polar(NAN, 0.5f),
                                       polar(1, 0),    polar(1, -1),    polar(1, NAN)};
  rows.push_back(Row("qoriHoughLineGetSize_8u_C1R")
                     .with("delta", polar(1, 0.5f))
                     .with("maxLineCount", 4)
                     .null()
                     .size()
                     .bad("delta", badDelta, qorStatusBadArg)
                     .accepts("maxLineCount", {0, -1})
                     .warns("too large a size", qorStatusWarnSizeOverflow, [](Call& c) {
                       c.at("roiSize") = sizeOf(100000, 100000);
                       c.at("delta") = polar(1, 0.5f);
                       c.at("maxLineCount") = INT32_MAX;
                     }));
  std::vector<Value> badForSearch = badDelta;
  for (const Value& more : {polar(28.5f, 0.5f), polar(1, 3.15f), polar(INFINITY, 0.5f)}) badForSearch.push_back(more);
  for (const std::string name : {"qoriHoughLine_8u32f_C1R", "qoriHoughLine_Region_8u32f_C1R"}) {
    Row row(name);
    row.with("delta", polar(1, 0.5f)).with("threshold", 2).with("maxLineCount", 4).room("lines", 4 * 8);
    const bool region = name == "qoriHoughLine_Region_8u32f_C1R";
    if (region) row.data("region", {-5.f, 0.f, 20.f, 3.f});
    row.null().bad("srcStep", none, qorStatusBadStep).size().bad("maxLineCount", none, qorStatusBadSize);
    row.bad("delta", badForSearch, qorStatusBadArg).bad("threshold", none, qorStatusBadArg);
    if (region) {
      static float inverted[4][4] = {{-5, 2, 20, 1}, {20, 0, -5, 3}, {-5, NAN, 20, 3}, {-5, 0, NAN, 3}};
      row.bad("region", {inverted[0], inverted[1], inverted[2], inverted[3]}, qorStatusBadRange).writes("lineCount");
    }
    row.accepts("srcStep", {1, 15}).accepts("delta", {polar(28, 0.5f), polar(1, 3.14f)}).accepts("threshold", {1000});
    rows.push_back(row);
  }
}

static void smallMeasures(Rows& rows) {
  for (const std::string type : {"8u", "16u", "32f"}) {
    rows.push_back(Row("qoriGradientColorToGray_" + type + "_C3C1R")
                       .with("normType", 0)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("normType", {-1, 3}, qorStatusBadArg)
                       .accepts("normType", {1, 2}));
    const std::vector<Value> outside = {point(-1, 5), point(16, 5), point(5, -1), point(5, 12), point(0, INT32_MIN)};
    for (const std::string form : {"C1R", "C3R"})
      rows.push_back(Row("qoriSampleLine_" + type + "_" + form)
                         .with("pt1", point(1, 2))
                         .with("pt2", point(12, 9))
                         .room("dst", 16 * 12)
                         .null()
                         .size()
                         .step()
                         .align()
                         .bad("pt1 pt2", outside, qorStatusOutOfRange)
                         .accepts("pt1 pt2", {point(0, 0), point(15, 11)}));
  }
  rows.push_back(Row("qoribFastArctan_32f").with("length", 5).null().bad("length", none, qorStatusBadSize));
  for (const std::string type : {"32f", "32s"}) {
    rows.push_back(Row("qoriFindPeaks3x3_" + type + "_C1R")
                       .any("threshold", 1)
                       .with("maxPeakCount", 8)
                       .with("normType", 0)
                       .with("border", 1)
                       .null()
                       .size()
                       .bad("maxPeakCount", none, qorStatusBadSize)
                       .bad("border", {0, -1, 7, 9, INT32_MAX}, qorStatusBadSize)
                       .step()
                       .align()
                       .bad("normType", {-1, 2}, qorStatusBadArg)
                       .accepts("normType", {1})
                       .accepts("border", {6}));
    rows.push_back(Row("qoriFindPeaks3x3GetBufferSize_" + type + "_C1R")
                       .with("width", goodWidth)
                       .null()
                       .bad("width", none, qorStatusBadSize));
  }
}

Rows featureRows() {
  Rows rows;
  canny(rows);
  corners(rows);
  lines(rows);
  smallMeasures(rows);
  return rows;
}

}  // namespace statuses
