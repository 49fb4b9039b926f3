// Pyramids: levels of half the size, doubled again; layers of any rate; and the Gaussian blur that they approximate.
//
// The levels of a mosaic are written straight to their places in it, as regions of one image.
#include <algorithm>
#include <memory>

#include "failure.h"
#include "station.h"

namespace tour {

static constexpr int32_t margin = 2;
static constexpr uint8_t background = 40;

static Image8u emptyMosaic(int32_t width, int32_t height) {
  Image8u mosaic(width, height);
  std::fill(mosaic.store.begin(), mosaic.store.end(), background);
  return mosaic;
}

static QoriSize halfOf(QoriSize size) { return {(size.width + 1) / 2, (size.height + 1) / 2}; }

// The picture on the left and five levels below each other on its right.
static void hangHalves(const Picture& picture, Wall& wall) {
  std::vector<QoriSize> sizes = {picture.gray.size()};
  int32_t height = 0;
  for (int32_t i = 1; i <= 5; ++i) {
    sizes.push_back(halfOf(sizes.back()));
    height += sizes.back().height + margin;
  }
  Image8u mosaic = emptyMosaic(sizes[0].width + margin + sizes[1].width, std::max(sizes[0].height, height - margin));
  std::vector<uint8_t*> levels = {mosaic.data()};
  for (int32_t y = 0; y < sizes[0].height; ++y) std::copy_n(picture.gray.row(y), sizes[0].width, mosaic.row(y));
  int32_t top = 0;
  for (size_t i = 1; i <= 5; ++i) {
    levels.push_back(mosaic.row(top) + sizes[0].width + margin);
    top += sizes[i].height + margin;
  }
  const int32_t step = mosaic.step();
  hang(wall,
       {"halves", "Five levels, each half the size",
        "Each level is the one before, filtered with the weights 1 4 6 4 1 and left with every other row and column: "
        "what stays at a glance stays to the last."},
       {TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(sizes[0].width, qor8u, 1, &bufferSize),
                              qoriPyrDown_Gauss5x5_8u_C1R(levels[0], step, levels[1], step, sizes[0], buffer)),
        TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(sizes[1].width, qor8u, 1, &bufferSize),
                              qoriPyrDown_Gauss5x5_8u_C1R(levels[1], step, levels[2], step, sizes[1], buffer)),
        TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(sizes[2].width, qor8u, 1, &bufferSize),
                              qoriPyrDown_Gauss5x5_8u_C1R(levels[2], step, levels[3], step, sizes[2], buffer)),
        TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(sizes[3].width, qor8u, 1, &bufferSize),
                              qoriPyrDown_Gauss5x5_8u_C1R(levels[3], step, levels[4], step, sizes[3], buffer)),
        TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(sizes[4].width, qor8u, 1, &bufferSize),
                              qoriPyrDown_Gauss5x5_8u_C1R(levels[4], step, levels[5], step, sizes[4], buffer))},
       mosaic, asItIs);
}

// Down twice and up twice, and what was lost on the way.
static void hangDoubled(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();
  const QoriSize halfSize = halfOf(roiSize), quarterSize = halfOf(halfSize);
  const QoriSize twiceSize = {2 * quarterSize.width, 2 * quarterSize.height};

  Image8u image1(twiceSize.width, twiceSize.height);  // at least as large as the half
  Image8u image2(quarterSize.width, quarterSize.height);
  uint8_t* half = image1.data();
  uint8_t* quarter = image2.data();
  uint8_t* twice = half;
  const int32_t halfStep = image1.step();
  const int32_t twiceStep = halfStep;
  const int32_t quarterStep = image2.step();
  run({TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(roiSize.width, qor8u, 1, &bufferSize),
                             qoriPyrDown_Gauss5x5_8u_C1R(src, srcStep, half, halfStep, roiSize, buffer)),
       TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(halfSize.width, qor8u, 1, &bufferSize),
                             qoriPyrDown_Gauss5x5_8u_C1R(half, halfStep, quarter, quarterStep, halfSize, buffer))});

  Image8u back(2 * twiceSize.width, 2 * twiceSize.height);
  uint8_t* full = back.data();
  const int32_t fullStep = back.step();
  hang(wall,
       {"doubled", "A sixteenth of the pixels, doubled twice",
        "The second level brought back to the size of the picture. Nothing in it is finer than four pixels."},
       {TOUR_STEP_WITH_BUFFER(qoriPyrUpGetBufSize_Gauss5x5(quarterSize.width, qor8u, 1, &bufferSize),
                              qoriPyrUp_Gauss5x5_8u_C1R(quarter, quarterStep, twice, twiceStep, quarterSize, buffer)),
        TOUR_STEP_WITH_BUFFER(qoriPyrUpGetBufSize_Gauss5x5(twiceSize.width, qor8u, 1, &bufferSize),
                              qoriPyrUp_Gauss5x5_8u_C1R(twice, twiceStep, full, fullStep, twiceSize, buffer))},
       back, asItIs);

  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  hang(wall,
       {"doubled-difference", "What the way down and up lost",
        "The absolute difference of the picture and the one that came back: the fine detail that a pyramid keeps in "
        "its lower levels only."},
       {TOUR_STEP(qoriAbsDiff_8u_C1R(src, srcStep, full, fullStep, dst, dstStep, roiSize))}, result, amplified);
}

