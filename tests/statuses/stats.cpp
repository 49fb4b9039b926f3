// Means, extrema and norms.
#include "statuses/table.h"

namespace statuses {

static const std::string types[] = {"8u", "8s", "16u", "32f"};
static const std::vector<Value> badCoi = {0, 4, -1, INT32_MIN, INT32_MAX};

static void addCoi(Row& row, const std::string& form) {
  if (form.find("C3C") == std::string::npos) return;
  row.with("coi", 2).accepts("coi", {1, 3}).bad("coi", badCoi, qorStatusBadCoi);
}

Rows statsRows() {
  Rows rows;
  for (const std::string& type : types) {
    const bool aligned = type == "16u" || type == "32f";
    for (const std::string operation : {"Mean", "Mean_StdDev"}) {
      for (const std::string form : {"C1R", "C3CR", "C1MR", "C3CMR"}) {
        const bool masked = form.find('M') != std::string::npos;
        if (operation == "Mean" && !masked) continue;
        Row row("qori" + operation + "_" + type + "_" + form);
        row.null(operation == "Mean" ? "src mask mean" : masked ? "src mask" : "src").size().step("src");
        if (operation != "Mean") row.optional("mean stdDev");
        if (type == "16u") row.align("src");
        if (masked) row.step("mask");
        if (type == "32f") row.align("src");
        addCoi(row, form);
        rows.push_back(row);
      }
    }
    for (const std::string form : {"C1R", "C3CR", "C1MR", "C3CMR"}) {
      const bool masked = form.find('M') != std::string::npos;
      Row row("qoriMinMaxIndx_" + type + "_" + form);
      row.optional("minVal maxVal minIndex maxIndex").null(masked ? "src mask" : "src").size().step();
      if (aligned) row.align("src");
      addCoi(row, form);
      rows.push_back(row);
    }
    for (const std::string norm : {"Inf", "L1", "L2"}) {
      for (const std::string form : {"C1MR", "C3CMR"}) {
        Row plain("qoriNorm_" + norm + "_" + type + "_" + form);
        plain.null().size().step("src");
        if (aligned) plain.align("src");
        plain.step("mask");
        addCoi(plain, form);
        rows.push_back(plain);
        for (const std::string operation : {"NormDiff", "NormRel"}) {
          Row row("qori" + operation + "_" + norm + "_" + type + "_" + form);
          row.null().size().step("src1 src2 mask");
          if (aligned) row.align("src1 src2");
          addCoi(row, form);
          if (operation == "NormRel")
            row.warns("nothing selected", qorStatusZeroDenominator,
                      [](Call& c) { __builtin_memset(c.bytes("mask"), 0, 12 * 19); });
          rows.push_back(row);
        }
      }
    }
  }
  return rows;
}

}  // namespace statuses
