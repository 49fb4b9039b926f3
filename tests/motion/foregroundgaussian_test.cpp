// Gaussian background model: every frame of many sequences against a model that follows the rules word by word, in
// doubles, one pixel at a time.
#include <gtest/gtest.h>
#include <math.h>

#include "support/any_image.h"
#include "support/instrumented.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

using State = QoriFGGaussianState_8u;

struct Member {
  int32_t channels;
  QorStatus (*init)(const uint8_t*, int32_t, QoriSize, const void*, State**);
  QorStatus (*frame)(const uint8_t*, int32_t, uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  QorStatus (*free)(State*);
};
const Member members[] = {
    {1, qoriForegroundGaussianInitAlloc_8u_C1R, qoriForegroundGaussian_8u_C1R, qoriForegroundGaussianFree_8u_C1R},
    {3, qoriForegroundGaussianInitAlloc_8u_C3R, qoriForegroundGaussian_8u_C3R, qoriForegroundGaussianFree_8u_C3R}};

const char anything = 0;  // the `model` argument

// --- the literal model ---

// What happened to the pixels of a test, to see that the sequences lead everywhere.
struct Events {
  int64_t missed = 0, missedInFrame200 = 0, matchedLater = 0, moved = 0, emptyMatched = 0, emptyMatchedInFrame200 = 0,
          otherPlaceRead = 0, infiniteKey = 0, stopped = 0;
};

struct Place {
  int count;
  double weight, variance[3], mean[3];
};

struct PixelModel {
  int channels;
  Place places[5];

  PixelModel(int channels_, const uint8_t* pixel) : channels(channels_) {
    for (int k = 0; k < 5; ++k) {
      places[k].count = k == 0 ? 1 : 0;
      places[k].weight = k == 0 ? 1.0 : 0.0;
      for (int c = 0; c < channels; ++c) {
        places[k].variance[c] = 12.5;
        places[k].mean[c] = k == 0 ? pixel[c] : 0.0;
      }
    }
  }

  double variance(const Place& p) const {
    return channels == 1 ? p.variance[0] : p.variance[0] + p.variance[1] + p.variance[2];
  }
  double squareDistance(const Place& p, const uint8_t* x) const {
    const double a = p.mean[0] - x[0];
    if (channels == 1) return a * a;
    const double b = p.mean[1] - x[1], c = p.mean[2] - x[2];
    return a * a + b * b + c * c;
  }
  double key(const Place& p) const { return p.count <= 0 ? 0.0 : p.weight / sqrt(variance(p)); }
  int sumOfCounts() const {
    int sum = 0;
    for (const Place& p : places) sum += p.count;
    return sum;
  }

