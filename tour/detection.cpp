// Detection: stages of weak classifiers that find small marks pasted into the picture.
//
// The tour draws the marks, learns thresholds from examples of them and of the picture, and builds the stages; the
// library applies them to every window. Learning is the plain kind: round by round the classifier that errs least on
// the examples, which then weigh the more the more often they were misjudged.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <random>

#include "drawing.h"
#include "failure.h"
#include "station.h"

namespace tour {

namespace {

constexpr int32_t side = 24;  // of the windows
constexpr int32_t exampleCount = 160, otherCount = 500;

enum class Mark { square, diamond };

struct Place {
  Mark mark;
  int32_t x, y;
};

// Rectangles and weights that sum to 0 over an even surface, and whether they are turned by 45 degrees.
struct Shape {
  std::vector<QoriRect> rects;
  std::vector<float> weights;
  bool tilted;
};

// What all shapes say of a window, in units of its deviation.
struct Example {
  bool positive;
  std::vector<float> answers;
};

struct Weak {
  size_t shape;
  float threshold, below, above;
};

struct Trained {
  std::vector<Weak> weak;
  float threshold;
};

struct FreeStage {
  void operator()(QoriHaarClassifier_32f* stage) const { qoriHaarClassifierFree_32f(stage); }
};
using StageOwner = std::unique_ptr<QoriHaarClassifier_32f, FreeStage>;

}  // namespace

// --- marks ---

// Bright on a dark surround, and mixed with a little of what was there; `contrast` from 0 to 1.
static void paste(Image8u& picture, const Place& place, double contrast, std::mt19937& random) {
  for (int32_t v = 0; v < side; ++v) {
    for (int32_t u = 0; u < side; ++u) {
      const int32_t x = place.x + u, y = place.y + v;
      if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) continue;
      const double across = std::abs(u - 11.5), down = std::abs(v - 11.5);
      const bool bright = place.mark == Mark::square ? std::max(across, down) < 6 : across + down < 9;
      const double grain = static_cast<double>(random() % 25) - 12;
      const double value = 0.15 * picture.row(y)[x] + 108 + (bright ? 95 : -75) * contrast + grain;
      picture.row(y)[x] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
    }
  }
}

static double anyContrast(std::mt19937& random) { return 0.4 + 0.6 * static_cast<double>(random() % 1000) / 1000; }

// One mark in every other cell of a grid, by turns a square and a diamond.
static std::vector<Place> placesIn(QoriSize size, std::mt19937& random) {
  std::vector<Place> places;
  const int32_t cell = std::max(side, std::min(72, std::min(size.width, size.height)));
  for (int32_t row = 0; (row + 1) * cell <= size.height; ++row) {
    for (int32_t column = row % 2; (column + 1) * cell <= size.width; column += 2) {
      const auto within = [&] { return static_cast<int32_t>(random() % static_cast<uint32_t>(cell - side + 1)); };
      const int32_t x = column * cell + within(), y = row * cell + within();
      places.push_back({places.size() % 2 ? Mark::diamond : Mark::square, x, y});
    }
  }
  return places;
}

// --- learning ---

// Shapes of two rectangles: all of the window against a part of it. Shapes of three: a bar against its two sides.
static std::vector<Shape> uprightShapes(bool three) {
  std::vector<Shape> shapes;
  for (int32_t height = 4; height <= 16; height += 4) {
    for (int32_t width = 4; width <= 16; width += 4) {
      for (int32_t y = 0; y + height <= side; y += 4) {
        for (int32_t x = 0; x + width <= side; x += 4) {
          const QoriRect part = {x, y, width, height};
          const float ratio = static_cast<float>(side * side) / static_cast<float>(width * height);
          shapes.push_back({{{0, 0, side, side}, part}, {-1, ratio}, false});
          if (three && x >= 4 && x + width + 4 <= side) {
            const float bar = 8.0f / static_cast<float>(width);
            shapes.push_back({{{x - 4, y, 4, height}, part, {x + width, y, 4, height}}, {-1, bar, -1}, false});
          }
          if (three && y >= 4 && y + height + 4 <= side) {
            const float bar = 8.0f / static_cast<float>(height);
            shapes.push_back({{{x, y - 4, width, 4}, part, {x, y + height, width, 4}}, {-1, bar, -1}, false});
          }
        }
      }
    }
  }
  return shapes;
}

