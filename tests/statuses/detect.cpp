// Integral images, window deviation, stages of detectors.
#include <memory>

#include "statuses/table.h"

namespace statuses {

static void integrals(Rows& rows) {
  for (const bool tilted : {false, true}) {
    const int32_t more = tilted ? 2 : 1;
    const std::string plane = tilted ? "qoriTilted" : "qori";
    for (const std::string type : {"8u32s", "8u32f"})
      rows.push_back(Row(plane + "Integral_" + type + "_C1R")
                         .any("val", 1)
                         .region("dst", goodWidth + more, goodHeight + more)
                         .null()
                         .size()
                         .step()
                         .align());
    for (const std::string type : {"8u32s", "8u32s64f", "8u32f64f"})
      rows.push_back(Row(plane + "SqrIntegral_" + type + "_C1R")
                         .any("val valSqr", 1)
                         .region("dst sqr", goodWidth + more, goodHeight + more)
                         .null()
                         .size()
                         .step()
                         .align());
  }
}

// Rectangles stand behind the steps, whose least values depend on them: where a bad one makes the rows of the planes
// shorter, a step that was too short may fit.
static void deviations(Rows& rows) {
  for (const bool tilted : {false, true}) {
    for (const std::string type : {"32s_C1RSfs", "32s32f_C1R", "32f_C1R"}) {
      Row row((tilted ? "qoriTiltedRectStdDev_" : "qoriRectStdDev_") + type);
      row.with("rect", QoriRect{1, 1, 3, 2});
      if (type == "32s_C1RSfs") row.any("scaleFactor", 1);
      row.region("src sqr", goodWidth + (tilted ? 3 + 1 + 1 + 2 - 1 : 1 + 3), goodHeight + 8);
      row.null().size().step("src sqr dst").align();
      row.bad("rect", {QoriRect{-1, 1, 3, 2}, QoriRect{1, 1, 0, 2}, QoriRect{1, 1, -3, 2}}, qorStatusBadSize).narrows();
      row.bad("rect", {QoriRect{1, -1, 3, 2}, QoriRect{1, 1, 3, 0}, QoriRect{1, 1, 3, -2}}, qorStatusBadSize);
      if (tilted) row.narrows();
      rows.push_back(row);
    }
  }
}

static const QoriRect features[3] = {{2, 1, 3, 3}, {3, 0, 2, 2}, {1, 1, 2, 2}};
static const int32_t counts[2] = {1, 2};
static const int32_t wholes[3] = {3, -2, 5};
static const float floats[3] = {1, -1, 0.5f};

static void build(const std::string& name, void* state) {
  const Value numbers = name.find("_32f") != std::string::npos ? Value(floats) : Value(wholes);
  call(name, {state, features, numbers, numbers, numbers, numbers, counts, 2});
}

static void stages(Rows& rows) {
  for (const std::string type : {"32f", "32s"}) {
    const std::string release = "qoriHaarClassifierFree_" + type, plain = "qoriHaarClassifierInitAlloc_" + type,
                      turned = "qoriTiltedHaarClassifierInitAlloc_" + type;
    for (const std::string& name : {plain, turned}) {
      static const int32_t badCounts[3][2] = {{0, 2}, {1, 0}, {-1, 2}};
      static const QoriRect badFeatures[7][3] = {
          {{-1, 1, 3, 3}, features[1], features[2]}, {features[0], {3, -1, 2, 2}, features[2]},
          {features[0], features[1], {1, 1, 0, 2}},  {features[0], features[1], {1, 1, 2, 0}},
          {{2, 1, -3, 3}, features[1], features[2]}, {{2, 1, 3, -3}, features[1], features[2]},
          {features[0], features[1], {1, 1, 2, 3}}};
      std::vector<Value> wrong;
      for (int i = 0; i < (name == turned ? 7 : 6); ++i) wrong.push_back(badFeatures[i]);
      const Value numbers = type == "32f" ? Value(floats) : Value(wholes);
      Row row(name);
      row.with("feature", features).with("weight threshold val1 val2", numbers).with("num", counts).with("length", 2);
      row.frees(release).null().bad("length", {-1, INT32_MIN}, qorStatusBadSize);
      row.bad("num", {badCounts[0], badCounts[1], badCounts[2]}, qorStatusBadSize);
      row.bad("feature", wrong, qorStatusBadArg);
      // All but one find the bad rectangle after they have allocated, and leave a null pointer.
      if (name != "qoriHaarClassifierInitAlloc_32f") row.writes("state");
      rows.push_back(row.accepts("length", {0, 1}));
    }
    const auto make = [=](Call& c) {
      build(plain, c.bytes("state"));
      c.at("state") = outOf(c, "state");
    };
    const auto free = [=](Call& c) { call(release, {c.at("state")}); };
    rows.push_back(Row(release).setup(make).null());
    rows.push_back(Row("qoriGetHaarClassifierSize_" + type).setup(make).teardown(free).null());
    const auto other = std::make_shared<void*>();
    rows.push_back(
        Row("qoriTiltHaarFeatures_" + type)
            .any("anchorAtTop", 0)
            .bytes("tiltMask", std::vector<unsigned char>(64))  // no classifier: the stage may be tilted again
            .setup(make)
            .setup([=](Call&) { build(turned, other.get()); })
            .teardown(free)
            .teardown([=](Call&) { call(release, {*other}); })
            .null()
            .fault(
                "state", qorStatusBadArg, [=](Call& c) { c.at("state") = *other; }, "made tilted"));
    for (const std::string form : {"32f_C1R", "32s32f_C1R", "32s_C1RSfs"}) {
      if ((form == "32s_C1RSfs") != (type == "32s")) continue;
      for (const bool mixed : {false, true}) {
        Row row((mixed ? "qoriApplyMixedHaarClassifier_" : "qoriApplyHaarClassifier_") + form);
        // Windows reach beyond the region of their origins.
        row.any("threshold", 0).room(mixed ? "src tilt" : "src", 20 * 76).setup(make).teardown(free);
        row.null().size().step().align(mixed ? "src tilt norm" : "src norm");
        if (mixed && type == "32s")
          row.with("scaleFactor", -1)
              .bad("scaleFactor", {1, 31, INT32_MAX}, qorStatusBadArg)
              .accepts("scaleFactor", {0});
        rows.push_back(row);
      }
    }
  }
}

Rows detectRows() {
  Rows rows;
  integrals(rows);
  deviations(rows);
  stages(rows);
  return rows;
}

}  // namespace statuses