  // Returns the mask; `background` receives the channels.
  uint8_t frame(int n, const uint8_t* x, uint8_t* background, Events& events) {
    const int K = 5, L = 200;
    int flags[K] = {0, 0, 0, 0, 0};

    // match
    int matched = -1;
    for (int k = 0; k < K && matched < 0; ++k) {
      if (variance(places[k]) * (2.5 * 2.5) > squareDistance(places[k], x)) {
        flags[k] = 1;
        matched = k;
      }
    }
    events.missed += matched < 0;
    events.missedInFrame200 += matched < 0 && n == L;
    events.matchedLater += matched > 0;
    events.emptyMatched += matched >= 0 && places[matched].count == 0;
    events.emptyMatchedInFrame200 += matched >= 0 && places[matched].count == 0 && n == L;

    // update
    const double a = n == L ? 1.0 / L : 1.0 / (sumOfCounts() + 1);
    for (int k = 0; k < K; ++k) {
      if (n != L) places[k].count += flags[k];
      places[k].weight = places[k].weight + (flags[k] - places[k].weight) * a;
    }
    if (matched >= 0) {
      Place& p = places[matched];
      const double r = n == L ? 1.0 / (L * p.weight) : 1.0 / p.count;
      for (int c = 0; c < channels; ++c) {
        const double d = x[c] - p.mean[c];
        p.mean[c] = p.mean[c] + d * r;
        p.variance[c] = p.variance[c] + (d * d - p.variance[c]) * r;
      }
    } else {
      Place& last = places[K - 1];
      last.count = 1;
      for (int c = 0; c < channels; ++c) {
        last.variance[c] = 900.0;
        last.mean[c] = x[c];
      }
      const int sum = sumOfCounts();
      if (n == L) {
        last.weight = 1.0 / sum;
        for (int k = 0; k < K - 1; ++k) places[k].weight *= 1 - 1.0 / L;
      } else {
        for (int k = 0; k < K; ++k) places[k].weight = double(places[k].count) / sum;
      }
    }

    // sort: neighbours change places while the one behind has the strictly greater key
    int from[K] = {0, 1, 2, 3, 4};
    for (int i = 1; i < K; ++i) {
      for (int k = i; k > 0 && key(places[k]) > key(places[k - 1]); --k) {
        std::swap(places[k], places[k - 1]);
        std::swap(from[k], from[k - 1]);
        ++events.moved;
      }
    }
    for (const Place& p : places) events.infiniteKey += std::isinf(key(p));

    // background
    for (int c = 0; c < channels; ++c) background[c] = uint8_t(int(places[0].mean[c] + 0.5));

    // foreground
    uint8_t mask = 255;
    double sum = 0;
    for (int k = 0; k < K; ++k) {
      sum += places[k].weight;
      if (flags[k]) mask = 0;
      if (sum > 0.7) break;
    }
    events.otherPlaceRead += matched >= 0 && from[matched] != matched && mask == 0;
    events.stopped += matched >= 0 && mask == 255;
    return mask;
  }
};

// --- sequences ---

using Bytes = std::vector<uint8_t>;

struct Frame : AnyImage<uint8_t> {
  Frame(Random& random, QoriSize size, int32_t channels, const Bytes& pixels)
      : AnyImage<uint8_t>(random, size, channels) {
    auto next = pixels.begin();
    fill([&] { return *next++; });
  }
};

// A library state and the models of its pixels, fed with the same frames. Every frame lies in new memory.
struct Sequence {
  const Member& member;
  Random& random;
  QoriSize size;
  State* state = nullptr;
  std::vector<PixelModel> models;
  int n = 0;
  Events& events;
  Bytes mask, background;  // of the last frame, as the models say

  Sequence(const Member& member_, Random& random_, QoriSize size_, const Bytes& first, Events& events_)
      : member(member_), random(random_), size(size_), events(events_) {
    const auto src = image(first);
    EXPECT_EQ(member.init(src.data(), src.step(), size, &anything, &state), qorStatusOk);
    for (int64_t i = 0; i < int64_t(size.width) * size.height; ++i) {
      models.emplace_back(member.channels, first.data() + i * member.channels);
    }
  }
  ~Sequence() { EXPECT_EQ(member.free(state), qorStatusOk); }
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

  Frame image(const Bytes& pixels) { return Frame(random, size, member.channels, pixels); }

  std::string wrongIn(const Bytes& pixels) {
    const auto src = image(pixels);
    AnyImage<uint8_t> ref(random, size, member.channels), dst(random, size);
    const Bytes before = src.bytes();
    const QorStatus status =
        member.frame(src.data(), src.step(), ref.data(), ref.step(), dst.data(), dst.step(), size, state);
    ++n;
    mask.assign(models.size(), 0);
    background.assign(pixels.size(), 0);
    for (size_t i = 0; i < models.size(); ++i) {
      const size_t at = i * member.channels;
      mask[i] = models[i].frame(n, pixels.data() + at, background.data() + at, events);
    }
    if (status != qorStatusOk) return "status " + std::to_string(status);
    if (src.bytes() != before) return "wrote into the frame";
    if (!ref.gapsIntact() || !dst.gapsIntact()) return "wrote outside the region";
    std::string wrong =
        difference(dst, [&](int32_t x, int32_t y, int32_t) { return mask[size_t(y) * size.width + x]; });
    if (!wrong.empty()) return "mask " + wrong + ", frame " + std::to_string(n);
    wrong = difference(ref, [&](int32_t x, int32_t y, int32_t c) {
      return background[(size_t(y) * size.width + x) * member.channels + c];
    });
    return wrong.empty() ? "" : "background " + wrong + ", frame " + std::to_string(n);
  }

