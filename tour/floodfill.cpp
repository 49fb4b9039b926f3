// Flood fills in colour: of equal pixels, of pixels in a range about the seed's value, and along small steps.
//
// The fills run on the grey picture in three equal channels, so that no colour that is filled in can be taken for a
// value of the picture. Fills are in place: each run begins with the tour's own copy of the picture, which its time
// contains.
#include <cstdio>
#include <memory>

#include "drawing.h"
#include "station.h"

namespace tour {

namespace {

constexpr int32_t places = 3;

struct Fills {
  Image8u before, image;
  QoriPoint seeds[places];
  QoriConnectedComp regions[places];
};

}  // namespace

// The steps, on a fresh copy of the picture.
static std::vector<Step> afresh(const std::shared_ptr<Fills>& fills, std::vector<Step> steps) {
  steps.front().call = [fills, call = steps.front().call](uint8_t* buffer) {
    std::copy(fills->before.store.begin(), fills->before.store.end(), fills->image.store.begin());
    return call(buffer);
  };
  return steps;
}

static std::string describe(const QoriConnectedComp& region, const Image8u& image) {
  char text[160];
  std::snprintf(text, sizeof text, "%.0f pixels (%.1f %%) in a box of %d × %d at %d, %d", region.area,
                region.area * 100 / (static_cast<double>(image.width) * image.height), region.rect.width,
                region.rect.height, region.rect.x, region.rect.y);
  return text;
}

static void box(Image8u& picture, const QoriRect& rect, const Colour& colour) {
  const int32_t right = rect.x + rect.width - 1, bottom = rect.y + rect.height - 1;
  line(picture, rect.x, rect.y, right, rect.y, colour);
  line(picture, rect.x, bottom, right, bottom, colour);
  line(picture, rect.x, rect.y, rect.x, bottom, colour);
  line(picture, right, rect.y, right, bottom, colour);
}

static constexpr Colour white = {255, 255, 255}, black = {0, 0, 0};
static constexpr const Colour* colours[places] = {&orange, &cyan, &green};

// The filled picture with the box of each region, and its seed as a ring.
static Visible drawn(const Fills& fills, const std::vector<size_t>& shown) {
  Visible visible{fills.image, ""};
  for (const size_t i : shown) box(visible.image, fills.regions[i].rect, *colours[i]);
  for (const size_t i : shown) {
    circle(visible.image, fills.seeds[i].x, fills.seeds[i].y, 3, white);
    circle(visible.image, fills.seeds[i].x, fills.seeds[i].y, 4, black);
    if (!visible.scale.empty()) visible.scale += "; ";
    visible.scale += fills.regions[i].area > 0 ? describe(fills.regions[i], fills.image) : "nothing";
  }
  visible.scale = (shown.size() > 1 ? "Filled, from the first seed to the last: " : "Filled: ") + visible.scale + ".";
  return visible;
}

// In few tones, so that there are regions of equal pixels.
static Image8u posterised(const Image8u& gray, int32_t tones) {
  Image8u flat = gray;
  for (uint8_t& v : flat.store) v = static_cast<uint8_t>((v * tones / 256 * 2 + 1) * 255 / (2 * tones));
  return flat;
}

void visitFloodFill(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const auto fills = std::make_shared<Fills>();
  const auto prepare = [&](const Image8u& gray) {
    fills->before = dimmed(gray, 100);
    if (fills->image.empty()) fills->image = fills->before;  // the calls keep its address
    const auto at = [&](int32_t x, int32_t y) { return QoriPoint{roiSize.width * x / 100, roiSize.height * y / 100}; };
    const QoriPoint seeds[places] = {at(78, 5), at(40, 45), at(4, 95)};
    for (int32_t i = 0; i < places; ++i) {
      fills->seeds[i] = seeds[i];
      fills->regions[i] = {};
    }
  };
  prepare(posterised(picture.gray, 5));
  uint8_t* const srcDst = fills->image.data();
  const int32_t srcDstStep = fills->image.step();
  const QoriPoint first = fills->seeds[0], second = fills->seeds[1], third = fills->seeds[2];
  QoriConnectedComp *const region = fills->regions, *const region2 = region + 1, *const region3 = region + 2;

  hang(wall,
       {"equal", "Equal pixels",
        "The picture in five tones, and three fills of what has the seed's tone and hangs together by sides, each in "
        "its own colour. Rings are the seeds, frames the boxes that the fills report."},
       afresh(fills, {TOUR_STEP_WITH_BUFFER(
                          qoriFloodFillGetSize(roiSize, &bufferSize),
                          qoriFloodFill_4Con_8u_C3IR(srcDst, srcDstStep, roiSize, first, orange, region, buffer)),
                      TOUR_STEP_WITH_BUFFER(
                          qoriFloodFillGetSize(roiSize, &bufferSize),
                          qoriFloodFill_4Con_8u_C3IR(srcDst, srcDstStep, roiSize, second, cyan, region2, buffer)),
                      TOUR_STEP_WITH_BUFFER(
                          qoriFloodFillGetSize(roiSize, &bufferSize),
                          qoriFloodFill_4Con_8u_C3IR(srcDst, srcDstStep, roiSize, third, green, region3, buffer))}),
       fills->image, [&](const Image8u&) {
         return drawn(*fills, {0, 1, 2});
       });

  prepare(posterised(picture.gray, 2));
  hang(wall,
       {"diagonals", "Sides only, or diagonals too",
        "The picture in two tones. First a fill in orange that may go diagonally, then one in blue that may not, over "
        "what is orange: what stays orange only hangs together by corners."},
       afresh(fills, {TOUR_STEP_WITH_BUFFER(
                          qoriFloodFillGetSize(roiSize, &bufferSize),
                          qoriFloodFill_8Con_8u_C3IR(srcDst, srcDstStep, roiSize, second, orange, region, buffer)),
                      TOUR_STEP_WITH_BUFFER(
                          qoriFloodFillGetSize(roiSize, &bufferSize),
                          qoriFloodFill_4Con_8u_C3IR(srcDst, srcDstStep, roiSize, second, cyan, region2, buffer))}),
       fills->image, [&](const Image8u&) {
         Fills shown = *fills;
         shown.seeds[0] = shown.seeds[1];
         return drawn(shown, {0, 1});
       });

  prepare(picture.gray);
  static constexpr uint8_t delta30[3] = {30, 30, 30};
  hang(wall,
       {"range", "A range about the seed",
        "Pixels whose values differ from the seed's by at most 30, on the picture as it is. Single pixels that are too "
        "far off are left out, however smooth their surroundings."},
       afresh(fills, {TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize(roiSize, &bufferSize),
                                            qoriFloodFill_Range4Con_8u_C3IR(srcDst, srcDstStep, roiSize, first, orange,
                                                                            delta30, delta30, region, buffer)),
                      TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize(roiSize, &bufferSize),
                                            qoriFloodFill_Range4Con_8u_C3IR(srcDst, srcDstStep, roiSize, second, cyan,
                                                                            delta30, delta30, region2, buffer)),
                      TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize(roiSize, &bufferSize),
                                            qoriFloodFill_Range4Con_8u_C3IR(srcDst, srcDstStep, roiSize, third, green,
                                                                            delta30, delta30, region3, buffer))}),
       fills->image, [&](const Image8u&) {
         return drawn(*fills, {0, 1, 2});
       });

  static constexpr uint8_t delta2[3] = {2, 2, 2}, delta5[3] = {5, 5, 5}, delta10[3] = {10, 10, 10};
  const auto hangSteps = [&](const Label& label, size_t seed, const Step& step) {
    prepare(picture.gray);
    hang(wall, label, afresh(fills, {step}), fills->image, [&](const Image8u&) { return drawn(*fills, {seed}); });
  };
  hangSteps(
      {"steps-2", "Steps of at most 2",
       "All that can be reached from one seed by going from pixel to pixel, diagonals included, without the value "
       "changing by more than 2 at a time. Slow changes are followed however far they lead."},
      0,
      TOUR_STEP_WITH_BUFFER(
          qoriFloodFillGetSize_Grad(roiSize, &bufferSize),
          qoriFloodFill_Grad8Con_8u_C3IR(srcDst, srcDstStep, roiSize, first, orange, delta2, delta2, region, buffer)));
  hangSteps({"steps-5", "Steps of at most 5", "The same with larger steps: weak edges no longer hold the fill."}, 0,
            TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize_Grad(roiSize, &bufferSize),
                                  qoriFloodFill_Grad8Con_8u_C3IR(srcDst, srcDstStep, roiSize, first, orange, delta5,
                                                                 delta5, region, buffer)));
  hangSteps({"steps-10", "Steps of at most 10", "Larger still: one gap in an edge lets the fill through."}, 0,
            TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize_Grad(roiSize, &bufferSize),
                                  qoriFloodFill_Grad8Con_8u_C3IR(srcDst, srcDstStep, roiSize, first, orange, delta10,
                                                                 delta10, region, buffer)));
  static constexpr uint8_t delta1[3] = {1, 1, 1}, delta6[3] = {6, 6, 6};
  hangSteps({"uphill", "Rather up than down",
             "Steps that may rise by up to 6 but fall by no more than 1: from the dark at the lower left the fill "
             "climbs easily "
             "and comes down only where the slope is gentle."},
            2,
            TOUR_STEP_WITH_BUFFER(qoriFloodFillGetSize_Grad(roiSize, &bufferSize),
                                  qoriFloodFill_Grad8Con_8u_C3IR(srcDst, srcDstStep, roiSize, third, green, delta1,
                                                                 delta6, region3, buffer)));
}

}  // namespace tour
