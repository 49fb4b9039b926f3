// A street made from the picture: discs drive across it, a part of it sways like leaves, and a sensor adds grain. Two
// background models watch and tell the discs from the rest.
//
// Odd: a model changes with every frame, so frames are timed one by one and never repeated;
// the models use one thread however many there are.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>

#include "drawing.h"
#include "failure.h"
#include "station.h"

namespace tour {

static constexpr int32_t frameCount = 40, longestSide = 168, shownFrames[] = {10, 27, 33};

namespace {

struct Street {
  std::vector<Image8u> frames;       // of three channels
  std::vector<Image8u> truth;        // 255 where a disc is
  int32_t leavesLeft, leavesBottom;  // the corner above and to the right of them sways
};

// What a model made of the frames.
struct Watched {
  std::vector<std::string> code;
  std::vector<Image8u> masks;
  Image8u background;
  Times times;  // of one frame, all its calls

  explicit Watched(const Street& street, int32_t channels)
      : background(street.frames[0].width, street.frames[0].height, channels) {
    for (const Image8u& frame : street.frames) masks.emplace_back(frame.width, frame.height);
  }
};

}  // namespace

// In three channels, its longer side cut down to what the models see in no time; each pixel is a mean.
static Image8u smallCopy(const Image8u& picture) {
  const int32_t longer = std::max(picture.width, picture.height);
  const auto scaled = [&](int32_t length) {
    return longer <= longestSide ? length : std::max(1, static_cast<int32_t>(int64_t{length} * longestSide / longer));
  };
  Image8u copy(scaled(picture.width), scaled(picture.height), 3);
  for (int32_t v = 0; v < copy.height; ++v) {
    const int32_t top = static_cast<int32_t>(int64_t{v} * picture.height / copy.height);
    const int32_t bottom = static_cast<int32_t>((int64_t{v} + 1) * picture.height / copy.height);
    for (int32_t u = 0; u < copy.width; ++u) {
      const int32_t left = static_cast<int32_t>(int64_t{u} * picture.width / copy.width);
      const int32_t right = static_cast<int32_t>((int64_t{u} + 1) * picture.width / copy.width);
      for (int32_t c = 0; c < 3; ++c) {
        int32_t sum = 0;
        for (int32_t y = top; y < bottom; ++y) {
          for (int32_t x = left; x < right; ++x) {
            sum += picture.row(y)[ptrdiff_t{x} * picture.channels + c % picture.channels];
          }
        }
        copy.row(v)[3 * u + c] = static_cast<uint8_t>(sum / ((bottom - top) * (right - left)));
      }
    }
  }
  return copy;
}

static Street makeStreet(const Image8u& scene) {
  Street street{{}, {}, scene.width * 11 / 20, scene.height * 9 / 20};
  std::mt19937 random(1);
  const auto upTo = [&](uint32_t reach) { return static_cast<int32_t>(random() % (2 * reach + 1) - reach); };
  const double radius = std::max(1.0, 0.075 * std::min(scene.width, scene.height));
  // A yellow one to the right, and behind it a magenta one to the left.
  struct Disc {
    double lane, from, pace;
    Colour colour;
  };
  const double way = scene.width + 2 * radius;
  const Disc discs[] = {
      {0.82 * scene.height, -radius - 0.1 * way, 1.1 * way / frameCount, {250, 215, 40}},
      {0.60 * scene.height, scene.width + radius + 0.1 * way, -1.2 * way / frameCount, {240, 40, 200}}};
  for (int32_t i = 0; i < frameCount; ++i) {
    Image8u frame(scene.width, scene.height, 3), truth(scene.width, scene.height);
    const int32_t sway = i == 0 ? 0 : upTo(1);
    for (int32_t y = 0; y < frame.height; ++y) {
      for (int32_t x = 0; x < frame.width; ++x) {
        const bool leaf = x >= street.leavesLeft && y < street.leavesBottom;
        const int32_t from = leaf ? std::clamp(x + sway, 0, scene.width - 1) : x;
        const uint8_t* colour = scene.row(y) + ptrdiff_t{3} * from;
        for (const Disc& disc : discs) {
          if (std::hypot(x - disc.from - disc.pace * i, y - disc.lane) > radius) continue;
          colour = disc.colour;
          truth.row(y)[x] = 255;
        }
        for (int32_t c = 0; c < 3; ++c) {
          frame.row(y)[3 * x + c] = static_cast<uint8_t>(std::clamp(colour[c] + upTo(2), 0, 255));
        }
      }
    }
    street.frames.push_back(std::move(frame));
    street.truth.push_back(std::move(truth));
  }
  return street;
}

// Frame by frame, by turns with one thread and with all. `make` makes the model with a step, `stepsOf` the steps of a
// frame, and `release` is the end of it.
template <class State, class Make, class StepsOf, class Release>
static void watch(Watched& watched, Make make, StepsOf stepsOf, Release release) {
  using Clock = std::chrono::steady_clock;
  State* state = nullptr;
  const Step first = make(&state);
  require(first.code, first.call(nullptr));
  const std::unique_ptr<State, Release> owner(state, release);
  watched.times = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
  std::vector<Step> last;
  for (int32_t i = 1; i < frameCount; ++i) {
    const bool one = i % 2 != 0;
    require("qorSetNumThreads", qorSetNumThreads(one ? 1 : 0));
    last = stepsOf(i, state);
    const Clock::time_point start = Clock::now();
    run(last);
    const double time = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    double& shortest = one ? watched.times.oneThread : watched.times.allThreads;
    shortest = std::min(shortest, time);
  }
  require("qorSetNumThreads", qorSetNumThreads(0));
  watched.code = {first.code + ";", "for (each later frame) {"};
  for (const Step& step : last) watched.code.back() += "\n  " + step.code + ";";
  watched.code.back() += "\n}";
}

static const char anything = 0;

static Watched watchWithGaussians(const Street& street) {
  Watched watched(street, 3);
  const int32_t srcStep = street.frames[0].step(), dstStep = watched.masks[0].step(),
                refStep = watched.background.step();
  const QoriSize roiSize = street.frames[0].size();
  uint8_t* ref = watched.background.data();
  const auto make = [&](QoriFGGaussianState_8u** state) {
    const uint8_t* src = street.frames[0].data();
    const void* model = &anything;
    return TOUR_STEP(qoriForegroundGaussianInitAlloc_8u_C3R(src, srcStep, roiSize, model, state));
  };
  const auto stepsOf = [&](int32_t i, QoriFGGaussianState_8u* state) -> std::vector<Step> {
    const uint8_t* src = street.frames[static_cast<size_t>(i)].data();
    uint8_t* dst = watched.masks[static_cast<size_t>(i)].data();
    return {TOUR_STEP(qoriForegroundGaussian_8u_C3R(src, srcStep, ref, refStep, dst, dstStep, roiSize, state))};
  };
  watch<QoriFGGaussianState_8u>(watched, make, stepsOf, qoriForegroundGaussianFree_8u_C3R);
  return watched;
}

static Watched watchInGrey(const Street& street) {
  Watched watched(street, 1);
  std::vector<Image8u> frames;
  for (const Image8u& frame : street.frames) frames.push_back(toGray(frame));
  const int32_t srcStep = frames[0].step(), dstStep = watched.masks[0].step(), refStep = watched.background.step();
  const QoriSize roiSize = frames[0].size();
  uint8_t* ref = watched.background.data();
  const auto make = [&](QoriFGGaussianState_8u** state) {
    const uint8_t* src = frames[0].data();
    const void* model = &anything;
    return TOUR_STEP(qoriForegroundGaussianInitAlloc_8u_C1R(src, srcStep, roiSize, model, state));
  };
  const auto stepsOf = [&](int32_t i, QoriFGGaussianState_8u* state) -> std::vector<Step> {
    const uint8_t* src = frames[static_cast<size_t>(i)].data();
    uint8_t* dst = watched.masks[static_cast<size_t>(i)].data();
    return {TOUR_STEP(qoriForegroundGaussian_8u_C1R(src, srcStep, ref, refStep, dst, dstStep, roiSize, state))};
  };
  watch<QoriFGGaussianState_8u>(watched, make, stepsOf, qoriForegroundGaussianFree_8u_C1R);
  return watched;
}

static Watched watchWithHistograms(const Street& street) {
  Watched watched(street, 3);
  const int32_t srcStep = street.frames[0].step(), dstStep = watched.masks[0].step(),
                refStep = watched.background.step();
  const QoriSize roiSize = street.frames[0].size();
  uint8_t* ref = watched.background.data();
  const auto make = [&](QoriFGHistogramState_8u** state) {
    const uint8_t* src = street.frames[0].data();
    const void* model = &anything;
    return TOUR_STEP(qoriForegroundHistogramInitAlloc_8u_C3R(src, srcStep, roiSize, model, state));
  };
  const auto stepsOf = [&](int32_t i, QoriFGHistogramState_8u* state) -> std::vector<Step> {
    const uint8_t* src = street.frames[static_cast<size_t>(i)].data();
    uint8_t* dst = watched.masks[static_cast<size_t>(i)].data();
    return {TOUR_STEP(qoriForegroundHistogram_8u_C3R(src, srcStep, dst, dstStep, roiSize, state)),
            TOUR_STEP(qoriForegroundHistogramUpdate_8u_C3R(src, srcStep, dst, dstStep, ref, refStep, roiSize, state))};
  };
  watch<QoriFGHistogramState_8u>(watched, make, stepsOf, qoriForegroundHistogramFree_8u_C3R);
  return watched;
}

// Rows of pictures of one size, with gaps between them.
static Image8u mosaic(const std::vector<std::vector<Image8u>>& rows) {
  constexpr int32_t gap = 6;
  const int32_t width = rows[0][0].width, height = rows[0][0].height, columns = static_cast<int32_t>(rows[0].size());
  Image8u all(columns * (width + gap) - gap, static_cast<int32_t>(rows.size()) * (height + gap) - gap, 3);
  std::fill(all.store.begin(), all.store.end(), uint8_t{128});
  for (size_t r = 0; r < rows.size(); ++r) {
    for (size_t k = 0; k < rows[r].size(); ++k) {
      const Image8u& one = rows[r][k];
      const int32_t left = static_cast<int32_t>(k) * (width + gap), top = static_cast<int32_t>(r) * (height + gap);
      for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < 3 * width; ++x) {
          all.row(top + y)[3 * left + x] = one.row(y)[x / 3 * one.channels + x % 3 % one.channels];
        }
      }
    }
  }
  return all;
}

