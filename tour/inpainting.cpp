// A scratched photograph, restored.
//
// The tour scratches the picture itself, so it can tell how far the restored pixels are from the lost ones.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "failure.h"
#include "station.h"

namespace tour {

namespace {

constexpr float radius = 5;

struct FreeState {
  void operator()(QoriInpaintState_8u_C1R* state) const { qoriInpaintFree_8u_C1R(state); }
};
using State = std::unique_ptr<QoriInpaintState_8u_C1R, FreeState>;

}  // namespace

// --- the damage ---

static void blot(Image8u& mask, double x, double y, double size) {
  const auto first = [](double v) { return std::max(0, static_cast<int32_t>(std::ceil(v))); };
  for (int32_t v = first(y - size); v < std::min<double>(mask.height, y + size + 1); ++v) {
    for (int32_t u = first(x - size); u < std::min<double>(mask.width, x + size + 1); ++u) {
      if (std::hypot(u - x, v - y) <= size) mask.row(v)[u] = 255;
    }
  }
}

// A line that sways and grows thinner.
static void scratch(Image8u& mask, double x, double y, double toX, double toY, double size) {
  const int32_t points = std::max(2, static_cast<int32_t>(2 * std::hypot(toX - x, toY - y)));
  for (int32_t i = 0; i <= points; ++i) {
    const double t = static_cast<double>(i) / points, sway = 0.02 * std::sin(9 * t) * mask.height;
    blot(mask, x + (toX - x) * t + sway, y + (toY - y) * t, size * (1 - 0.6 * t));
  }
}

// A word in letters of 5 x 7 dots.
static void stamp(Image8u& mask, int32_t left, int32_t top, int32_t dot) {
  static const char* const word[7] = {"#   #  ###  ### #### ", "#   # #   #  #  #   #", "#   # #   #  #  #   #",
                                      "#   # #   #  #  #   #", " # #  #   #  #  #   #", " # #  #   #  #  #   #",
                                      "  #    ###  ### #### "};
  for (int32_t row = 0; row < 7; ++row) {
    for (int32_t column = 0; word[row][column]; ++column) {
      if (word[row][column] == ' ') continue;
      for (int32_t y = top + row * dot; y < std::min(mask.height, top + (row + 1) * dot); ++y) {
        for (int32_t x = left + column * dot; x < std::min(mask.width, left + (column + 1) * dot); ++x) {
          mask.row(y)[x] = 255;
        }
      }
    }
  }
}

static Image8u damageOf(QoriSize size) {
  Image8u mask(size.width, size.height);
  const double w = size.width, h = size.height, thick = std::max(0.8, std::min(w, h) / 170);
  scratch(mask, 0.05 * w, 0.12 * h, 0.93 * w, 0.38 * h, thick);
  scratch(mask, 0.30 * w, 0.02 * h, 0.42 * w, 0.95 * h, thick);
  scratch(mask, 0.97 * w, 0.55 * h, 0.10 * w, 0.66 * h, 1.3 * thick);
  scratch(mask, 0.72 * w, 0.05 * h, 0.64 * w, 0.60 * h, 0.8 * thick);
  scratch(mask, 0.02 * w, 0.85 * h, 0.30 * w, 0.45 * h, 0.8 * thick);
  const int32_t dot = std::max(1, size.width / 110);
  stamp(mask, size.width / 2, size.height * 3 / 4, dot);
  return mask;
}

static Image8u damaged(const Image8u& picture, const Image8u& mask) {
  Image8u result = picture;
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < result.rowLength(); ++x) {
      if (mask.row(y)[x / result.channels]) result.row(y)[x] = 255;
    }
  }
  return result;
}

// The picture in dark grey, and on it the depth of each damaged pixel, from yellow at the edge to red and violet.
static Visible asDepth(const Image8u& picture, const Image32f& depth) {
  Visible visible{Image8u(picture.width, picture.height, 3), ""};
  float deepest = 0.01f;
  for (int32_t y = 0; y < depth.height; ++y)
    deepest = std::max(deepest, *std::max_element(depth.row(y), depth.row(y) + depth.width));
  for (int32_t y = 0; y < depth.height; ++y) {
    for (int32_t x = 0; x < depth.width; ++x) {
      uint8_t* pixel = visible.image.row(y) + 3 * x;
      const float t = depth.row(y)[x] / deepest;
      const auto level = [](float v) { return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 255.0f))); };
      if (t > 0) {
        pixel[0] = level(255 - 110 * std::max(0.0f, 2 * t - 1));
        pixel[1] = level(240 * (1 - 1.6f * t));
        pixel[2] = level(40 + 215 * std::max(0.0f, 2 * t - 1));
      } else {
        std::fill_n(pixel, 3, static_cast<uint8_t>(picture.row(y)[x] * 2 / 5));
      }
    }
  }
  char deep[64];
  std::snprintf(deep, sizeof deep, "Yellow is the edge, violet %.1f pixels deep.", static_cast<double>(deepest));
  visible.scale = deep;
  return visible;
}

static Visible timesFour(const Image8u& image) {
  Visible visible{image, "Black is 0, white is 64 or more."};
  for (uint8_t& value : visible.image.store) value = static_cast<uint8_t>(std::min(4 * value, 255));
  return visible;
}

// --- figures ---

// How far the damaged pixels are from the original, on average.
static std::string awayFrom(const Image8u& original, const Image8u& other, const Image8u& mask) {
  double sum = 0, count = 0;
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < original.rowLength(); ++x) {
      if (mask.row(y)[x / original.channels] == 0) continue;
      sum += std::abs(original.row(y)[x] - other.row(y)[x]);
      count += 1;
    }
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", count > 0 ? sum / count : 0.0);
  return text;
}

