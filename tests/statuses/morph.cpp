// Structuring elements, compound operations, grayscale elements, reconstruction.
#include "qorcvmx.h"
#include "statuses/table.h"

namespace statuses {

static const std::string forms[] = {"8u_C1R", "8u_C3R", "8u_C4R", "32f_C1R", "32f_C3R", "32f_C4R"};
static const std::vector<Value> badBorder = {0, 2, 3, 4, 5, -1, 17};
static const uint8_t cross[9] = {0, 1, 0, 1, 1, 1, 0, 1, 0};
static const std::vector<unsigned char> crossBytes(cross, cross + 9);
static const uint8_t full[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1}, empty[9] = {}, corner[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
static const std::vector<Value> outside3x3 = {point(-1, 1), point(3, 1), point(1, -1), point(1, 3)};

static Row& element(Row& row) {
  return row.with("maskSize", sizeOf(3, 3)).bytes("mask", crossBytes).accepts("mask", {full, empty, corner});
}

// Steps that reach for the wider region; all comes out as a failure.
static void tooWide(Call& c) {
  c.at("roiSize") = sizeOf(goodWidth + 1, goodHeight);
  c.at("srcStep") = c.at("dstStep") = 4096;
}

static void morphology(Rows& rows, const std::string& form) {
  const std::vector<Value> badWidth = {0, -1, INT32_MIN};
  Row getSize("qoriMorphologyGetSize_" + form);
  getSize.with("roiWidth", goodWidth);
  rows.push_back(
      element(getSize).null("mask").bad("roiWidth", badWidth, qorStatusBadSize).size("maskSize").null("size"));
  for (const std::string how : {"Init", "InitAlloc"}) {
    Row row("qoriMorphology" + how + "_" + form);
    row.room("state", 8192);
    row.with("roiWidth", goodWidth).with("anchor", point(1, 1));
    element(row)
        .null("mask")
        .bad("roiWidth", badWidth, qorStatusBadSize)
        .size("maskSize")
        .bad("anchor", outside3x3, qorStatusBadAnchor)
        .null("state")
        .accepts("anchor", {point(0, 0), point(2, 2)});
    if (how == "InitAlloc") row.frees("qoriMorphologyFree");
    rows.push_back(row);
  }
  for (const std::string operation : {"Dilate", "Erode"})
    rows.push_back(
        Row("qori" + operation + "BorderReplicate_" + form)
            .with("borderType", qorBorderReplicate)
            .setup([=](Call& c) {
              call("qoriMorphologyInitAlloc_" + form, {goodWidth, cross, sizeOf(3, 3), point(1, 1), c.bytes("state")});
              c.at("state") = outOf(c, "state");
            })
            .teardown([](Call& c) { call("qoriMorphologyFree", {c.at("state")}); })
            .null()
            .size()
            .step()
            .align()
            .bad("borderType", badBorder, qorStatusBadArg)
            .fault("roiSize", qorStatusBadSize, tooWide, "wider than the state"));
}

static void compound(Rows& rows, const std::string& form) {
  const std::vector<Value> badHeight = {sizeOf(goodWidth, 0), sizeOf(goodWidth, -1), sizeOf(0, 0)};
  const std::vector<Value> badWidth = {sizeOf(0, goodHeight), sizeOf(-1, goodHeight)};
  Row getSize("qoriMorphAdvGetSize_" + form);
  rows.push_back(element(getSize)
                     .bad("roiSize", badHeight, qorStatusBadSize)
                     .null("size mask")
                     .bad("roiSize", badWidth, qorStatusBadSize)
                     .size("maskSize"));
  Row init("qoriMorphAdvInit_" + form);
  init.room("state", 16384).half("state", sizeof(QoriMorphAdvState));
  rows.push_back(element(init)
                     .with("anchor", point(1, 1))
                     .bad("roiSize", badHeight, qorStatusBadSize)
                     .null("state mask")
                     .bad("roiSize", badWidth, qorStatusBadSize)
                     .size("maskSize")
                     .bad("anchor", outside3x3, qorStatusBadAnchor));
  // The height is not tested before the temporary image is asked for.
  Row initAlloc("qoriMorphAdvInitAlloc_" + form);
  rows.push_back(element(initAlloc)
                     .with("anchor", point(1, 1))
                     .null("state mask")
                     .bad("roiSize", badWidth, qorStatusBadSize)
                     .size("maskSize")
                     .bad("anchor", outside3x3, qorStatusBadAnchor)
                     .bad("roiSize", {sizeOf(goodWidth, 0), sizeOf(goodWidth, -1)}, qorStatusNoMemory)
                     .frees("qoriMorphAdvFree"));
  for (const std::string operation : {"Open", "Close", "Gradient", "Tophat", "Blackhat"})
    rows.push_back(Row("qoriMorph" + operation + "Border_" + form)
                       .with("borderType", qorBorderReplicate)
                       .setup([=](Call& c) {
                         call("qoriMorphAdvInitAlloc_" + form,
                              {c.bytes("state"), sizeOf(goodWidth, goodHeight), cross, sizeOf(3, 3), point(1, 1)});
                         c.at("state") = outOf(c, "state");
                       })
                       .teardown([](Call& c) { call("qoriMorphAdvFree", {c.at("state")}); })
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("borderType", badBorder, qorStatusBadArg)
                       .fault("roiSize", qorStatusBadSize, tooWide, "wider than the state")
                       .bad("roiSize", {sizeOf(goodWidth, goodHeight - 1), sizeOf(goodWidth, 1)}, qorStatusBadSize));
}

static void gray(Rows& rows, const std::string& form) {
  const auto withKernel = [&](Row row) { return row.with("maskSize", sizeOf(3, 3)).room("kernel", 9 * 4); };
  rows.push_back(withKernel(Row("qoriMorphGrayGetSize_" + form)).null().size("roiSize maskSize"));
  for (const std::string how : {"Init", "InitAlloc"}) {
    Row row = withKernel(Row("qoriMorphGray" + how + "_" + form)).room("state", 512);
    row.with("anchor", point(1, 1)).null().size("roiSize maskSize").bad("anchor", outside3x3, qorStatusBadAnchor);
    row.accepts("anchor", {point(0, 0), point(2, 2)});
    if (how == "InitAlloc") row.frees("qoriMorphGrayFree_" + form);
    rows.push_back(row);
  }
  const auto make = [=](Call& c) {
    static const int32_t taps[9] = {};
    call("qoriMorphGrayInitAlloc_" + form,
         {c.bytes("state"), sizeOf(goodWidth, goodHeight), taps, sizeOf(3, 3), point(1, 1)});
    c.at("state") = outOf(c, "state");
  };
  rows.push_back(Row("qoriMorphGrayFree_" + form).setup(make).null());
  for (const std::string operation : {"Dilate", "Erode"})
    rows.push_back(Row("qoriGray" + operation + "Border_" + form)
                       .with("borderType", qorBorderReplicate)
                       .setup(make)
                       .teardown([=](Call& c) { call("qoriMorphGrayFree_" + form, {c.at("state")}); })
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("borderType", badBorder, qorStatusBadArg)
                       .fault("roiSize", qorStatusBadSize, tooWide, "wider than the state")
                       .bad("roiSize", {sizeOf(goodWidth, goodHeight + 1)}, qorStatusBadSize)
                       .accepts("roiSize", {sizeOf(1, 1)}));
}

static void reconstruction(Rows& rows, const std::string& type) {
  rows.push_back(Row("qoriMorphReconstructGetBufferSize_" + type + "_C1").null().size());
  for (const std::string operation : {"Dilate", "Erode"})
    rows.push_back(Row("qoriMorphReconstruct" + operation + "_" + type + "_C1IR")
                       .with("norm", qorNormInf)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("norm", {-1, 2, 3, INT32_MIN}, qorStatusBadArg)
                       .accepts("norm", {qorNormL1}));
}

Rows morphRows() {
  Rows rows;
  for (const std::string& form : forms) {
    morphology(rows, form);
    compound(rows, form);
  }
  rows.push_back(
      Row("qoriMorphologyFree")
          .setup([](Call& c) {
            call("qoriMorphologyInitAlloc_8u_C1R", {goodWidth, cross, sizeOf(3, 3), point(1, 1), c.bytes("state")});
            c.at("state") = outOf(c, "state");
          })
          .null());
  rows.push_back(Row("qoriMorphAdvFree")
                     .setup([](Call& c) {
                       call("qoriMorphAdvInitAlloc_8u_C1R",
                            {c.bytes("state"), sizeOf(goodWidth, goodHeight), cross, sizeOf(3, 3), point(1, 1)});
                       c.at("state") = outOf(c, "state");
                     })
                     .null());
  for (const std::string type : {"8u", "32f"}) {
    gray(rows, type + "_C1R");
    reconstruction(rows, type);
  }
  return rows;
}

}  // namespace statuses