// Four layers at the rate 1.5 beside each other, and the way back up.
static void hangLayers(const Picture& picture, Wall& wall) {
  constexpr float rate = 1.5f;
  const int16_t kernel[5] = {1, 4, 6, 4, 1};
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();

  std::vector<QoriSize> sizes = {picture.gray.size()};
  int32_t width = 0;
  for (int32_t i = 1; i <= 4; ++i) {
    QoriSize below = {0, 0};
    require("qoriGetPyramidDownROI", qoriGetPyramidDownROI(sizes.back(), &below, rate));
    sizes.push_back(below);
    width += below.width + margin;
  }
  Image8u mosaic = emptyMosaic(width - margin, sizes[1].height);
  std::vector<uint8_t*> layers = {nullptr};
  int32_t left = 0;
  for (size_t i = 1; i <= 4; ++i) {
    layers.push_back(mosaic.row(sizes[1].height - sizes[i].height) + left);
    left += sizes[i].width + margin;
  }
  const int32_t step = mosaic.step();

  using Owner = std::unique_ptr<QoriPyramidLayerState, QorStatus (*)(QoriPyramidLayerState*)>;
  QoriPyramidLayerState* downState = nullptr;
  require("qoriPyramidLayerDownInitAlloc_8u_C1R",
          qoriPyramidLayerDownInitAlloc_8u_C1R(&downState, sizes[0], kernel, 5, 2, rate));
  const Owner downOwner(downState, qoriPyramidLayerDownFree_8u_C1R);
  hang(wall,
       {"layers", "Four layers, each two thirds the size",
        "Between the halves there is room: a layer may be smaller by any rate up to 10, and the kernel is the "
        "caller's. Here the rate is 1.5."},
       {TOUR_STEP(qoriPyramidLayerDown_8u_C1R(src, srcStep, sizes[0], layers[1], step, sizes[1], downState)),
        TOUR_STEP(qoriPyramidLayerDown_8u_C1R(layers[1], step, sizes[1], layers[2], step, sizes[2], downState)),
        TOUR_STEP(qoriPyramidLayerDown_8u_C1R(layers[2], step, sizes[2], layers[3], step, sizes[3], downState)),
        TOUR_STEP(qoriPyramidLayerDown_8u_C1R(layers[3], step, sizes[3], layers[4], step, sizes[4], downState))},
       mosaic, asItIs);

  Image8u image1(sizes[1].width, sizes[1].height);
  Image8u result(sizes[0].width, sizes[0].height);
  uint8_t* upper = image1.data();
  uint8_t* dst = result.data();
  const int32_t upperStep = image1.step();
  const int32_t dstStep = result.step();
  QoriPyramidLayerState* upState = nullptr;
  require("qoriPyramidLayerUpInitAlloc_8u_C1R",
          qoriPyramidLayerUpInitAlloc_8u_C1R(&upState, sizes[1], kernel, 5, 2, rate));
  const Owner upOwner(upState, qoriPyramidLayerUpFree_8u_C1R);
  hang(wall,
       {"layers-up", "The second layer, brought back up",
        "Two layers up at the same rate, through the sizes they came from: less than a fifth of the pixels make the "
        "picture again, softly."},
       {TOUR_STEP(qoriPyramidLayerUp_8u_C1R(layers[2], step, sizes[2], upper, upperStep, sizes[1], upState)),
        TOUR_STEP(qoriPyramidLayerUp_8u_C1R(upper, upperStep, sizes[1], dst, dstStep, sizes[0], upState))},
       result, asItIs);
}

static void hangGauss(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  Image32f image(roiSize.width, roiSize.height);
  for (int32_t y = 0; y < roiSize.height; ++y) std::copy_n(picture.gray.row(y), roiSize.width, image.row(y));
  Image32f result(roiSize.width, roiSize.height);
  const float* src = image.data();
  float* dst = result.data();
  const int32_t srcStep = image.step();
  const int32_t dstStep = result.step();
  hang(wall,
       {"gauss", "Gaussian, sigma 5",
        "What a pyramid does in steps, done at once and at full size: a blur with 31×31 weights of the bell curve. "
        "Beyond its edges the picture is mirrored."},
       {TOUR_STEP_WITH_BUFFER(
           qoriFilterGaussGetBufferSize_32f_C1R(roiSize, 31, &bufferSize),
           qoriFilterGaussBorder_32f_C1R(src, srcStep, dst, dstStep, roiSize, 31, 5.0f, qorBorderMirror, 0, buffer))},
       result, asGray);
  hang(wall,
       {"gauss-constant", "Gaussian, sigma 12, black all around",
        "With a constant border the picture lies on a black ground, which a wider blur draws in from the edges."},
       {TOUR_STEP_WITH_BUFFER(
           qoriFilterGaussGetBufferSize_32f_C1R(roiSize, 73, &bufferSize),
           qoriFilterGaussBorder_32f_C1R(src, srcStep, dst, dstStep, roiSize, 73, 12.0f, qorBorderConst, 0, buffer))},
       result, asGray);
}

void visitPyramids(const Picture& picture, Wall& wall) {
  hangHalves(picture, wall);
  hangDoubled(picture, wall);
  hangLayers(picture, wall);
  hangGauss(picture, wall);
}

}  // namespace tour