// The largest diamond in the window against a smaller one.
static std::vector<Shape> tiltedShapes() {
  std::vector<Shape> shapes;
  for (int32_t length = 3; length <= 9; length += 2) {
    for (int32_t y = 1; y + 2 * length < side; y += 2) {
      for (int32_t x = length; x + length < side; x += 2) {
        const float ratio = 121.0f / static_cast<float>(length * length);
        shapes.push_back({{{12, 1, 11, 11}, {x, y, length, length}}, {-1, ratio}, true});
      }
    }
  }
  return shapes;
}

// Both planes of a picture, and the deviation in each of its windows.
struct Planes {
  Image32s upright, tilted;
  Image32f norm;
};

static std::vector<Step> planeSteps(const Image8u& picture, Planes& planes) {
  const QoriSize roiSize = picture.size(), windows = {roiSize.width - side + 1, roiSize.height - side + 1};
  planes.upright = Image32s(roiSize.width + 1, roiSize.height + 1);
  planes.tilted = Image32s(roiSize.width + 2, roiSize.height + 2);
  planes.norm = Image32f(windows.width, windows.height);
  const auto squares = std::make_shared<Image64f>(roiSize.width + 1, roiSize.height + 1);
  const uint8_t* src = picture.data();
  int32_t *sum = planes.upright.data(), *tilt = planes.tilted.data();
  float* norm = planes.norm.data();
  const int32_t srcStep = picture.step(), sumStep = planes.upright.step(), tiltStep = planes.tilted.step();
  const int32_t sqrStep = squares->step(), normStep = planes.norm.step();
  const QoriRect rect = {0, 0, side, side};
  const Step sums =
      TOUR_STEP(qoriSqrIntegral_8u32s64f_C1R(src, srcStep, sum, sumStep, squares->data(), sqrStep, roiSize, 0, 0.0));
  return {sums, TOUR_STEP(qoriTiltedIntegral_8u32s_C1R(src, srcStep, tilt, tiltStep, roiSize, 0)),
          TOUR_STEP(qoriRectStdDev_32s32f_C1R(sum, sumStep, squares->data(), sqrStep, norm, normStep, windows, rect))};
}

static Example exampleOf(const Image8u& window, const std::vector<Shape>& shapes, bool positive) {
  Planes planes;
  run(planeSteps(window, planes));
  const float norm = std::max(1.0f, planes.norm.row(0)[0]);
  Example example = {positive, {}};
  for (const Shape& shape : shapes) {
    float answer = 0;
    for (size_t i = 0; i < shape.rects.size(); ++i) {
      const QoriRect r = shape.rects[i];
      const auto cell = [&](int32_t x, int32_t y) {
        return shape.tilted ? planes.tilted.row(y + 1)[x + 1] : planes.upright.row(y)[x];
      };
      const int32_t sum = shape.tilted ? cell(r.x + r.width - r.height, r.y + r.width + r.height) -
                                             cell(r.x - r.height, r.y + r.height) - cell(r.x + r.width, r.y + r.width) +
                                             cell(r.x, r.y)
                                       : cell(r.x + r.width, r.y + r.height) - cell(r.x, r.y + r.height) -
                                             cell(r.x + r.width, r.y) + cell(r.x, r.y);
      answer += static_cast<float>(sum) * shape.weights[i];
    }
    example.answers.push_back(answer / norm);
  }
  return example;
}

static Image8u cut(const Image8u& picture, int32_t left, int32_t top) {
  Image8u window(side, side);
  for (int32_t y = 0; y < side; ++y) std::copy_n(picture.row(top + y) + left, side, window.row(y));
  return window;
}