  // Frames of one value.
  std::string wrongInConstants(int count, uint8_t value) {
    std::string wrong;
    for (int i = 0; i < count && wrong.empty(); ++i) wrong = wrongIn(Bytes(models.size() * member.channels, value));
    return wrong;
  }
};

// What a pixel does over time.
enum Habit { steady, noisy, jumping, alternating, dark, wild, drifting, rareJumps, habits };

// All channels of a pixel have a habit of their own, or all of them that of the first.
struct Scene {
  std::vector<int> habit;
  Bytes base, other;
  Random& random;

  Scene(Random& random_, size_t count) : random(random_) {
    for (size_t i = 0; i < count; ++i) {
      const bool same = i % 3 != 0 && random.chance(0.7);
      habit.push_back(same ? habit.back() : int(random.number(0, habits - 1)));
      base.push_back(random.value<uint8_t>());
      other.push_back(random.value<uint8_t>());
    }
  }
  Bytes frame(int n) {
    Bytes pixels;
    const auto near = [&](int value, int reach) {
      return uint8_t(std::clamp(value + int(random.number(-reach, reach)), 0, 255));
    };
    for (size_t i = 0; i < base.size(); ++i) {
      switch (habit[i]) {
        case steady: pixels.push_back(base[i]); break;
        case noisy: pixels.push_back(near(base[i], 6)); break;
        case jumping: pixels.push_back(near(random.chance(0.4) ? other[i] : base[i], 2)); break;
        case alternating: pixels.push_back(n % 2 ? other[i] : base[i]); break;
        case dark: pixels.push_back(uint8_t(random.chance(0.8) ? random.number(0, 9) : random.number(0, 60))); break;
        case wild: pixels.push_back(random.value<uint8_t>()); break;
        case drifting: pixels.push_back(near(base[i] + n % 90, 3)); break;
        default: pixels.push_back(random.chance(0.02) ? random.value<uint8_t>() : near(base[i], 1)); break;
      }
    }
    return pixels;
  }
};

class ForegroundGaussian : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { EXPECT_EQ(services::liveBlocks(), 0); }
};

TEST_F(ForegroundGaussian, anySize) {
  Random random(1);
  Events events;
  for (const Member& member : members) {
    for (int round = 0; round < 40; ++round) {
      const QoriSize size = round == 0 ? QoriSize{1, 1} : QoriSize{random.width(140), int32_t(random.number(1, 12))};
      const size_t count = size_t(size.width) * size.height * member.channels;
      Scene scene(random, count);
      Sequence sequence(member, random, size, scene.frame(0), events);
      for (int n = 1; n <= 8; ++n) ASSERT_EQ(sequence.wrongIn(scene.frame(n)), "");
    }
    Scene scene(random, size_t(301) * 107 * member.channels);
    Sequence sequence(member, random, {301, 107}, scene.frame(0), events);
    for (int n = 1; n <= 5; ++n) ASSERT_EQ(sequence.wrongIn(scene.frame(n)), "");
  }
}

// Through the frame of the other rule and beyond, where the components crowd and their order changes.
TEST_F(ForegroundGaussian, longSequences) {
  Random random(2);
  for (const Member& member : members) {
    Events events;
    Scene scene(random, size_t(61) * 23 * member.channels);
    Sequence sequence(member, random, {61, 23}, scene.frame(0), events);
    for (int n = 1; n <= 420; ++n) ASSERT_EQ(sequence.wrongIn(scene.frame(n)), "");
    EXPECT_GT(events.missed, 1000);
    EXPECT_GT(events.matchedLater, 1000);
    EXPECT_GT(events.moved, 1000);
    EXPECT_GT(events.emptyMatched, 0);
    EXPECT_GT(events.otherPlaceRead, 100);
    EXPECT_GT(events.stopped, 100);
  }
}

TEST_F(ForegroundGaussian, manyShortLivesAroundFrame200) {
  Random random(3);
  for (const Member& member : members) {
    Events events;
    // Bright up to frame 199, then dark in some pixels: an empty component is learnt without being counted.
    Sequence sequence(member, random, {64, 2}, Bytes(size_t(128) * member.channels, 150), events);
    for (int n = 1; n <= 230; ++n) {
      Bytes pixels(size_t(128) * member.channels, 150);
      for (int i = 0; i < 128; ++i) {
        const bool unusual = n > 198 ? random.chance(0.6) : i % 4 == 0 && random.chance(0.1);
        const uint8_t value = random.chance(0.5) ? uint8_t(random.number(0, 9)) : random.value<uint8_t>();
        for (int c = 0; c < member.channels && unusual; ++c) pixels[size_t(i) * member.channels + c] = value;
      }
      ASSERT_EQ(sequence.wrongIn(pixels), "");
    }
    EXPECT_GT(events.emptyMatchedInFrame200, 0);
    EXPECT_GT(events.missedInFrame200, 0);
  }
}

