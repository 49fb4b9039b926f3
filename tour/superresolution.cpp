// Super-resolution: one detail, seen in several small pictures that are shifted by fractions of a pixel, put together
// again.
//
// A sample of a small picture is the mean over a square of two by two pixels of the detail, which its shift moves by
// quarters of a pixel; so each is a kernel of three by three taps, one for each of sixteen fractions.
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>

#include "failure.h"
#include "station.h"

namespace tour {

static constexpr int32_t detailSize = 112, pictures = 12, rounds = 60;
static constexpr int32_t smallSize = (detailSize - 4) / 2 + 1, samplesOfAll = pictures * smallSize * smallSize;

namespace {

// All samples of all small pictures, picture by picture.
struct Samples {
  std::vector<int32_t> offset;
  std::vector<uint16_t> phase;
  std::vector<uint8_t> number;  // of its picture
};

}  // namespace

// The square of the picture with the strongest edges; a picture that is too small for it is continued.
static Image32f chosenDetail(const Image8u& picture) {
  constexpr int32_t pace = 16;
  const auto pixel = [&](int32_t x, int32_t y) {
    return static_cast<int32_t>(picture.row(std::min(y, picture.height - 1))[std::min(x, picture.width - 1)]);
  };
  int32_t bestX = 0, bestY = 0;
  int64_t most = -1;
  for (int32_t y0 = 0; y0 == 0 || y0 + detailSize <= picture.height; y0 += pace) {
    for (int32_t x0 = 0; x0 == 0 || x0 + detailSize <= picture.width; x0 += pace) {
      int64_t changes = 0;
      for (int32_t y = y0; y < y0 + detailSize; ++y) {
        for (int32_t x = x0; x < x0 + detailSize; ++x) {
          const int32_t across = pixel(x + 1, y) - pixel(x, y), down = pixel(x, y + 1) - pixel(x, y);
          changes += across * across + down * down;
        }
      }
      if (changes > most) most = changes, bestX = x0, bestY = y0;
    }
  }
  Image32f detail(detailSize, detailSize);
  for (int32_t y = 0; y < detailSize; ++y) {
    for (int32_t x = 0; x < detailSize; ++x) detail.row(y)[x] = static_cast<float>(pixel(bestX + x, bestY + y));
  }
  return detail;
}

// The kernel of each fraction, in quarters across and down.
static std::vector<float> kernels() {
  std::vector<float> taps;
  for (int32_t phase = 0; phase < 16; ++phase) {
    const float across = static_cast<float>(phase % 4) / 4, down = static_cast<float>(phase / 4) / 4;
    const float row[] = {(1 - across) / 2, 0.5f, across / 2}, column[] = {(1 - down) / 2, 0.5f, down / 2};
    for (const float weight : column) {
      for (const float tap : row) taps.push_back(weight * tap);
    }
  }
  return taps;
}

// Shifts of up to two pixels of the detail, in quarters; the first picture has none.
static Samples placeSamples(int32_t pitch) {
  Samples samples;
  for (int32_t i = 0; i < pictures; ++i) {
    const int32_t across = 5 * i % 8, down = (3 * i + i / 4) % 8;
    for (int32_t y = 0; y < smallSize; ++y) {
      for (int32_t x = 0; x < smallSize; ++x) {
        samples.offset.push_back((2 * y + down / 4) * pitch + 2 * x + across / 4);
        samples.phase.push_back(static_cast<uint16_t>(down % 4 * 4 + across % 4));
        samples.number.push_back(static_cast<uint8_t>(i));
      }
    }
  }
  return samples;
}

static uint8_t level(float value) { return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0f, 255.0f))); }

// Every pixel as a square.
static Image8u magnified(const Image8u& image, int32_t times) {
  Image8u result(image.width * times, image.height * times);
  for (int32_t y = 0; y < result.height; ++y) {
    for (int32_t x = 0; x < result.width; ++x) result.row(y)[x] = image.row(y / times)[x / times];
  }
  return result;
}

