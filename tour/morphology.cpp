// Morphology: a disc that is drawn through the picture, and reconstruction from a marker.
#include <memory>

#include "failure.h"
#include "station.h"

namespace tour {

// A disc of set taps, `side` wide.
static std::vector<uint8_t> discOf(int32_t side) {
  std::vector<uint8_t> mask(static_cast<size_t>(side) * static_cast<size_t>(side));
  for (int32_t y = 0; y < side; ++y) {
    for (int32_t x = 0; x < side; ++x) {
      const int32_t u = 2 * x + 1 - side, v = 2 * y + 1 - side;
      mask[static_cast<size_t>(y * side + x)] = u * u + v * v <= side * side;
    }
  }
  return mask;
}

// The step on an image that is made anew before each run, since the step changes it.
static Step onFresh(const Image8u& original, Image8u& image, const Step& step) {
  Step result = step;
  result.call = [=, &original, &image](uint8_t* buffer) -> QorStatus {
    image.store = original.store;
    return step.call(buffer);
  };
  return result;
}

void visitMorphology(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  constexpr int32_t side = 9;
  const std::vector<uint8_t> disc = discOf(side);
  QoriMorphAdvState* state = nullptr;
  require("qoriMorphAdvInitAlloc_8u_C1R",
          qoriMorphAdvInitAlloc_8u_C1R(&state, roiSize, disc.data(), {side, side}, {side / 2, side / 2}));
  const std::unique_ptr<QoriMorphAdvState, QorStatus (*)(QoriMorphAdvState*)> owner(state, qoriMorphAdvFree);

  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();

  hang(wall, {"opening", "Opening", "What a disc of 9 pixels can reach from inside: bright specks and lines are gone."},
       {TOUR_STEP(qoriMorphOpenBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, state))}, result,
       asItIs);
  hang(wall, {"closing", "Closing", "The same for the dark: gaps and dark lines narrower than the disc are closed."},
       {TOUR_STEP(qoriMorphCloseBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, state))}, result,
       asItIs);
  hang(wall, {"top-hat", "Top-hat", "What the opening took away: bright details, whatever the brightness around them."},
       {TOUR_STEP(qoriMorphTophatBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, state))},
       result, amplified);
  hang(wall,
       {"morphological-gradient", "Morphological gradient", "Dilation minus erosion: edges, as wide as the disc."},
       {TOUR_STEP(qoriMorphGradientBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, state))},
       result, amplified);

  const QoriSize maskSize = {15, 15};
  const QoriPoint anchor = {7, 7};
  hang(wall, {"maximum-15", "Maximum in 15×15 windows", "The time hardly grows with the window."},
       {TOUR_STEP_WITH_BUFFER(
           qoriFilterMaxGetBufferSize_8u_C1R(roiSize.width, maskSize, &bufferSize),
           qoriFilterMaxBorderReplicate_8u_C1R(src, srcStep, dst, dstStep, roiSize, maskSize, anchor, buffer))},
       result, asItIs);

  // All white but for the picture's edge: the light sinks until the picture holds it, and dark holes stay full.
  Image8u marker = picture.gray;
  for (int32_t y = 1; y < roiSize.height - 1; ++y) {
    std::fill_n(marker.row(y) + 1, std::max(0, roiSize.width - 2), uint8_t{255});
  }
  hang(wall,
       {"holes-filled", "Holes filled",
        "Reconstruction by erosion from the picture's edge: dark areas that nothing as dark joins to the edge are "
        "filled "
        "up to their rim. The times include a copy of the marker."},
       {onFresh(marker, result,
                TOUR_STEP_WITH_BUFFER(
                    qoriMorphReconstructGetBufferSize_8u_C1(roiSize, &bufferSize),
                    qoriMorphReconstructErode_8u_C1IR(src, srcStep, dst, dstStep, roiSize, buffer, qorNormInf)))},
       result, asItIs);

  for (uint8_t& level : (marker = picture.gray).store) level = static_cast<uint8_t>(std::max(0, level - 40));
  Image8u peaks(roiSize.width, roiSize.height);
  uint8_t* peak = peaks.data();
  hang(wall,
       {"peaks", "Peaks",
        "The picture lowered by 40 grows back under the picture; what it does not reach again are peaks, at most 40 "
        "high. "
        "The times include a copy of the marker."},
       {onFresh(marker, result,
                TOUR_STEP_WITH_BUFFER(
                    qoriMorphReconstructGetBufferSize_8u_C1(roiSize, &bufferSize),
                    qoriMorphReconstructDilate_8u_C1IR(src, srcStep, dst, dstStep, roiSize, buffer, qorNormInf))),
        TOUR_STEP(qoriAbsDiff_8u_C1R(src, srcStep, dst, dstStep, peak, dstStep, roiSize))},
       peaks, amplified);
}

}  // namespace tour
