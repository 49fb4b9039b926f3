// Labels, bounds, watershed, gradient segmentation.
#include "qorcvmx.h"
#include "statuses/table.h"

namespace statuses {

Rows segmentRows() {
  Rows rows;
  for (const std::string type : {"8u", "16u"}) {
    const int limit = type == "8u" ? 255 : 65535;
    rows.push_back(Row("qoriLabelMarkersGetBufferSize_" + type + "_C1R").null().size());
    rows.push_back(Row("qoriLabelMarkers_" + type + "_C1IR")
                       .with("minLabel", 10)
                       .with("maxLabel", 100)
                       .with("norm", qorNormL1)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("minLabel", {0, -1, 101, INT32_MIN}, qorStatusBadArg)
                       .bad("maxLabel", {limit, limit + 1, 9, -1, INT32_MAX}, qorStatusBadArg)
                       .bad("norm", {-1, 2, 3}, qorStatusBadArg)
                       .accepts("norm", {qorNormInf})
                       .accepts("minLabel", {1, 100})
                       .accepts("maxLabel", {10, limit - 1}));
    rows.push_back(Row("qoriBoundSegments_" + type + "_C1IR")
                       .any("borderValue", 255)
                       .with("norm", qorNormL1)
                       .null()
                       .size()
                       .step()
                       .align()
                       .bad("norm", {-1, 2, 3}, qorStatusBadArg)
                       .accepts("norm", {qorNormInf}));
  }
  for (const std::string type : {"8u", "8u16u"}) {
    rows.push_back(Row("qoriSegmentWatershedGetBufferSize_" + type + "_C1R").null().size());
    Row row("qoriSegmentWatershed_" + type + "_C1IR");
    const auto set = [](int32_t flag, int32_t norm) {
      return [=](Call& c) { c.at("flag") = flag, c.at("watershedNorm") = norm; };
    };
    row.with("flag", qorSegmentQueue).with("watershedNorm", qorNormL1).null().size().step().align();
    row.bad("flag", {0, 4, 64, 128, 192}, qorStatusBadArg);
    row.bad("watershedNorm", {-1, 2, 3, 4}, qorStatusBadArg);
    row.fault("watershedNorm", qorStatusBadArg, set(qorSegmentDistance, 4), "of the sweeps");
    row.fault("watershedNorm", qorStatusBadArg, set(qorSegmentDistance, -1), "of the sweeps");
    row.fault("watershedNorm", qorStatusBadArg, set(qorSegmentQueue + qorSegmentDistance, 2), "of both");
    for (const int32_t norm : {qorNormInf, qorNormL1, qorNormL2, qorNormFM})
      row.acceptsCase("sweeps", set(qorSegmentDistance + qorSegmentBorder8, norm));
    rows.push_back(row.acceptsCase("queue", set(qorSegmentQueue + qorSegmentDistance, qorNormInf)));
  }
  for (const std::string form : {"C1", "C3"}) {
    rows.push_back(Row("qoriSegmentGradientGetBufferSize_8u_" + form + "R").null().size());
    rows.push_back(Row("qoriSegmentGradient_8u_" + form + "IR")
                       .with("flag", 0)
                       .with("watershedNorm", qorNormL1)
                       .null()
                       .size()
                       .step()
                       .bad("watershedNorm", {-1, 2, 3}, qorStatusBadArg)
                       .accepts("watershedNorm", {qorNormInf})
                       .accepts("flag", {64, 128, -1}));
  }
  return rows;
}

}  // namespace statuses