// The shown frames, and their masks below them.
static Image8u framesAndMasks(const Street& street, const Watched& watched) {
  std::vector<std::vector<Image8u>> rows(2);
  for (const int32_t i : shownFrames) {
    rows[0].push_back(street.frames[static_cast<size_t>(i)]);
    rows[1].push_back(watched.masks[static_cast<size_t>(i)]);
  }
  return mosaic(rows);
}

// The shown frames in dim grey: discs that were found, missed, and what was taken for one.
static Image8u judged(const Street& street, const Watched& watched) {
  std::vector<std::vector<Image8u>> row(1);
  for (const int32_t shown : shownFrames) {
    const auto i = static_cast<size_t>(shown);
    Image8u marked = dimmed(toGray(street.frames[i]), 60);
    for (int32_t y = 0; y < marked.height; ++y) {
      for (int32_t x = 0; x < marked.width; ++x) {
        const bool is = watched.masks[i].row(y)[x] != 0, should = street.truth[i].row(y)[x] != 0;
        if (is || should) dot(marked, x, y, is && should ? green : should ? red : orange);
      }
    }
    row[0].push_back(std::move(marked));
  }
  return mosaic(row);
}

// A column: shares of the pixels of the frames from `first` on that were called foreground.
static void addShares(Table& table, const std::string& name, const Street& street, const Watched& watched,
                      size_t first) {
  int64_t called[3] = {}, all[3] = {};
  for (size_t i = first; i < watched.masks.size(); ++i) {
    for (int32_t y = 0; y < watched.masks[i].height; ++y) {
      for (int32_t x = 0; x < watched.masks[i].width; ++x) {
        const bool leaf = x >= street.leavesLeft && y < street.leavesBottom;
        const int32_t kind = street.truth[i].row(y)[x] != 0 ? 0 : leaf ? 1 : 2;
        ++all[kind];
        called[kind] += watched.masks[i].row(y)[x] != 0;
      }
    }
  }
  table[0].push_back(name);
  for (size_t kind = 0; kind < 3; ++kind) {
    char text[32] = "none there";
    if (all[kind] > 0) {
      snprintf(text, sizeof text, "%.1f %%",
               100.0 * static_cast<double>(called[kind]) / static_cast<double>(all[kind]));
    }
    table[kind + 1].push_back(text);
  }
}