TEST_F(ForegroundGaussian, everyGreyValueFromEveryOther) {
  Random random(4);
  Events events;
  Bytes first, second;
  for (int i = 0; i < 65536; ++i) {
    first.push_back(uint8_t(i));
    second.push_back(uint8_t(i >> 8));
  }
  Sequence sequence(members[0], random, {256, 256}, first, events);
  for (const Bytes& frame : {second, first, second, second, first}) ASSERT_EQ(sequence.wrongIn(frame), "");
}

TEST_F(ForegroundGaussian, anUnchangedSceneIsBackground) {
  Random random(5);
  Events events;
  for (const Member& member : members) {
    Scene scene(random, size_t(23) * 5 * member.channels);
    const Bytes still = scene.frame(0);
    Sequence sequence(member, random, {23, 5}, still, events);
    for (int n = 1; n <= 205; ++n) {
      ASSERT_EQ(sequence.wrongIn(still), "");
      ASSERT_EQ(sequence.mask, Bytes(23 * 5, 0));
      ASSERT_EQ(sequence.background, still);
    }
  }
}

TEST_F(ForegroundGaussian, aNewValueIsForegroundInItsFrame) {
  Random random(6);
  Events events;
  for (const Member& member : members) {
    Sequence sequence(member, random, {3, 2}, Bytes(size_t(6) * member.channels, 60), events);
    EXPECT_EQ(sequence.wrongInConstants(9, 60), "");
    EXPECT_EQ(sequence.wrongInConstants(1, 180), "");
    EXPECT_EQ(sequence.mask, Bytes(6, 255));
    EXPECT_EQ(sequence.background, Bytes(size_t(6) * member.channels, 60));
    const Place& made = sequence.models[0].places[1];
    EXPECT_EQ(made.count, 1);
    EXPECT_EQ(made.weight, 1.0 / 11);
    // It becomes background when the first component no longer holds the fraction.
    int frames = 0;
    for (; sequence.mask[0] == 255 && frames < 100; ++frames) ASSERT_EQ(sequence.wrongInConstants(1, 180), "");
    EXPECT_GT(frames, 2);
    EXPECT_LT(frames, 10);
  }
}

// Only that frame counts nothing; the ones behind it go on with the counts.
TEST_F(ForegroundGaussian, frame200AloneHasAnotherRule) {
  Random random(7);
  Events events;
  for (const Member& member : members) {
    Sequence sequence(member, random, {1, 1}, Bytes(size_t(member.channels), 100), events);
    const auto countAfter = [&](int frames) {
      EXPECT_EQ(sequence.wrongInConstants(frames, uint8_t(100)), "");
      return sequence.models[0].places[0].count;
    };
    EXPECT_EQ(countAfter(199), 200);
    EXPECT_EQ(countAfter(1), 200);
    EXPECT_EQ(countAfter(1), 201);
    // At a rate of 1/200 the first weight would fall to 0.67 now; at that of all frames it is 201 of 281.
    EXPECT_EQ(sequence.wrongInConstants(80, 200), "");
    EXPECT_EQ(sequence.background[0], 100);
    EXPECT_EQ(sequence.mask[0], 255);
  }
}

// The component of mean 0 that nobody has used matches dark pixels; black in it leaves no variance, so that it goes to
// the front and never matches again.
TEST_F(ForegroundGaussian, darkPixelsMatchEmptyComponents) {
  Random random(8);
  for (const Member& member : members) {
    for (int value = 0; value <= 16; ++value) {
      Events events;
      Sequence sequence(member, random, {2, 2}, Bytes(size_t(4) * member.channels, 200), events);
      ASSERT_EQ(sequence.wrongInConstants(1, uint8_t(value)), "") << value;
      // 12.5 * 6.25 is 78.125; in three channels 234.375 against 3 * 64.
      EXPECT_EQ(events.emptyMatched, value <= 8 ? 4 : 0) << value;
      ASSERT_EQ(sequence.wrongInConstants(12, uint8_t(value)), "") << value;
      EXPECT_EQ(events.infiniteKey > 0, value == 0) << value;
    }
    Events events;
    Sequence sequence(member, random, {2, 2}, Bytes(size_t(4) * member.channels, 200), events);
    for (int i = 0; i < 30; ++i) {
      ASSERT_EQ(sequence.wrongInConstants(2, uint8_t(i % 3)), "");
      ASSERT_EQ(sequence.wrongInConstants(2, uint8_t(200 - i)), "");
    }
    EXPECT_GT(events.infiniteKey, 0);
  }
}

