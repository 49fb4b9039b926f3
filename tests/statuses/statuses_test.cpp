// Every exported function, every wrong argument, every pair of them: the status, and nothing written.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "statuses/table.h"
#include "support/services.h"

using namespace statuses;

static const std::pair<const char*, Rows (*)()> tables[] = {
    {"version", versionRows}, {"arith", arithRows},     {"stats", statsRows},     {"filter", filterRows},
    {"morph", morphRows},     {"pyramid", pyramidRows}, {"feature", featureRows}, {"distance", distanceRows},
    {"segment", segmentRows}, {"detect", detectRows},   {"motion", motionRows},   {"geometry", geometryRows},
};

class Statuses : public ::testing::TestWithParam<std::pair<const char*, Rows (*)()>> {
 protected:
  void SetUp() override { services::reset(); }
};

TEST_P(Statuses, ofEveryFaultAndPairOfFaults) {
  for (const int32_t threads : {1, 3}) {
    for (const Row& row : GetParam().second()) {
      services::reset();
      services::threads(threads);
      const std::vector<std::string> wrong = row.run();
      const std::string where = row.name() + ", " + std::to_string(threads) + " threads: ";
      for (size_t i = 0; i < wrong.size() && i < 10; ++i) ADD_FAILURE() << where << wrong[i];
      if (wrong.size() > 10) ADD_FAILURE() << where << wrong.size() << " failures in all";
    }
  }
  services::reset();
}

INSTANTIATE_TEST_SUITE_P(Rooms, Statuses, ::testing::ValuesIn(tables),
                         [](const auto& table) { return std::string(table.param.first); });

static bool finds(const Row& row, const std::string& what) {
  for (const std::string& wrong : row.run())
    if (wrong.find(what) != std::string::npos) return true;
  return false;
}

TEST(StatusTable, isReadLiterally) {
  services::reset();
  const auto order = [](const char* function) { return Row(function); };
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").size().null().step(), "roiSize below 1 and src1 null: status -8"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_16u_C1R").null().size().align().step(), "misaligned by 1 and src1Step short"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null("src1 src2").size().step(), "nothing told of a wrong dst"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null().step(), "nothing told of a wrong roiSize"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null().size().step("src1 dst"), "nothing told of a wrong src2Step"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null().size().step().rowBytes("dst", 2).step("dst"), "status 0"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null().size().step().fault("dst", qorStatusOk, [](Call&) {}), "wrote"));
  EXPECT_TRUE(finds(order("qoriAbsDiff_8u_C1R").null().size().step().good(qorStatusZeroDenominator), "status 0"));
  EXPECT_TRUE(finds(order("qoriAbsDiffC_8u_C1R").null().size().step(), "no good value for value"));
  void* kept = nullptr;
  Row leaking = order("qoriPyramidInitAlloc").with("level", 1).with("rate", 2.f).null().size();
  leaking.bad("level rate", {0}, qorStatusBadArg).after([&](Call& c) { kept = pointerAt(c.bytes("pyramid")); });
  EXPECT_TRUE(finds(leaking, "memory left"));
  EXPECT_EQ(call("qoriPyramidFree", {kept}), qorStatusOk);
}

static std::multiset<std::string> rowNames() {
  std::multiset<std::string> names;
  for (const auto& table : tables)
    for (const Row& row : table.second()) names.insert(row.name());
  return names;
}

static std::string difference(const std::multiset<std::string>& a, const std::multiset<std::string>& b) {
  std::string names;
  for (const std::string& name : a)
    if (a.count(name) > b.count(name)) names += name + "\n";
  return names;
}

TEST(StatusTable, hasOneRowForEachDeclaration) {
  std::multiset<std::string> declared;
  for (const auto& function : functions()) declared.insert(function.first);
  EXPECT_EQ(difference(declared, rowNames()), "") << "declared, without a row";
  EXPECT_EQ(difference(rowNames(), declared), "") << "rows without a declaration, or twice";
}

TEST(StatusTable, tellsOfFaultsInAllButTheVersion) {
  for (const auto& table : tables)
    for (const Row& row : table.second())
      EXPECT_EQ(row.faults() == 0, row.name() == "qorcvGetLibVersion") << row.name();
}

TEST(StatusTable, hasOneRowForEachExportedName) {
  const std::string here = __FILE__;
  std::ifstream file(here.substr(0, here.rfind('/')) + "/../library/qorcvmx.txt");
  std::multiset<std::string> exported;
  for (std::string line; std::getline(file, line);)
    if (!line.empty() && line[0] != '#') exported.insert(line);
  EXPECT_FALSE(exported.empty());
  EXPECT_EQ(difference(exported, rowNames()), "") << "exported, without a row";
  EXPECT_EQ(difference(rowNames(), exported), "") << "rows of names that are not exported, or twice";
}