void visitStreet(const Picture& picture, Wall& wall) {
  const Street street = makeStreet(smallCopy(picture.colour.empty() ? picture.gray : picture.colour));
  const Watched gaussians = watchWithGaussians(street), histograms = watchWithHistograms(street),
                grey = watchInGrey(street);
  const auto hangUp = [&](const Label& label, const Watched& watched, const Image8u& image) {
    wall.push_back({label, watched.code, watched.times, asItIs(image)});
  };
  const Image8u& passing = street.frames[33];

  hangUp({"gaussian-masks", "Gaussian components",
          "Frames 10, 27 and 33, and below them what the model calls foreground. Each pixel learns up to five "
          "components of its own; what fits a common one is background, so the few positions of the leaves are soon "
          "learnt."},
         gaussians, framesAndMasks(street, gaussians));
  hangUp({"gaussian-judged", "Gaussian components, judged",
          "Against the truth: discs that were found are green, missed ones red, and orange is what was taken for a "
          "disc."},
         gaussians, judged(street, gaussians));
  hangUp(
      {"gaussian-background", "The background learnt by components",
       "Frame 33, and what the model holds for the background after the last one, the mean of the strongest component "
       "of each pixel: no disc, and hardly any grain."},
      gaussians, mosaic({{passing, gaussians.background}}));
  hangUp({"histogram-masks", "Tables of values and changes",
          "The same frames with the other model. It decides, then learns with its own decision. Until a pixel has seen "
          "22 frames, every change of it is foreground; later its tables know how leaves change."},
         histograms, framesAndMasks(street, histograms));
  hangUp({"histogram-judged", "Tables of values and changes, judged",
          "Green is found, red is missed, orange is a false alarm. The threshold for a change is found in each frame, "
          "by the first channel; "
          "what differs less is not looked at, so a disc loses the parts that resemble the street. Early on, the place "
          "that a disc has just left counts as well."},
         histograms, judged(street, histograms));
  hangUp(
      {"histogram-background", "The background learnt by tables",
       "Frame 33, and the background image after the last one. It takes over what was decided to be background, so a "
       "disc that was missed may leave a trace."},
      histograms, mosaic({{passing, histograms.background}}));
  hangUp({"grey-masks", "Gaussian components, one channel",
          "The same in grey, where a disc as bright as the street disappears into it; half of the memory, and faster."},
         grey, framesAndMasks(street, grey));

  constexpr size_t settled = 25;
  Table table = {{"Called foreground"}, {"Discs"}, {"Leaves"}, {"Street"}};
  addShares(table, "Components", street, gaussians, settled);
  addShares(table, "Components, grey", street, grey, settled);
  addShares(table, "Tables", street, histograms, settled);
  wall.push_back({{"shares", "In numbers",
                   "Frames 25 to 39: the share of the pixels of discs, of swaying leaves and of the rest of the street "
                   "that each model called foreground. The first should be all, the others none."},
                  histograms.code,
                  histograms.times,
                  {},
                  table});
}

}  // namespace tour
