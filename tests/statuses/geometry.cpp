// Sub-pixel copies, undistortion, super-resolution residuals.
#include <cmath>

#include "statuses/table.h"

namespace statuses {

static void copies(Rows& rows) {
  for (const std::string form : {"8u_C1R", "8u16u_C1R_Sfs", "8u32f_C1R", "16u_C1R", "16u32f_C1R", "32f_C1R"}) {
    Row row("qoriCopySubpix_" + form);
    row.with("dx dy", 0.25f);
    if (form == "8u16u_C1R_Sfs") row.any("scaleFactor", 1);
    row.null().size().step().align().accepts("dx dy", {0.f, -0.25f});
    rows.push_back(row);
    Row window("qoriCopySubpixIntersect_" + form);
    window.with("srcRoiSize", sizeOf(goodWidth, goodHeight)).with("dstRoiSize", sizeOf(5, 4));
    window.with("point", QoriPoint_32f{7.25f, 5.5f});
    if (form == "8u16u_C1R_Sfs") window.any("scaleFactor", 1);
    window.null().size("srcRoiSize dstRoiSize").step().align();
    window.accepts("point", {QoriPoint_32f{-50, 3}, QoriPoint_32f{NAN, 3}, QoriPoint_32f{3, 100}});
    rows.push_back(window);
  }
}

static Row& camera(Row& row) {
  return row.with("fx fy", 20.f).any("cx", 8.f).any("cy", 6.f).any("k1", 0.01f).any("k2", 0.001f).optional("buffer");
}

static void undistortion(Rows& rows) {
  rows.push_back(Row("qoriUndistortGetSize").null().size());
  for (const std::string form : {"8u_C1R", "8u_C3R", "16u_C1R", "16u_C3R", "32f_C1R", "32f_C3R"}) {
    Row row("qoriUndistortRadial_" + form);
    camera(row).null("src dst").size().step().align().bad("fx fy", {0.f, -0.f}, qorStatusBadArg).accepts("fx", {NAN});
    rows.push_back(row);
  }
  Row row("qoriCreateMapCameraUndistort_32f_C1R");
  camera(row).any("p1 p2", 0.001f).null("xMap yMap").size().step().align().bad("fx fy", {0.f, -0.f}, qorStatusBadArg);
  rows.push_back(row.accepts("fx", {NAN}).accepts("p1", {0.f}));
}

static void superResolution(Rows& rows) {
  const std::vector<Value> none = {0, -1, INT32_MIN};
  for (const std::string kernel : {"PSF2x2", "PSF3x3"}) {
    rows.push_back(Row("qoriSRHNInitAlloc_" + kernel)
                       .with("phaseCount", 1)
                       .frees("qoriSRHNFree_" + kernel)
                       .null()
                       .bad("phaseCount", none, qorStatusBadSize));
    const auto make = [=](Call& c) {
      static const float psf[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
      call("qoriSRHNInitAlloc_" + kernel, {c.bytes("state"), psf, 1});
      c.at("state") = outOf(c, "state");
    };
    const auto release = [=](Call& c) { call("qoriSRHNFree_" + kernel, {c.at("state")}); };
    rows.push_back(Row("qoriSRHNFree_" + kernel).setup(make).null());

    // Four samples of phase 0. Steps may be negative, down to a patch that ends above the image.
    const bool three = kernel == "PSF3x3";
    const std::vector<unsigned char> zeros(64);
    const std::vector<Value> badSteps = {0, 4, three ? 8 : 7, 1, 2, 3, 13, 77, -1, -2, -77};
    for (const std::string type : {"8u32f", "16u32f"})
      rows.push_back(Row("qoriSRHNCalcResidual_" + kernel + "_" + type + "_C1R")
                         .with("length", 4)
                         .bytes("phase", zeros)
                         .setup(make)
                         .teardown(release)
                         .null()
                         .bad("length", none, qorStatusBadSize)
                         .bad("hiResStep", badSteps, qorStatusBadStep)
                         .accepts("hiResStep", {three ? 12 : 8, -76, -4}));
    rows.push_back(Row("qoriSRHNUpdateGradient_" + kernel + "_32f_C1R")
                       .with("length", 4)
                       .bytes("phase", zeros)
                       .bytes("weightIndex", zeros)
                       .setup(make)
                       .teardown(release)
                       .null()
                       .bad("length", none, qorStatusBadSize)
                       .bad("gradientStep", badSteps, qorStatusBadStep)
                       .accepts("gradientStep", {three ? 12 : 8, -76, -4}));
  }
}

Rows geometryRows() {
  Rows rows;
  copies(rows);
  undistortion(rows);
  superResolution(rows);
  return rows;
}

}  // namespace statuses