// Windows with the mark, at most a pixel off; and others: of the picture itself, with the other mark, or further off.
static std::vector<Example> examplesOf(const Image8u& picture, Mark mark, const std::vector<Shape>& shapes) {
  std::mt19937 random(7);
  const auto number = [&](int32_t first, int32_t last) {
    return first + static_cast<int32_t>(random() % static_cast<uint32_t>(last - first + 1));
  };
  std::vector<Example> examples;
  for (int32_t i = 0; i < exampleCount + otherCount; ++i) {
    const int32_t left = number(0, picture.width - side), top = number(0, picture.height - side);
    Image8u window = cut(picture, left, top);
    const bool positive = i < exampleCount;
    if (positive) {
      paste(window, {mark, number(-1, 1), number(-1, 1)}, anyContrast(random), random);
    } else if (i % 3 == 0) {
      const Mark other = mark == Mark::square ? Mark::diamond : Mark::square;
      paste(window, {other, number(-2, 2), number(-2, 2)}, anyContrast(random), random);
    } else if (i % 3 == 1) {
      int32_t x = 0, y = 0;
      while (std::abs(x) < 5 && std::abs(y) < 5) x = number(-16, 16), y = number(-16, 16);
      paste(window, {mark, x, y}, anyContrast(random), random);
    }
    examples.push_back(exampleOf(window, shapes, positive));
  }
  return examples;
}

// Windows of the bare picture that a stage takes for its mark, evenly picked: what the next stage has to learn.
static void addMistakes(const Image8u& picture, const QoriHaarClassifier_32f* stage, float threshold,
                        const std::vector<Shape>& shapes, std::vector<Example>& examples) {
  Planes planes;
  run(planeSteps(picture, planes));
  const QoriSize windows = planes.norm.size();
  Image8u mask(windows.width, windows.height);
  for (int32_t y = 0; y < mask.height; ++y) std::fill_n(mask.row(y), mask.width, uint8_t{255});
  int32_t alive = 0, passed = 0;
  require("qoriApplyHaarClassifier_32s32f_C1R",
          qoriApplyHaarClassifier_32s32f_C1R(planes.upright.data(), planes.upright.step(), planes.norm.data(),
                                             planes.norm.step(), mask.data(), mask.step(), windows, &alive, threshold,
                                             stage));
  const int32_t every = std::max(1, alive / otherCount);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (mask.row(y)[x] && passed++ % every == 0) examples.push_back(exampleOf(cut(picture, x, y), shapes, false));
    }
  }
}

static bool isBelow(const Weak& weak, const Example& example) { return weak.threshold > example.answers[weak.shape]; }

static float totalOf(const Trained& stage, const Example& example) {
  float total = 0;
  for (const Weak& weak : stage.weak) total += isBelow(weak, example) ? weak.below : weak.above;
  return total;
}