static std::string shareOf(const Image8u& mask) {
  double count = 0;
  for (int32_t y = 0; y < mask.height; ++y)
    count += static_cast<double>(mask.width - std::count(mask.row(y), mask.row(y) + mask.width, 0));
  char text[32];
  std::snprintf(text, sizeof text, "%.1f percent", 100 * count / mask.width / mask.height);
  return text;
}

// --- the station ---

void visitInpainting(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const Image8u hole = damageOf(roiSize), before = damaged(picture.gray, hole);
  Image32f depth(roiSize.width, roiSize.height);
  Image8u restored(roiSize.width, roiSize.height), other = restored, apart = restored;

  const uint8_t* mask = hole.data();
  const int32_t maskStep = hole.step(), distanceStep = depth.step();
  float* distance = depth.data();
  const Step march =
      TOUR_STEP_WITH_BUFFER(qoriFastMarchingGetBufferSize_8u32f_C1R(roiSize, &bufferSize),
                            qoriFastMarching_8u32f_C1R(mask, maskStep, distance, distanceStep, roiSize, 0, buffer));
  // Two threads may round the last bit in another way, so the distances of several runs are not compared.
  const Times marching = measure({march}, hole);

  // Each run makes a new state, and the last one stays.
  const auto makeState = [&](int32_t flags, State& owner, Times& times) {
    auto made = std::make_shared<QoriInpaintState_8u_C1R*>(nullptr);
    QoriInpaintState_8u_C1R** state = made.get();
    Step step =
        TOUR_STEP(qoriInpaintInitAlloc_8u_C1R(state, distance, distanceStep, mask, maskStep, roiSize, radius, flags));
    step.call = [&owner, made, call = step.call](uint8_t* buffer) {
      const QorStatus status = call(buffer);
      owner.reset(*made);
      return status;
    };
    times = measure({step}, hole);
    return step;
  };
  State extrapolate, isophote;
  Times making;
  const Step make = makeState(qorInpaintExtrapolate, extrapolate, making);
  makeState(qorInpaintIsophote, isophote, making);

  const uint8_t* src = before.data();
  const int32_t srcStep = before.step(), dstStep = restored.step();
  const auto inpaint = [&](uint8_t* dst, QoriInpaintState_8u_C1R* state) {
    return TOUR_STEP(qoriInpaint_8u_C1R(src, srcStep, dst, dstStep, roiSize, state));
  };
  const std::string away = " grey levels from the original on average; ";
  const std::string lost = awayFrom(picture.gray, before, hole);

  wall.push_back({{"depth", "Scratches, and how deep they are",
                   "Scratches and a stamp cover " + shareOf(hole) +
                       " of the picture; what lay under them is lost. Fast marching gives each lost pixel its distance "
                       "from the edge: the order in which the pixels are filled."},
                  codeOf({march}),
                  marching,
                  asDepth(before, depth)});

  wall.push_back({{"damaged", "The damaged picture",
                   "What the restoration starts from, and nothing else: the white pixels are " + lost +
                       " grey levels from the original on average. The hole and the distances become a state, which "
                       "serves any number of pictures with the same scratches."},
                  codeOf({make}),
                  making,
                  asItIs(before)});

  Step step = inpaint(restored.data(), extrapolate.get());
  Times times = measure({step}, restored);
  wall.push_back({{"extrapolated", "Restored by extrapolation",
                   "Known neighbours weigh in by their distance and by the way into the hole. The filled pixels are " +
                       awayFrom(picture.gray, restored, hole) + away + "the damaged ones were " + lost + "."},
                  codeOf({step}),
                  times,
                  asItIs(restored)});

  step = inpaint(other.data(), isophote.get());
  times = measure({step}, other);
  wall.push_back({{"isophotes", "Restored along lines of equal brightness",
                   "Neighbours weigh in by how well they lie along such a line. The filled pixels are " +
                       awayFrom(picture.gray, other, hole) + away + "the damaged ones were " + lost + "."},
                  codeOf({step}),
                  times,
                  asItIs(other)});

  const uint8_t *src1 = picture.gray.data(), *src2 = other.data();
  const int32_t step1 = picture.gray.step(), step2 = other.step(), apartStep = apart.step();
  uint8_t* difference = apart.data();
  hang(wall,
       {"difference", "What is still wrong",
        "The difference between the second restoration and the original. Even areas come back unseen, detail that lay "
        "wholly under a scratch does not."},
       {TOUR_STEP(qoriAbsDiff_8u_C1R(src1, step1, src2, step2, difference, apartStep, roiSize))}, apart, timesFour);

  if (picture.colour.empty()) return;
  const Image8u colourBefore = damaged(picture.colour, hole);
  Image8u colour(roiSize.width, roiSize.height, 3);
  QoriInpaintState_8u_C3R* state = nullptr;
  require("qoriInpaintInitAlloc_8u_C3R", qoriInpaintInitAlloc_8u_C3R(&state, distance, distanceStep, mask, maskStep,
                                                                     roiSize, radius, qorInpaintIsophote));
  const State ofColour(state);
  src = colourBefore.data();
  uint8_t* dst = colour.data();
  const int32_t colourStep = colour.step();
  step = TOUR_STEP(qoriInpaint_8u_C3R(src, colourStep, dst, colourStep, roiSize, state));
  times = measure({step}, colour);
  wall.push_back({{"colour", "Restored in colour",
                   "The same damage in the colour picture, filled along lines of equal brightness, channel by channel. "
                   "The filled values are " +
                       awayFrom(picture.colour, colour, hole) + " levels from the original on average."},
                  codeOf({step}),
                  times,
                  asItIs(colour)});
}

}  // namespace tour