// A component that goes from the second place to the front has its flag at the second place in that frame. With most of
// the weight at the front it is not read: the very frame in which the background changes is foreground once more.
TEST_F(ForegroundGaussian, theFlagStaysAtItsPlace) {
  Random random(9);
  for (const Member& member : members) {
    Events events;
    Sequence sequence(member, random, {1, 1}, Bytes(size_t(member.channels), 100), events);
    ASSERT_EQ(sequence.wrongInConstants(7, 100), "");  // weights of the front from here: 8/9, 8/10, 8/11, 8/12
    std::string masks;
    uint8_t background = 100;
    for (int i = 0; i < 60; ++i) {
      ASSERT_EQ(sequence.wrongInConstants(1, 200), "");
      if (sequence.background[0] != background) masks += '!';
      background = sequence.background[0];
      masks += sequence.mask[0] ? 'f' : 'b';
    }
    EXPECT_EQ(background, 200);
    EXPECT_EQ(masks.substr(0, 4), "fffb") << masks;
    EXPECT_NE(masks.find("bb!fbb"), std::string::npos) << masks;
    EXPECT_EQ(events.stopped, 2 + 1) << masks;
  }
}

TEST_F(ForegroundGaussian, resultsMayTakeThePlaceOfTheFrame) {
  Random random(10);
  for (const Member& member : members) {
    const QoriSize size = {37, 9};
    Scene scene(random, size_t(37) * 9 * member.channels);
    Events events;
    Sequence sequence(member, random, size, scene.frame(0), events);
    const auto first = sequence.image(scene.frame(0));
    for (const bool mask : {false, true}) {
      State* state = nullptr;
      ASSERT_EQ(member.init(first.data(), first.step(), size, &anything, &state), qorStatusOk);
      const Frame frame = sequence.image(scene.frame(1));
      Image<uint8_t> ref(37, 9, member.channels), dst(37, 9), other(37, 9, member.channels), otherMask(37, 9);
      State* twin = nullptr;
      ASSERT_EQ(member.init(first.data(), first.step(), size, &anything, &twin), qorStatusOk);
      ASSERT_EQ(member.frame(frame.data(), frame.step(), ref.data(), ref.step(), dst.data(), dst.step(), size, twin),
                qorStatusOk);
      if (mask) {
        ASSERT_EQ(member.frame(frame.data(), frame.step(), other.data(), other.step(), frame.data(), frame.step(), size,
                               state),
                  qorStatusOk);
        for (int32_t y = 0; y < 9; ++y) ASSERT_EQ(memcmp(frame.data() + y * frame.step(), dst.data() + y * 37, 37), 0);
      } else {
        ASSERT_EQ(member.frame(frame.data(), frame.step(), frame.data(), frame.step(), otherMask.data(),
                               otherMask.step(), size, state),
                  qorStatusOk);
        EXPECT_EQ(difference(frame, [&](int32_t x, int32_t y, int32_t c) { return ref.get(x, y, c); }), "");
      }
      EXPECT_EQ(member.free(state), qorStatusOk);
      EXPECT_EQ(member.free(twin), qorStatusOk);
    }
  }
}