// The first small picture, drawn between its pixels: what can be had from it alone.
static Image32f enlarged(const Image8u& small) {
  Image32f result(detailSize, detailSize);
  for (int32_t y = 0; y < detailSize; ++y) {
    for (int32_t x = 0; x < detailSize; ++x) {
      const auto last = static_cast<float>(smallSize - 1);
      const float u = std::clamp((static_cast<float>(x) - 0.5f) / 2, 0.0f, last);
      const float v = std::clamp((static_cast<float>(y) - 0.5f) / 2, 0.0f, last);
      const int32_t x0 = std::min(static_cast<int32_t>(u), smallSize - 2);
      const int32_t y0 = std::min(static_cast<int32_t>(v), smallSize - 2);
      const float s = u - static_cast<float>(x0), t = v - static_cast<float>(y0);
      const auto between = [&](const uint8_t* row) {
        return static_cast<float>(row[x0]) * (1 - s) + static_cast<float>(row[x0 + 1]) * s;
      };
      result.row(y)[x] = between(small.row(y0)) * (1 - t) + between(small.row(y0 + 1)) * t;
    }
  }
  return result;
}

// Mean absolute difference, away from the edges, which few samples reach.
static std::string differenceText(const Image32f& image, const Image32f& truth) {
  constexpr int32_t margin = 4;
  double sum = 0;
  int32_t count = 0;
  for (int32_t y = margin; y < detailSize - margin; ++y) {
    for (int32_t x = margin; x < detailSize - margin; ++x, ++count) {
      sum += std::abs(static_cast<double>(image.row(y)[x]) - static_cast<double>(truth.row(y)[x]));
    }
  }
  char text[96];
  std::snprintf(text, sizeof text, "It differs from the true detail by %.2f grey levels in the mean.", sum / count);
  return text;
}

// A preparation that is not a call of the library, so that each run starts alike.
static Step preparation(const std::string& code, const std::function<void()>& prepare) {
  return {code,
          [=](uint8_t*) -> QorStatus {
            prepare();
            return qorStatusOk;
          },
          "", nullptr};
}

