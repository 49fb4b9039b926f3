// Pipelines, fixed kernels, Gauss, minimum and maximum.
#include "statuses/table.h"

namespace statuses {

static void rowStage(Rows& rows, const std::string& type, const std::string& form) {
  Row row("qoriFilterRowBorderPipeline_" + type + "_" + form);
  const bool three = form == "C3R";
  row.with("kernelSize", 3).with("xAnchor", 1).with("borderType", qorBorderReplicate).room("dstRows", 12 * 8);
  if (!three) row.any("borderValue", 1);
  if (type != "32f") row.with("divisor", 2).accepts("divisor", {-1, INT32_MIN});
  row.setup([=](Call& c) {
    for (int i = 0; i < goodHeight; ++i) {
      void* place = c.bytes("buffer") + 16384 - goodHeight * 256 + i * 256;  // rows at the end of the scratch's room
      __builtin_memcpy(c.bytes("dstRows") + 8 * i, &place, 8);
    }
  });
  row.null("src dstRows kernel buffer")
      .size()
      .bad("kernelSize", {0, -1, INT32_MIN}, qorStatusBadSize)
      .bad("xAnchor", {-1, 3, INT32_MIN, INT32_MAX}, qorStatusBadAnchor)
      .step("src");
  if (type != "8u16s") row.align("src");
  row.bad("borderType", {-1, 5, 16, 17, 33}, qorStatusBadArg);
  if (three) {
    row.fault(
        "borderValue", qorStatusNullPtr,
        [](Call& c) {
          c.at("borderValue") = static_cast<void*>(nullptr);
          if (const double mode = c.at("borderType").number; mode >= 0 && mode <= 4)
            c.at("borderType") = static_cast<int>(qorBorderConst);
        },
        "null in mode const");
    row.optional("borderValue");
  }
  if (type != "32f") row.bad("divisor", {0}, qorStatusBadArg);
  // The first row that is null ends the call; here it is the first of all, so nothing has been written.
  row.fault(
      "dstRows", qorStatusNullPtr,
      [](Call& c) {
        if (c.bytes("dstRows")) c.at("dstRows") = static_cast<void*>(c.bytes("dstRows") + 8 * goodHeight);
      },
      "of null rows");
  row.room("dstRows", 2 * goodHeight * 8).bytes("dstRows", std::vector<unsigned char>(2 * goodHeight * 8));
  row.writes("buffer");
  row.accepts("borderType", {0, 2, 3, 4}).accepts("xAnchor", {0, 2});
  rows.push_back(row);

  rows.push_back(Row("qoriFilterRowBorderPipelineGetBufferSize_" + type + "_" + form)
                     .with("kernelSize", 3)
                     .null()
                     .size()
                     .bad("kernelSize", {0, -1, INT32_MIN}, qorStatusBadSize));
}

static void columnStage(Rows& rows, const std::string& type, const std::string& form) {
  Row row("qoriFilterColumnPipeline_" + type + "_" + form);
  row.with("kernelSize", 3).bytes("srcRows", std::vector<unsigned char>(2 * (goodHeight + 2) * 8));
  if (type != "32f") row.with("divisor", 2).accepts("divisor", {-1, INT32_MIN});
  // Every row is the buffer's end.
  row.setup([](Call& c) {
    for (int i = 0; i < goodHeight + 2; ++i) {
      void* place = c.bytes("buffer") + 15000;
      __builtin_memcpy(c.bytes("srcRows") + 8 * i, &place, 8);
    }
  });
  row.null("srcRows dst kernel").size().bad("kernelSize", {0, -1, INT32_MIN}, qorStatusBadSize).step("dst");
  row.align();
  row.null("buffer");
  if (type != "32f") row.bad("divisor", {0}, qorStatusBadArg);
  for (const int missing : {0, goodHeight + 1})
    row.fault(
        "srcRows", qorStatusNullPtr,
        [=](Call& c) {
          if (!c.bytes("srcRows")) return;
          // Moved by one row: the last pointer is null. Moved by all: the first one is.
          c.at("srcRows") = static_cast<void*>(c.bytes("srcRows") + 8 * (missing ? 1 : goodHeight + 2));
        },
        "of null row");
  rows.push_back(row);

  rows.push_back(Row("qoriFilterColumnPipelineGetBufferSize_" + type + "_" + form)
                     .with("kernelSize", 3)
                     .null()
                     .size()
                     .bad("kernelSize", {0, -1, INT32_MIN}, qorStatusBadSize));
}

static void fixedKernel(Rows& rows, const std::string& filter, const std::string& type) {
  const bool scharr = filter.find("Scharr") == 0;
  Row row("qoriFilter" + filter + "Border_" + type + "_C1R");
  row.with("borderType", qorBorderReplicate).any("borderValue", 1);
  if (!scharr) row.with("maskSize", qorMaskSize3x3).accepts("maskSize", {55});
  if (type == "8u8s") row.with("divisor", 2).accepts("divisor", {-1});
  row.null("src dst buffer").size().step();
  if (type == "32f") row.align("src dst");
  if (type == "8u16s") row.align("dst");
  row.bad("borderType", {-1, 5, 15, 5 + 16, 15 + 32, 1 + 64, 128, 0x8000}, qorStatusBadArg);
  if (type == "8u8s") row.bad("divisor", {0}, qorStatusBadArg);
  if (!scharr) row.bad("maskSize", {0, 3, 5, 34, 53, -33, 77}, qorStatusBadMask);
  row.accepts("borderType", {0, 2, 3, 4, 1 + 16, 3 + 32, 4 + 48, 1 + 0x10000});
  rows.push_back(row);

  Row query("qoriFilter" + filter + "GetBufferSize_" + type + "_C1R");
  query.null().size();
  if (!scharr)
    query.with("maskSize", qorMaskSize3x3).accepts("maskSize", {55}).bad("maskSize", {0, 3, 34, -33}, qorStatusBadMask);
  rows.push_back(query);
}

Rows filterRows() {
  Rows rows;
  for (const std::string form : {"C1R", "C3R"}) {
    for (const std::string type : {"32f", "16s", "8u16s", "Low_16s"}) rowStage(rows, type, form);
    for (const std::string type : {"32f", "16s", "16s8s", "16s8u", "Low_16s"}) columnStage(rows, type, form);
  }
  for (const std::string filter : {"SobelHoriz", "SobelVert", "SobelNegVert", "SobelHorizSecond", "SobelVertSecond",
                                   "SobelCross", "ScharrHoriz", "ScharrVert", "Laplacian"})
    for (const std::string type : {"32f", "8u16s", "8u8s"}) fixedKernel(rows, filter, type);
  for (const std::string type : {"32f", "8u"}) fixedKernel(rows, "Lowpass", type);

  for (const std::string type : {"16s", "32f"})
    rows.push_back(Row("qoriGenSobelKernel_" + type)
                       .with("kernelSize", 5)
                       .with("order", 1)
                       .with("sign", 1)
                       .null()
                       .bad("kernelSize", {0, -1, 2, 4, INT32_MIN}, qorStatusBadSize)
                       .bad("order", {-1, 5, 6, INT32_MIN, INT32_MAX}, qorStatusBadSize)
                       .accepts("order", {0, 4})
                       .accepts("sign", {0, -1}));

  // Steps are compared with the width in pixels; one that is too short in bytes passes and nothing is written.
  rows.push_back(Row("qoriFilterGaussBorder_32f_C1R")
                     .with("kernelSize", 5)
                     .with("sigma", 1.f)
                     .with("borderType", qorBorderReplicate)
                     .any("borderValue", 1)
                     .rowBytes("src dst", 1)
                     .null("src dst buffer")
                     .size()
                     .step()
                     .bad("kernelSize", {0, 1, 2, 4, -3, INT32_MIN}, qorStatusBadArg)
                     .bad("borderType", {-1, 5, 5 + 16}, qorStatusBadArg)
                     .accepts("borderType", {0, 2, 3, 4, 1 + 16, 1 + 32})
                     .accepts("sigma", {0.f, -1.f}));
  rows.push_back(Row("qoriFilterGaussGetBufferSize_32f_C1R")
                     .with("kernelSize", 5)
                     .null()
                     .size()
                     .bad("kernelSize", {0, 1, 2, 4, -3, INT32_MIN}, qorStatusBadArg));

  for (const std::string extreme : {"Max", "Min"}) {
    for (const std::string form : {"8u_C1R", "8u_C3R", "8u_C4R", "32f_C1R", "32f_C3R", "32f_C4R"}) {
      Row row("qoriFilter" + extreme + "BorderReplicate_" + form);
      row.with("maskSize", sizeOf(3, 3)).with("anchor", point(1, 1));
      row.null().size().size("maskSize", qorStatusBadMask);
      row.bad("anchor", {point(-1, 1), point(3, 1), point(1, -1), point(1, 3)}, qorStatusBadAnchor);
      if (form[0] == '8') {
        row.step("src dst");
      } else {
        row.stepsAndAlign("src dst");
      }
      row.accepts("anchor", {point(0, 0), point(2, 2)});
      rows.push_back(row);
      rows.push_back(Row("qoriFilter" + extreme + "GetBufferSize_" + form)
                         .with("width", 16)
                         .with("maskSize", sizeOf(3, 3))
                         .null()
                         .bad("width", {0, -1, INT32_MIN}, qorStatusBadSize)
                         .size("maskSize", qorStatusBadMask));
    }
  }
  return rows;
}

}  // namespace statuses