// The table is walked by the size of the call; one that would run out of it is refused.
TEST_F(ForegroundGaussian, aSmallerRegionTakesThePixelsInARow) {
  Random random(11);
  for (const Member& member : members) {
    const int32_t channels = member.channels;
    const QoriSize made = {6, 5}, called = {4, 3};
    Image<uint8_t> first(6, 5, channels), frame(4, 3, channels), ref(4, 3, channels), dst(4, 3);
    first.fill([&] { return random.value<uint8_t>(); });
    frame.fill([&] { return random.value<uint8_t>(); });
    State* state = nullptr;
    ASSERT_EQ(member.init(first.data(), first.step(), made, &anything, &state), qorStatusOk);
    ASSERT_EQ(member.frame(frame.data(), frame.step(), ref.data(), ref.step(), dst.data(), dst.step(), called, state),
              qorStatusOk);
    Events events;
    for (int i = 0; i < 12; ++i) {
      PixelModel model(channels, first.data() + i * channels);
      uint8_t background[3];
      EXPECT_EQ(dst.get(i % 4, i / 4), model.frame(1, frame.data() + i * channels, background, events));
      for (int c = 0; c < channels; ++c) EXPECT_EQ(ref.get(i % 4, i / 4, c), background[c]);
    }
    Image<uint8_t> large(7, 7, channels), largeRef(7, 7, channels), largeDst(7, 7);
    for (const QoriSize size : {QoriSize{7, 1}, QoriSize{1, 6}, QoriSize{6, 6}, QoriSize{7, 5}, QoriSize{5, 6}}) {
      EXPECT_EQ(member.frame(large.data(), large.step(), largeRef.data(), largeRef.step(), largeDst.data(),
                             largeDst.step(), size, state),
                qorStatusBadSize);
    }
    EXPECT_EQ(largeDst.bytes(), Bytes(49, 0));
    // A model of the other number of channels has other components.
    for (const Member& other : members) {
      if (other.channels == channels) continue;
      Image<uint8_t> frames(4, 3, 3), refs(4, 3, 3);
      EXPECT_EQ(
          other.frame(frames.data(), frames.step(), refs.data(), refs.step(), dst.data(), dst.step(), called, state),
          qorStatusBadSize);
    }
    EXPECT_EQ(member.free(state), qorStatusOk);
  }
}

struct Args {
  const uint8_t* src;
  int32_t srcStep;
  uint8_t *ref, *dst;
  int32_t refStep, dstStep;
  QoriSize roiSize;
  const void* model;
  State** place;
  State* state;
};

TEST_F(ForegroundGaussian, statuses) {
  for (const Member& member : members) {
    const int32_t channels = member.channels;
    Image<uint8_t> src(9, 4, channels), ref(9, 4, channels), dst(9, 4);
    State* state = nullptr;
    const Args good = {src.data(), src.step(), ref.data(), dst.data(), ref.step(),
                       dst.step(), {9, 4},     &anything,  &state,     nullptr};
    const Fault<Args> noSrc = {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }};
    const std::vector<Fault<Args>> sizes = {{"roiSize", qorStatusBadSize, [](Args& a) { a.roiSize.width = 0; }},
                                            {"roiSize", qorStatusBadSize, [](Args& a) { a.roiSize.height = 0; }},
                                            {"roiSize", qorStatusBadSize,
                                             [](Args& a) {
                                               a.roiSize = {-3, 4};
                                             }},
                                            {"roiSize", qorStatusBadSize, [](Args& a) {
                                               a.roiSize = {9, INT32_MIN};
                                             }}};
    const std::vector<Fault<Args>> steps = {
        {"srcStep", qorStatusBadStep, [=](Args& a) { a.srcStep = 9 * channels - 1; }},
        {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = 0; }},
        {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = INT32_MIN; }}};

    std::vector<Fault<Args>> faults = {noSrc,
                                       {"model", qorStatusNullPtr, [](Args& a) { a.model = nullptr; }},
                                       {"state", qorStatusNullPtr, [](Args& a) { a.place = nullptr; }}};
    faults.insert(faults.end(), sizes.begin(), sizes.end());
    faults.insert(faults.end(), steps.begin(), steps.end());
    expectStatuses<Args>(
        good, faults, [&](const Args& a) { return member.init(a.src, a.srcStep, a.roiSize, a.model, a.place); },
        [&] {
          EXPECT_EQ(services::allocations(), 0);
          return Bytes(reinterpret_cast<uint8_t*>(&state), reinterpret_cast<uint8_t*>(&state + 1));
        });
    ASSERT_NE(state, nullptr);

    faults = {noSrc,
              {"ref", qorStatusNullPtr, [](Args& a) { a.ref = nullptr; }},
              {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
              {"state", qorStatusNullPtr, [](Args& a) { a.state = nullptr; }}};
    faults.insert(faults.end(), sizes.begin(), sizes.end());
    faults.push_back({"roiSize", qorStatusBadSize, [](Args& a) { a.roiSize.width = 10; }});
    faults.push_back({"roiSize", qorStatusBadSize, [](Args& a) { a.roiSize.height = 5; }});
    faults.insert(faults.end(), steps.begin(), steps.end());
    Args call = good;
    call.state = state;
    expectStatuses<Args>(
        call, faults,
        [&](const Args& a) {
          return member.frame(a.src, a.srcStep, a.ref, a.refStep, a.dst, a.dstStep, a.roiSize, a.state);
        },
        [&] {
          Bytes all = ref.bytes();
          const Bytes mask = dst.bytes();
          all.insert(all.end(), mask.begin(), mask.end());
          return all;
        });
    // The steps of the results are not tested: here every row lands on the first.
    EXPECT_EQ(member.frame(src.data(), src.step(), ref.data(), 0, dst.data(), 0, src.size(), state), qorStatusOk);
    EXPECT_EQ(member.free(nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.free(state), qorStatusOk);
    services::reset();
  }
}

