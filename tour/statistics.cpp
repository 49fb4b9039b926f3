// A table of statistics: of the grey picture, of its bright half under a mask, and of each colour.
#include <cstdio>

#include "station.h"

namespace tour {

// What the calls of one column leave behind.
struct Measures {
  double mean = 0, stdDev = 0, largest = 0, sum = 0, euclidean = 0;
  float minVal = 0, maxVal = 0;
  QoriPoint minIndex = {0, 0}, maxIndex = {0, 0};
};

static std::string number(double value, const char* format = "%.2f") {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

static std::string valueAt(float value, QoriPoint place) {
  return number(static_cast<double>(value), "%.0f") + " at " + std::to_string(place.x) + ", " + std::to_string(place.y);
}

static void addColumn(Table& table, const std::string& name, const Measures& m, bool hasExtrema) {
  const std::vector<std::string> cells = {name,
                                          number(m.mean),
                                          number(m.stdDev),
                                          hasExtrema ? valueAt(m.minVal, m.minIndex) : "",
                                          hasExtrema ? valueAt(m.maxVal, m.maxIndex) : "",
                                          number(m.largest, "%.0f"),
                                          number(m.sum, "%.0f"),
                                          number(m.euclidean)};
  for (size_t i = 0; i < cells.size(); ++i) table[i].push_back(cells[i]);
}

void visitStatistics(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  Image8u all(roiSize.width, roiSize.height);
  std::fill(all.store.begin(), all.store.end(), uint8_t{255});
  Measures result;
  double* mean = &result.mean;
  double* stdDev = &result.stdDev;
  float* minVal = &result.minVal;
  float* maxVal = &result.maxVal;
  QoriPoint* minIndex = &result.minIndex;
  QoriPoint* maxIndex = &result.maxIndex;
  double* inf = &result.largest;
  double* l1 = &result.sum;
  double* l2 = &result.euclidean;

  Table table = {
      {""},        {"Mean"},   {"Standard deviation"}, {"Smallest, at x, y"}, {"Largest, at x, y"}, {"Infinity norm"},
      {"L1 norm"}, {"L2 norm"}};

  const uint8_t* mask = all.data();
  const int32_t maskStep = all.step();
  const std::vector<Step> whole = {
      TOUR_STEP(qoriMean_StdDev_8u_C1R(src, srcStep, roiSize, mean, stdDev)),
      TOUR_STEP(qoriMinMaxIndx_8u_C1R(src, srcStep, roiSize, minVal, maxVal, minIndex, maxIndex)),
      TOUR_STEP(qoriNorm_Inf_8u_C1MR(src, srcStep, mask, maskStep, roiSize, inf)),
      TOUR_STEP(qoriNorm_L1_8u_C1MR(src, srcStep, mask, maskStep, roiSize, l1)),
      TOUR_STEP(qoriNorm_L2_8u_C1MR(src, srcStep, mask, maskStep, roiSize, l2))};
  const Times times = measure(whole, &result, sizeof result);
  addColumn(table, "Grey", result, true);

  // The pixels above the mean.
  Image8u bright(roiSize.width, roiSize.height);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    for (int32_t x = 0; x < roiSize.width; ++x) bright.row(y)[x] = picture.gray.row(y)[x] > result.mean ? 255 : 0;
  }
  mask = bright.data();
  run({TOUR_STEP(qoriMean_StdDev_8u_C1MR(src, srcStep, mask, maskStep, roiSize, mean, stdDev)),
       TOUR_STEP(qoriNorm_Inf_8u_C1MR(src, srcStep, mask, maskStep, roiSize, inf)),
       TOUR_STEP(qoriNorm_L1_8u_C1MR(src, srcStep, mask, maskStep, roiSize, l1)),
       TOUR_STEP(qoriNorm_L2_8u_C1MR(src, srcStep, mask, maskStep, roiSize, l2))});
  addColumn(table, "Grey, above its mean", result, false);

  if (!picture.colour.empty()) {
    const uint8_t* colour = picture.colour.data();
    const int32_t colourStep = picture.colour.step();
    const char* const names[] = {"Red", "Green", "Blue"};
    mask = all.data();
    for (int32_t coi = 1; coi <= 3; ++coi) {
      run({TOUR_STEP(qoriMean_StdDev_8u_C3CR(colour, colourStep, roiSize, coi, mean, stdDev)),
           TOUR_STEP(qoriMinMaxIndx_8u_C3CR(colour, colourStep, roiSize, coi, minVal, maxVal, minIndex, maxIndex)),
           TOUR_STEP(qoriNorm_Inf_8u_C3CMR(colour, colourStep, mask, maskStep, roiSize, coi, inf)),
           TOUR_STEP(qoriNorm_L1_8u_C3CMR(colour, colourStep, mask, maskStep, roiSize, coi, l1)),
           TOUR_STEP(qoriNorm_L2_8u_C3CMR(colour, colourStep, mask, maskStep, roiSize, coi, l2))});
      addColumn(table, names[coi - 1], result, true);
    }
  }
  wall.push_back({{"statistics", "In numbers",
                   "Extrema are the topmost of their kind, and the leftmost in their row. The calls are those of the "
                   "first column, and the times are those of all five; the others take the same with a mask or a "
                   "channel."},
                  codeOf(whole),
                  times,
                  {},
                  table});
}

}  // namespace tour