void visitSuperResolution(const Picture& picture, Wall& wall) {
  const Image32f detail = chosenDetail(picture.gray);
  const Samples samples = placeSamples(detail.pitch);
  const int32_t length = samplesOfAll;
  const int32_t* offset = samples.offset.data();
  const uint16_t* phase = samples.phase.data();
  const std::vector<float> psf = kernels();
  QoriSRHNSpec_PSF3x3* state = nullptr;
  require("qoriSRHNInitAlloc_PSF3x3", qoriSRHNInitAlloc_PSF3x3(&state, psf.data(), 16));
  const std::unique_ptr<QoriSRHNSpec_PSF3x3, QorStatus (*)(QoriSRHNSpec_PSF3x3*)> owner(state, qoriSRHNFree_PSF3x3);

  // With nothing observed, a residual is what is predicted: so the small pictures are made by the library too.
  std::vector<uint8_t> observed(static_cast<size_t>(length));
  Image32f residuals(length, 1);
  float* residual = residuals.data();
  const uint8_t* lowRes = observed.data();
  const float* hiRes = detail.data();
  const int32_t hiResStep = detail.step();
  Image8u first(smallSize, smallSize);
  hang(wall,
       {"one-small-picture", "One of twelve small pictures",
        "A detail of the picture, seen through small kernels at every other pixel of every other row: each sample is a "
        "mean over two by two pixels. The other eleven pictures are shifted by fractions of a pixel. The tour adds a "
        "little noise, and shows each pixel as a square."},
       {TOUR_STEP(
           qoriSRHNCalcResidual_PSF3x3_8u32f_C1R(hiRes, hiResStep, lowRes, offset, phase, residual, length, state))},
       residuals, [&](const Image32f& predicted) {
         std::mt19937 random(1);
         for (size_t i = 0; i < observed.size(); ++i) {
           const float noise = static_cast<float>(random() % 401) / 100 - 2;
           observed[i] = level(predicted.data()[i] + noise);
         }
         for (int32_t y = 0; y < smallSize; ++y) {
           std::copy_n(&observed[static_cast<size_t>(y * smallSize)], smallSize, first.row(y));
         }
         return asItIs(magnified(first, 6));
       });

  const Image32f start = enlarged(first);
  const auto show = [&](const Image32f& image) {
    const Visible visible = asGray(image);
    return Visible{magnified(visible.image, 3), differenceText(image, detail)};
  };
  hiRes = start.data();
  hang(wall,
       {"enlarged", "The small picture, enlarged",
        "What one small picture gives: soft edges, and nothing between its pixels. The call tells how well it would "
        "explain all twelve."},
       {TOUR_STEP(
           qoriSRHNCalcResidual_PSF3x3_8u32f_C1R(hiRes, hiResStep, lowRes, offset, phase, residual, length, state))},
       residuals, [&](const Image32f& missed) {
         double sum = 0;
         for (int32_t i = 0; i < length; ++i) sum += static_cast<double>(std::abs(missed.data()[i]));
         char text[96];
         std::snprintf(text, sizeof text, " It misses the samples by %.2f.", sum / length);
         Visible visible = show(start);
         visible.scale += text;
         return visible;
       });

  // A sample's taps sum to 1, and each pixel is reached by a quarter of a sample of each picture: with a weight of 4 /
  // pictures a round would correct an even error at once.
  const std::vector<float> even(pictures, 1.0f), back(pictures, -1.6f * 4 / pictures);
  const uint8_t* weightIndex = samples.number.data();
  const float* weights = even.data();
  Image32f spread(detailSize, detailSize);
  float* gradient = spread.data();
  const int32_t gradientStep = spread.step();
  hang(wall,
       {"gradient", "What the twelve know better",
        "The residuals of the enlarged picture, spread back through the same kernels: light where it is too bright, "
        "dark where it is too dark. The edges stand out."},
       {preparation("memset(gradient, 0, gradientStep * height)",
                    [&] { std::fill(spread.store.begin(), spread.store.end(), 0.0f); }),
        TOUR_STEP(
            qoriSRHNCalcResidual_PSF3x3_8u32f_C1R(hiRes, hiResStep, lowRes, offset, phase, residual, length, state)),
        TOUR_STEP(qoriSRHNUpdateGradient_PSF3x3_32f_C1R(gradient, gradientStep, offset, phase, residual, weightIndex,
                                                        length, weights, state))},
       spread, [](const Image32f& image) {
         Image16s tenths(image.width, image.height);
         for (int32_t y = 0; y < image.height; ++y) {
           for (int32_t x = 0; x < image.width; ++x) {
             tenths.row(y)[x] =
                 static_cast<int16_t>(std::lround(std::clamp(image.row(y)[x] * 10, -32000.0f, 32000.0f)));
           }
         }
         return Visible{magnified(signedAsGray(tenths).image, 3), "Mid-grey is 0."};
       });

  Image32f estimate = start;
  gradient = estimate.data();
  hiRes = estimate.data();
  weights = back.data();
  hang(wall,
       {"super-resolved", "Super-resolved",
        "Sixty rounds of both calls, each taking a part of the gradient away from the picture: detail that none of the "
        "small pictures shows."},
       {preparation("memcpy(hiRes, enlarged, hiResStep * height)",
                    [&] { std::copy(start.store.begin(), start.store.end(), estimate.store.begin()); }),
        repeat(rounds, {TOUR_STEP(qoriSRHNCalcResidual_PSF3x3_8u32f_C1R(hiRes, hiResStep, lowRes, offset, phase,
                                                                        residual, length, state)),
                        TOUR_STEP(qoriSRHNUpdateGradient_PSF3x3_32f_C1R(gradient, gradientStep, offset, phase, residual,
                                                                        weightIndex, length, weights, state))})},
       estimate, show);
}

}  // namespace tour
