// How far it is from every pixel to the nearest edge, by ever better measures, in false colours.
//
// The edges are those of the Canny detector on the smoothed picture. A picture without any gets one in its middle.
#include <cmath>
#include <cstdio>

#include "edges.h"
#include "station.h"

namespace tour {

// Colours of a rising scale, from near to far; between them they blend.
static constexpr uint8_t ramp[][3] = {{8, 10, 40},   {40, 20, 110},  {120, 25, 130},
                                      {210, 60, 90}, {250, 150, 50}, {255, 245, 180}};

// 255 everywhere but on the edges.
static Image8u edgesAsZeros(const Image8u& picture) {
  const QoriSize roiSize = picture.size();
  Image8u result = edgesOf(picture, 80, 200);
  bool any = false;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    for (int32_t x = 0; x < roiSize.width; ++x) {
      any = any || result.row(y)[x] != 0;
      result.row(y)[x] = static_cast<uint8_t>(255 - result.row(y)[x]);
    }
  }
  if (!any) result.row(roiSize.height / 2)[roiSize.width / 2] = 0;
  return result;
}

// Above most values: all but one of a hundred.
static double endOf(const Image32f& map) {
  std::vector<float> values;
  for (int32_t y = 0; y < map.height; ++y) values.insert(values.end(), map.row(y), map.row(y) + map.width);
  const size_t rank = (values.size() - 1) * 99 / 100;
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(rank), values.end());
  return values[rank];
}

// From 0 to `end` along the ramp. With bands, for distances: every other one, `band` pixels wide, is a little darker,
// so that shapes show, small values get more of the colours, and the edges themselves are white.
template <class T>
static Image8u falseColours(const Image<T>& map, double end, double band) {
  constexpr int32_t last = static_cast<int32_t>(sizeof ramp / sizeof ramp[0]) - 1;
  Image8u colours(map.width, map.height, 3);
  for (int32_t y = 0; y < map.height; ++y) {
    for (int32_t x = 0; x < map.width; ++x) {
      const double value = static_cast<double>(map.row(y)[x]);
      const double linear = std::min(1.0, value / end), place = (band > 0 ? std::sqrt(linear) : linear) * last;
      const int32_t lower = std::min(static_cast<int32_t>(place), last - 1);
      const double share = place - lower;
      const bool darker = band > 0 && std::fmod(value / band, 2.0) >= 1;
      for (int32_t c = 0; c < 3; ++c) {
        const double colour = band > 0 && value == 0 ? 255 : ramp[lower][c] * (1 - share) + ramp[lower + 1][c] * share;
        colours.row(y)[ptrdiff_t{3} * x + c] = static_cast<uint8_t>(std::lround(colour * (darker ? 0.82 : 1)));
      }
    }
  }
  return colours;
}

void visitDistances(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const Image8u edges = edgesAsZeros(picture.gray);
  const uint8_t* src = edges.data();
  const int32_t srcStep = edges.step();
  Image8u blocks(roiSize.width, roiSize.height);
  Image32f chamfer3(roiSize.width, roiSize.height), chamfer5(roiSize.width, roiSize.height);
  Image32f exact(roiSize.width, roiSize.height), difference(roiSize.width, roiSize.height);

  float* distance = exact.data();
  const int32_t step = exact.step();
  const Step exactly =
      TOUR_STEP_WITH_BUFFER(qoriTrueDistanceTransformGetBufferSize_8u32f_C1R(roiSize, &bufferSize),
                            qoriTrueDistanceTransform_8u32f_C1R(src, srcStep, distance, step, roiSize, buffer));
  run({exactly});
  const double end = std::max(1.0, std::ceil(endOf(exact))), band = std::max(1.0, std::floor(end / 10));
  const auto inColours = [&](const auto& map) {
    const std::string ends = std::to_string(static_cast<int32_t>(end)),
                      wide = std::to_string(static_cast<int32_t>(band));
    return Visible{falseColours(map, end, band), "Edges are white. From dark blue by red to light yellow at " + ends +
                                                     " pixels or more, in bands of " + wide +
                                                     (wide == "1" ? " pixel." : " pixels.")};
  };

  const int32_t blockMetrics[] = {1, 2};
  const int32_t* costs = blockMetrics;
  uint8_t* dst8u = blocks.data();
  const int32_t step8u = blocks.step();
  hang(wall,
       {"city-blocks", "City blocks",
        "Steps along rows and columns only, in 8 bits: around each edge lie diamonds, and diagonal ways count too "
        "long."},
       {TOUR_STEP(qoriDistanceTransform_3x3_8u_C1R(src, srcStep, dst8u, step8u, roiSize, costs))}, blocks, inColours);

  float metrics3[2], metrics5[3];
  float* metrics = metrics3;
  float* dst = chamfer3.data();
  hang(wall,
       {"chamfer-3x3", "Chamfer, 3×3",
        "Straight steps of 0.955 and diagonal ones of 1.3693, which err as much to one side as to the other: "
        "the diamonds become octagons."},
       {TOUR_STEP(qoriGetDistanceTransformMask_32f(3, 2, metrics)),
        TOUR_STEP(qoriDistanceTransform_3x3_8u32f_C1R(src, srcStep, dst, step, roiSize, metrics))},
       chamfer3, inColours);
  metrics = metrics5;
  dst = chamfer5.data();
  hang(wall,
       {"chamfer-5x5", "Chamfer, 5×5",
        "With knight's steps as well, at costs of 1, 1.4 and 2.1969: 16 corners, hardly to be told from a circle."},
       {TOUR_STEP(qoriGetDistanceTransformMask_32f(5, 2, metrics)),
        TOUR_STEP(qoriDistanceTransform_5x5_8u32f_C1R(src, srcStep, dst, step, roiSize, metrics))},
       chamfer5, inColours);
  hang(wall,
       {"true-distance", "True distance",
        "The Euclidean distance to the nearest edge pixel, exact up to the last bit of a float."},
       {exactly}, exact, inColours);

  const float* chamfer = nullptr;
  dst = difference.data();
  const auto compare = [&](const Image32f& map, const Label& label, double most) {
    chamfer = map.data();
    hang(wall, label, {TOUR_STEP(qoriAbsDiff_32f_C1R(chamfer, step, distance, step, dst, step, roiSize))}, difference,
         [&](const Image32f& values) {
           char scale[96];
           snprintf(scale, sizeof scale, "From dark blue at 0 by red to light yellow at %.2g pixels or more.", most);
           return Visible{falseColours(values, most, 0), scale};
         });
  };
  qoriAbsDiff_32f_C1R(chamfer3.data(), step, distance, step, dst, step, roiSize);
  const double most = std::max(0.1, endOf(difference));
  compare(chamfer3,
          {"chamfer-3x3-error", "How far 3×3 is off",
           "The absolute difference to the true distance, much amplified. It grows with the distance: "
           "straight ways come out too short, those between a straight one and a diagonal too long."},
          most);
  compare(chamfer5, {"chamfer-5x5-error", "How far 5×5 is off", "The same for the larger mask, on the same scale."},
          most);
}

}  // namespace tour
