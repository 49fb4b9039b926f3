// Differences and accumulators.
#include "statuses/table.h"

namespace statuses {

Rows arithRows() {
  Rows rows;
  for (const std::string type : {"8u_C1R", "8u_C3R", "16u_C1R", "32f_C1R"})
    rows.push_back(Row("qoriAbsDiff_" + type).null().size().step().align());
  for (const std::string type : {"8u_C1R", "16u_C1R", "32f_C1R"})
    rows.push_back(Row("qoriAbsDiffC_" + type).any("value", 3).null().size().step().align());

  for (const std::string operation : {"Add", "AddSquare", "AddProduct", "AddWeighted"}) {
    for (const std::string form : {"C1IR", "C1IMR"}) {
      for (const std::string type : {"8u32f", "8s32f", "16u32f", "32f"}) {
        if (operation == "Add" && type == "32f" && form == "C1IR") continue;
        Row row("qori" + operation + "_" + type + "_" + form);
        if (operation == "AddWeighted") row.any("alpha", 0.25f);
        row.null().size();
        const std::string sources = operation == "AddProduct" ? "src1 src2" : "src";
        row.step(sources);
        if (type == "16u32f") row.align(sources);
        if (form == "C1IMR") row.step("mask");
        row.step("srcDst");
        row.align(type == "32f" ? sources + " srcDst" : "srcDst");
        rows.push_back(row);
      }
    }
  }
  rows.push_back(Row("qoriAddWeighted_32f_C1R").any("alpha", 0.25f).null().size().step().align());
  return rows;
}

}  // namespace statuses