// `kinds` tells, round after round, from which shapes (upright or tilted) to pick.
static Trained learn(const std::vector<Shape>& shapes, const std::vector<Example>& examples,
                     const std::vector<bool>& kinds) {
  std::vector<std::vector<size_t>> sorted(shapes.size());
  for (size_t s = 0; s < shapes.size(); ++s) {
    for (size_t i = 0; i < examples.size(); ++i) sorted[s].push_back(i);
    std::sort(sorted[s].begin(), sorted[s].end(),
              [&](size_t a, size_t b) { return examples[a].answers[s] < examples[b].answers[s]; });
  }
  double positives = 0;
  for (const Example& example : examples) positives += example.positive;
  std::vector<double> burden;
  for (const Example& example : examples) {
    burden.push_back(0.5 /
                     std::max(1.0, example.positive ? positives : static_cast<double>(examples.size()) - positives));
  }
  Trained stage = {};
  for (const bool tilted : kinds) {
    Weak best = {0, 0, 0, 0};
    double all = 0, positive = 0, least = 1;
    for (size_t i = 0; i < examples.size(); ++i) {
      all += burden[i];
      if (examples[i].positive) positive += burden[i];
    }
    for (size_t s = 0; s < shapes.size(); ++s) {
      if (shapes[s].tilted != tilted) continue;
      // What a threshold just above example i gets wrong, if what lies below it is taken for the mark.
      double wrong = positive;
      for (size_t k = 0; k + 1 < sorted[s].size(); ++k) {
        const size_t i = sorted[s][k];
        wrong += examples[i].positive ? -burden[i] : burden[i];
        const float low = examples[i].answers[s], high = examples[sorted[s][k + 1]].answers[s];
        const bool belowIsMark = wrong < all - wrong;
        const double error = (belowIsMark ? wrong : all - wrong) / all;
        if (low == high || error >= least) continue;
        least = error;
        const float vote = static_cast<float>(0.5 * std::log((1 - error + 1e-3) / (error + 1e-3)));
        best = {s, (low + high) / 2, belowIsMark ? vote : -vote, belowIsMark ? -vote : vote};
      }
    }
    stage.weak.push_back(best);
    for (size_t i = 0; i < examples.size(); ++i) {
      const float vote = isBelow(best, examples[i]) ? best.below : best.above;
      burden[i] *= std::exp(static_cast<double>(examples[i].positive ? -vote : vote));
    }
  }
  // All but the worst hundredth of the marks pass.
  std::vector<float> totals;
  for (const Example& example : examples) {
    if (example.positive) totals.push_back(totalOf(stage, example));
  }
  std::sort(totals.begin(), totals.end());
  stage.threshold = totals[totals.size() / 100] - 1e-3f;
  return stage;
}

static StageOwner built(const std::vector<Shape>& shapes, const Trained& trained) {
  std::vector<QoriRect> feature;
  std::vector<float> weight, threshold, val1, val2;
  std::vector<int32_t> num;
  std::vector<uint8_t> tiltMask;
  for (const Weak& weak : trained.weak) {
    const Shape& shape = shapes[weak.shape];
    feature.insert(feature.end(), shape.rects.begin(), shape.rects.end());
    weight.insert(weight.end(), shape.weights.begin(), shape.weights.end());
    threshold.push_back(weak.threshold);
    val1.push_back(weak.below);
    val2.push_back(weak.above);
    num.push_back(static_cast<int32_t>(shape.rects.size()));
    tiltMask.push_back(shape.tilted);
  }
  QoriHaarClassifier_32f* state = nullptr;
  require("qoriHaarClassifierInitAlloc_32f",
          qoriHaarClassifierInitAlloc_32f(&state, feature.data(), weight.data(), threshold.data(), val1.data(),
                                          val2.data(), num.data(), static_cast<int32_t>(num.size())));
  StageOwner owner(state);
  require("qoriTiltHaarFeatures_32f", qoriTiltHaarFeatures_32f(tiltMask.data(), 1, state));
  return owner;
}

// --- showing ---

// Neighbouring survivors stand for one hit: the middle of all that are at most eight pixels from the first.
static std::vector<QoriPoint> hitsIn(Image8u mask) {
  constexpr int32_t reach = 8;
  std::vector<QoriPoint> hits;
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (!mask.row(y)[x]) continue;
      double sumX = 0, sumY = 0, count = 0;
      for (int32_t v = y; v <= std::min(y + reach, mask.height - 1); ++v) {
        for (int32_t u = std::max(0, x - reach); u <= std::min(x + reach, mask.width - 1); ++u) {
          if (!mask.row(v)[u]) continue;
          mask.row(v)[u] = 0;
          sumX += u, sumY += v, ++count;
        }
      }
      hits.push_back(
          {static_cast<int32_t>(std::lround(sumX / count)), static_cast<int32_t>(std::lround(sumY / count))});
    }
  }
  return hits;
}

static void box(Image8u& picture, QoriPoint at, Mark mark, const Colour& colour) {
  for (const int32_t more : {1, 2}) {
    const int32_t left = at.x - more, top = at.y - more, right = at.x + side - 1 + more, below = at.y + side - 1 + more;
    const double x = (left + right) * 0.5, y = (top + below) * 0.5;
    const double corners[2][4][2] = {
        {{1.0 * left, 1.0 * top}, {1.0 * right, 1.0 * top}, {1.0 * right, 1.0 * below}, {1.0 * left, 1.0 * below}},
        {{x, top - 2.0}, {right + 2.0, y}, {x, below + 2.0}, {left - 2.0, y}}};
    const auto& corner = corners[mark == Mark::diamond];
    for (int i = 0; i < 4; ++i) {
      line(picture, corner[i][0], corner[i][1], corner[(i + 1) % 4][0], corner[(i + 1) % 4][1], colour);
    }
  }
}