TEST_F(ForegroundGaussian, aFailingCallIsNoFrame) {
  Random random(12);
  for (const Member& member : members) {
    Events events;
    Sequence sequence(member, random, {4, 2}, Bytes(size_t(8) * member.channels, 100), events);
    ASSERT_EQ(sequence.wrongInConstants(195, 100), "");
    Image<uint8_t> image(4, 2, member.channels), mask(4, 2);
    for (int i = 0; i < 9; ++i) {
      EXPECT_EQ(member.frame(image.data(), 1, image.data(), image.step(), mask.data(), 4, image.size(), sequence.state),
                qorStatusBadStep);
      EXPECT_EQ(
          member.frame(image.data(), image.step(), image.data(), image.step(), mask.data(), 4, {0, 2}, sequence.state),
          qorStatusBadSize);
    }
    for (int i = 0; i < 12; ++i) ASSERT_EQ(sequence.wrongInConstants(1, uint8_t(i % 3 ? 90 : 140)), "");
  }
}

TEST_F(ForegroundGaussian, failingAllocationsLeaveNothing) {
  for (const Member& member : members) {
    Image<uint8_t> src(5, 3, member.channels);
    State *const untouched = reinterpret_cast<State*>(0x1234), *state = untouched;
    for (int64_t i = 0; i < 5; ++i) {
      services::failAfter(i);
      EXPECT_EQ(member.init(src.data(), src.step(), src.size(), &anything, &state), qorStatusNoMemory);
      EXPECT_EQ(state, untouched);
      EXPECT_EQ(services::liveBlocks(), 0);
    }
    services::failAfter(5);
    EXPECT_EQ(member.init(src.data(), src.step(), src.size(), &anything, &state), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 5);
    // Frames need no memory of their own.
    Image<uint8_t> ref(5, 3, member.channels), dst(5, 3);
    EXPECT_EQ(member.frame(src.data(), src.step(), ref.data(), ref.step(), dst.data(), dst.step(), src.size(), state),
              qorStatusOk);
    EXPECT_EQ(member.free(state), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
}

// Sizes whose products wrap never get a block that is too short.
TEST_F(ForegroundGaussian, hugeSizesHaveNoMemory) {
  for (const Member& member : members) {
    const uint8_t pixel[3] = {1, 2, 3};
    State* const untouched = reinterpret_cast<State*>(0x1234);
    const auto refused = [&](QoriSize size) {
      State* state = untouched;
      const QorStatus status = member.init(pixel, INT32_MAX, size, &anything, &state);
      return status == qorStatusNoMemory && state == untouched && services::liveBlocks() == 0;
    };
    EXPECT_TRUE(refused({715827882, INT32_MAX}));
    EXPECT_TRUE(refused({1 << 29, 1 << 29}));
    // A row of three channels whose length wraps passes the test of the step.
    if (member.channels == 3) {
      EXPECT_TRUE(refused({1 << 30, 1}));
      EXPECT_TRUE(refused({INT32_MAX, 1}));
    } else {
      EXPECT_TRUE(refused({INT32_MAX, INT32_MAX}));
    }
    if (instrumented()) continue;              // the sanitizer stops the program where so much is asked for
    EXPECT_TRUE(refused({1 << 20, 1 << 20}));  // 2^40 pixels, 0 in 32 bits
  }
}

}  // namespace
