// A short sequence made from a picture: its background, its deviation, and where something moved.
#include <cmath>
#include <cstring>
#include <random>

#include "station.h"

namespace tour {

static constexpr int32_t frameCount = 24;

static double discRadius(const Image8u& picture) {
  return std::max(2.0, 0.12 * std::min(picture.width, picture.height));
}

// The picture with grain of its own in each frame, and a disc that comes in on the left and crosses it.
static std::vector<Image8u> makeFrames(const Image8u& picture) {
  std::vector<Image8u> frames;
  std::mt19937 random(1);
  const double radius = discRadius(picture), middle = 0.55 * picture.height;
  for (int32_t i = 0; i < frameCount; ++i) {
    Image8u frame = picture;
    const double centre = (picture.width + 2 * radius) * i / frameCount - radius;
    for (int32_t y = 0; y < frame.height; ++y) {
      for (int32_t x = 0; x < frame.width; ++x) {
        const double grain = static_cast<double>(random() % 17) - 8;
        const bool disc = std::hypot(x - centre, y - middle) < radius;
        frame.row(y)[x] = static_cast<uint8_t>(std::clamp((disc ? 235.0 : frame.row(y)[x]) + grain, 0.0, 255.0));
      }
    }
    frames.push_back(frame);
  }
  return frames;
}

// Where a frame differs from the picture by more than its grain.
static Image8u silhouetteOf(const Image8u& frame, const Image8u& picture) {
  Image8u silhouette(frame.width, frame.height);
  for (int32_t y = 0; y < frame.height; ++y) {
    for (int32_t x = 0; x < frame.width; ++x) {
      silhouette.row(y)[x] = std::abs(frame.row(y)[x] - picture.row(y)[x]) > 16 ? 255 : 0;
    }
  }
  return silhouette;
}

// Statements once a frame, on accumulators that begin with `start` each time, so that each run gives the same.
static Step forAllFrames(const std::string& code, const std::function<void()>& start,
                         const std::function<QorStatus(size_t)>& call) {
  return {"for (each frame) {\n  " + code + ";\n}",
          [=](uint8_t*) -> QorStatus {
            start();
            for (size_t i = 0; i < static_cast<size_t>(frameCount); ++i) {
              const QorStatus status = call(i);
              if (status != qorStatusOk) return status;
            }
            return qorStatusOk;
          },
          "", nullptr};
}
#define TOUR_FRAMES(start, prepare, expression)                 \
  forAllFrames(#expression, start, [&](size_t i) -> QorStatus { \
    prepare;                                                    \
    return expression;                                          \
  })

void visitBackground(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const std::vector<Image8u> frames = makeFrames(picture.gray);
  std::vector<Image8u> silhouettes, still;
  for (const Image8u& frame : frames) {
    silhouettes.push_back(silhouetteOf(frame, picture.gray));
    still.push_back(silhouettes.back());
    for (uint8_t& byte : still.back().store) byte = static_cast<uint8_t>(~byte);
  }
  const int32_t srcStep = frames[0].step();
  const int32_t maskStep = still[0].step();

  Image32f accumulator(roiSize.width, roiSize.height);
  float* srcDst = accumulator.data();
  const int32_t srcDstStep = accumulator.step();
  const auto clear = [&] { std::fill(accumulator.store.begin(), accumulator.store.end(), 0.0f); };
  const auto firstFrame = [&] {
    for (int32_t y = 0; y < roiSize.height; ++y) std::copy_n(frames[0].row(y), roiSize.width, accumulator.row(y));
  };

  hang(wall,
       {"running-background", "Running background",
        "Each frame moves the background an eighth of the way towards itself. The grain is gone; the disc leaves a "
        "trail that fades."},
       {TOUR_FRAMES(firstFrame, const uint8_t* src = frames[i].data(),
                    qoriAddWeighted_8u32f_C1IR(src, srcStep, srcDst, srcDstStep, roiSize, 0.125f))},
       accumulator, asGray);
  hang(
      wall,
      {"masked-background", "Running background, under a mask",
       "The same, but only where a frame shows the background: the disc leaves no trail."},
      {
        TOUR_FRAMES(firstFrame, const uint8_t* src = frames[i].data();
                    const uint8_t* mask = still[i].data(),
                    qoriAddWeighted_8u32f_C1IMR(src, srcStep, mask, maskStep, srcDst, srcDstStep, roiSize, 0.125f))
      },
      accumulator, asGray);

  Image32f squares(roiSize.width, roiSize.height);
  float* squareSum = squares.data();
  const auto clearBoth = [&] {
    clear();
    std::fill(squares.store.begin(), squares.store.end(), 0.0f);
  };
  Image32f deviation(roiSize.width, roiSize.height);
  hang(wall,
       {"deviation-in-time", "Deviation in time",
        "From the sums of the frames and of their squares: how much each pixel changed over the sequence. The grain "
        "shows everywhere, and much more where the disc passed over something dark."},
       {TOUR_FRAMES(clearBoth, const uint8_t* src = frames[i].data(),
                    qoriAdd_8u32f_C1IR(src, srcStep, srcDst, srcDstStep, roiSize)),
        TOUR_FRAMES([] {}, const uint8_t* src = frames[i].data(),
                    qoriAddSquare_8u32f_C1IR(src, srcStep, squareSum, srcDstStep, roiSize))},
       accumulator, [&](const Image32f& sum) {
         for (int32_t y = 0; y < roiSize.height; ++y) {
           for (int32_t x = 0; x < roiSize.width; ++x) {
             const float mean = sum.row(y)[x] / frameCount;
             deviation.row(y)[x] = std::sqrt(std::max(0.0f, squares.row(y)[x] / frameCount - mean * mean));
           }
         }
         return fromZeroAsGray(deviation);
       });

  hang(
      wall,
      {"motion-history", "Motion history",
       "White where something moves in the last frame, darker the longer ago it moved; after 16 frames without "
       "motion a pixel is cleared, and the picture shows dimly. The silhouettes and the dim picture come from the "
       "tour."},
      {
        TOUR_FRAMES(
            clear, const uint8_t* silhouette = silhouettes[i].data();
            const float timestamp = static_cast<float>(i + 1),
            qoriUpdateMotionHistory_8u32f_C1IR(silhouette, maskStep, srcDst, srcDstStep, roiSize, timestamp, 16.0f))
      },
      accumulator,
      [&](const Image32f& history) {
        Image32f recent(roiSize.width, roiSize.height);
        for (int32_t y = 0; y < roiSize.height; ++y) {
          for (int32_t x = 0; x < roiSize.width; ++x) {
            const float stamp = history.row(y)[x];
            recent.row(y)[x] =
                stamp == 0.0f ? static_cast<float>(picture.gray.row(y)[x]) / 4 : 85 + (stamp - (frameCount - 17)) * 10;
          }
        }
        return asGray(recent);
      });
}

#undef TOUR_FRAMES

}  // namespace tour