// Boxes about the hits, and what they are worth in words.
static std::string showHits(Image8u& picture, const Image8u& mask, const std::vector<Place>& places, Mark mark) {
  const std::vector<QoriPoint> hits = hitsIn(mask);
  const auto meets = [](const QoriPoint& hit, const Place& place) {
    return std::abs(hit.x - place.x) <= 4 && std::abs(hit.y - place.y) <= 4;
  };
  int32_t marks = 0, found = 0, wrong = 0;
  for (const Place& place : places) {
    if (place.mark != mark) continue;
    ++marks;
    found += std::any_of(hits.begin(), hits.end(), [&](const QoriPoint& hit) { return meets(hit, place); });
  }
  for (const QoriPoint& hit : hits) {
    const bool right = std::any_of(places.begin(), places.end(),
                                   [&](const Place& place) { return place.mark == mark && meets(hit, place); });
    wrong += !right;
    box(picture, hit, mark, right ? green : orange);
  }
  return std::to_string(found) + " of " + std::to_string(marks) + " are found (green), and " +
         (wrong == 1 ? "1 other place is" : std::to_string(wrong) + " other places are") + " taken for one (orange).";
}

static Image8u survivorsOver(const Image8u& scene, const Image8u& mask) {
  Image8u shown = dimmed(scene, 55);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (mask.row(y)[x]) dot(shown, x + side / 2, y + side / 2, cyan);
    }
  }
  return shown;
}

// The first step of a run, which begins with all windows alive.
static Step fromAllWindows(Step step, Image8u& mask) {
  uint8_t* first = mask.row(0);
  const size_t bytes = static_cast<size_t>(mask.step()) * static_cast<size_t>(mask.height);
  step.call = [first, bytes, call = step.call](uint8_t* buffer) {
    std::fill_n(first, bytes, uint8_t{255});
    return call(buffer);
  };
  return step;
}

void visitDetection(const Picture& picture, Wall& wall) {
  if (picture.gray.width < side || picture.gray.height < side) return;
  std::mt19937 random(3);
  const std::vector<Place> places = placesIn(picture.gray.size(), random);
  Image8u scene = picture.gray;
  for (const Place& place : places) paste(scene, place, anyContrast(random), random);

  Planes planes;
  run(planeSteps(scene, planes));
  const int32_t *src = planes.upright.data(), *tilt = planes.tilted.data();
  const float* norm = planes.norm.data();
  const int32_t srcStep = planes.upright.step(), tiltStep = planes.tilted.step(), normStep = planes.norm.step();
  const QoriSize windows = planes.norm.size();
  Image8u alive(windows.width, windows.height);
  uint8_t* mask = alive.data();
  const int32_t maskStep = alive.step();
  int32_t positives = 0;
  int32_t* positive = &positives;
  Table table = {{"Stage", "Classifiers", "Features", "Windows alive"},
                 {"before", "", "", std::to_string(int64_t{windows.width} * windows.height)}};
  const auto tellStage = [&](const char* name, const std::vector<Shape>& shapes, const Trained& stage) {
    size_t features = 0;
    for (const Weak& weak : stage.weak) features += shapes[weak.shape].rects.size();
    table.push_back({name, std::to_string(stage.weak.size()), std::to_string(features), std::to_string(positives)});
  };

  // Two stages for squares: a short one, and a longer one learnt from what the short one takes for a square.
  const std::vector<Shape> shapes = uprightShapes(true);
  std::vector<Example> examples = examplesOf(picture.gray, Mark::square, shapes);
  const Trained coarse = learn(shapes, examples, std::vector<bool>(4, false));
  const StageOwner coarseOwner = built(shapes, coarse);
  examples.erase(std::remove_if(examples.begin(), examples.end(),
                                [&](const Example& e) { return totalOf(coarse, e) < coarse.threshold; }),
                 examples.end());
  addMistakes(picture.gray, coarseOwner.get(), coarse.threshold, shapes, examples);
  const Trained fine = learn(shapes, examples, std::vector<bool>(16, false));
  const StageOwner fineOwner = built(shapes, fine);
  const float firstThreshold = coarse.threshold, secondThreshold = fine.threshold;
  const QoriHaarClassifier_32f *first = coarseOwner.get(), *second = fineOwner.get();
  const Step firstStep =
      fromAllWindows(TOUR_STEP(qoriApplyHaarClassifier_32s32f_C1R(src, srcStep, norm, normStep, mask, maskStep, windows,
                                                                  positive, firstThreshold, first)),
                     alive);
  const Step secondStep = TOUR_STEP(qoriApplyHaarClassifier_32s32f_C1R(src, srcStep, norm, normStep, mask, maskStep,
                                                                       windows, positive, secondThreshold, second));
  const Times firstTimes = measure({firstStep}, alive);
  tellStage("squares, first", shapes, coarse);
  wall.push_back({{"first-stage", "After a first stage of four classifiers",
                   "The middles of the windows of 24×24 pixels that may hold a bright square on a dark ground: " +
                       std::to_string(positives) + " of " + table[1][3] + " are still alive (cyan)."},
                  codeOf({firstStep}),
                  firstTimes,
                  asItIs(survivorsOver(scene, alive))});

  const std::vector<Step> bothSteps = {firstStep, secondStep};
  const Times bothTimes = measure(bothSteps, alive);
  tellStage("squares, second", shapes, fine);
  Image8u squares = dimmed(scene, 80);
  const std::string squaresFound = showHits(squares, alive, places, Mark::square);
  wall.push_back(
      {{"squares", "Squares, after a second stage",
        "Sixteen more classifiers of two and three features look at what the first stage left. Of the squares " +
            squaresFound},
       codeOf(bothSteps),
       bothTimes,
       asItIs(squares)});

  // One stage for diamonds, of upright and tilted features by turns.
  std::vector<Shape> mixedShapes = uprightShapes(false);
  for (const Shape& shape : tiltedShapes()) mixedShapes.push_back(shape);
  std::vector<bool> turns;
  for (int i = 0; i < 20; ++i) turns.push_back(i % 2 == 0);
  const Trained mixed = learn(mixedShapes, examplesOf(picture.gray, Mark::diamond, mixedShapes), turns);
  const StageOwner mixedOwner = built(mixedShapes, mixed);
  const float threshold = mixed.threshold;
  const QoriHaarClassifier_32f* stage = mixedOwner.get();
  const Step mixedStep = fromAllWindows(
      TOUR_STEP(qoriApplyMixedHaarClassifier_32s32f_C1R(src, srcStep, tilt, tiltStep, norm, normStep, mask, maskStep,
                                                        windows, positive, threshold, stage)),
      alive);
  const Times mixedTimes = measure({mixedStep}, alive);
  tellStage("diamonds, mixed", mixedShapes, mixed);
  Image8u diamonds = dimmed(scene, 80);
  const std::string diamondsFound = showHits(diamonds, alive, places, Mark::diamond);
  wall.push_back(
      {{"diamonds", "Diamonds, by upright and tilted features",
        "A stage in which every other classifier reads diamonds from a tilted plane. Of the diamonds " + diamondsFound},
       codeOf({mixedStep}),
       mixedTimes,
       asItIs(diamonds)});
  wall.push_back({{"survivors", "Windows alive after each stage",
                   "Most windows are done with after the first, short stage; so a detector looks longer only where it "
                   "may pay. The stage for diamonds starts from all windows again."},
                  codeOf({firstStep, secondStep, mixedStep}),
                  measure({firstStep, secondStep, mixedStep}, alive),
                  {},
                  table});
}

}  // namespace tour
