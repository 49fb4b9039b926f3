// Histogram background model: against a model that moves every entry of every table, frame after frame.
#include <gtest/gtest.h>
#include <malloc.h>
#include <math.h>

#include <array>
#include <memory>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

using State = QoriFGHistogramState_8u;

struct Member {
  int32_t channels;
  QorStatus (*init)(const uint8_t*, int32_t, QoriSize, const void*, State**);
  QorStatus (*frame)(const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  QorStatus (*update)(const uint8_t*, int32_t, const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  QorStatus (*free)(State*);
};

const Member c1 = {1, qoriForegroundHistogramInitAlloc_8u_C1R, qoriForegroundHistogram_8u_C1R,
                   qoriForegroundHistogramUpdate_8u_C1R, qoriForegroundHistogramFree_8u_C1R};
const Member c3 = {3, qoriForegroundHistogramInitAlloc_8u_C3R, qoriForegroundHistogram_8u_C3R,
                   qoriForegroundHistogramUpdate_8u_C3R, qoriForegroundHistogramFree_8u_C3R};

// The record's fields in their order, to look at what has been learnt and to plant what takes years to learn.
struct ValueEntry {
  float probability, backgroundProbability;
  uint8_t value[3];
};
struct PairEntry {
  float probability, backgroundProbability;
  uint8_t before[3], after[3];
};
struct Pixel {
  float stillBackground, changedBackground;
  ValueEntry* valueTable;
  PairEntry* pairTable;
  uint8_t valueTrained, pairTrained;
};
struct Record {
  uint8_t* reference;
  int32_t referenceStep;
  uint8_t* frameChange;
  int32_t frameChangeStep;
  uint8_t* referenceChange;
  int32_t referenceChangeStep;
  uint8_t* previous;
  int32_t previousStep;
  Pixel* pixels;
  int32_t valueLevels, valueTested, valueEntries, pairLevels, pairTested, pairEntries, one, another;
  float referenceRate, slowRate, fastRate, levelScale, trainedLevel, fifteen;
};

// --- model ---

struct Entry {
  float p = 0, b = 0;
  std::array<int, 3> before = {}, after = {};  // a table of values has no `before`
};

struct ModelPixel {
  float background[2] = {0, 0};  // when it stays, when it changes
  std::vector<Entry> tables[2] = {std::vector<Entry>(25), std::vector<Entry>(40)};
  bool trained[2] = {false, false};
};

const int entryCounts[2] = {25, 40}, testedCounts[2] = {15, 25}, tolerances[2] = {4, 8};
enum { values, pairs };

struct Model {
  QoriSize size;
  int channels;
  std::vector<uint8_t> reference, previous, frameChange, referenceChange;
  std::vector<ModelPixel> pixels;

  Model(const Image<uint8_t>& first, QoriSize size_, int channels_) : size(size_), channels(channels_) {
    for (int y = 0; y < size.height; ++y) {
      for (int i = 0; i < size.width * channels; ++i) previous.push_back(first.get(i / channels, y, i % channels));
    }
    reference = previous;
    frameChange.resize(size_t(size.width) * size.height);
    referenceChange = frameChange;
    pixels.resize(frameChange.size());
  }

  size_t at(int x, int y) const { return size_t(y) * size.width + x; }

  void changes(const Image<uint8_t>& src, const std::vector<uint8_t>& other, QoriSize roi, std::vector<uint8_t>& mask) {
    std::vector<double> bins(256);
    const auto differenceAt = [&](int x, int y) { return abs(src.get(x, y) - other[at(x, y) * channels]); };
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width; ++x) bins[differenceAt(x, y)] += 1;
    }
    double threshold = 0;
    for (int t = 254; t >= 0; --t) {
      double n = 0, m1 = 0, m2 = 0;
      for (int i = t; i < 256; ++i) n += bins[i], m1 += i * bins[i], m2 += double(i) * i * bins[i];
      if (n == 0) n = 1;
      m1 /= n;
      m2 /= n;
      threshold = std::max(threshold, sqrt(m2 - m1 * m1));
    }
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width; ++x) mask[at(x, y)] = differenceAt(x, y) > threshold ? 255 : 0;
    }
  }

  // byte(c) is the c-th byte from the pixel on.
  template <class Byte>
  bool foreground(const ModelPixel& pixel, int kind, Byte byte) const {
    float p = 0, b = 0;
    for (int i = 0; i < testedCounts[kind]; ++i) {
      const Entry& e = pixel.tables[kind][i];
      if (!(e.p > 0.005f)) break;
      bool counts = true;
      for (int c = 0; c < 3; ++c) {
        if (abs((kind == pairs ? e.before : e.after)[c] - byte(c)) > tolerances[kind]) counts = false;
      }
      if (counts) p += e.p, b += e.b;
    }
    return p >= 2 * b * pixel.background[kind];
  }

  // The image of one channel has two more pixels in a row than the region.
  std::vector<uint8_t> frame(const Image<uint8_t>& src, QoriSize roi) {
    changes(src, previous, roi, frameChange);
    changes(src, reference, roi, referenceChange);
    std::vector<uint8_t> dst;
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width; ++x) {
        const ModelPixel& pixel = pixels[at(x, y)];
        const auto byte = [&](int c) -> int { return channels == 1 ? src.get(x + c, y) : src.get(x, y, c); };
        bool is = false;
        if (frameChange[at(x, y)]) {
          is = !pixel.trained[pairs] || foreground(pixel, pairs, byte);
        } else if (referenceChange[at(x, y)]) {
          is = pixel.trained[values] && foreground(pixel, values, byte);
        }
        dst.push_back(is ? 255 : 0);
      }
    }
    return dst;
  }

  void learn(ModelPixel& pixel, int kind, std::array<int, 3> before, std::array<int, 3> after, bool isBackground) {
    std::vector<Entry>& table = pixel.tables[kind];
    float& background = pixel.background[kind];
    const float a = pixel.trained[kind] ? 0.005f : 0.1f;
    background = background * (1 - a);
    if (isBackground) background = background + a;
    int nearest = -1, smallest = 0;
    if (table[0].p != 0) {
      for (int i = 0; i < entryCounts[kind]; ++i) {
        Entry& e = table[i];
        if (e.p == 0) break;
        e.p = e.p * (1 - a);
        e.b = e.b * (1 - a);
        if (double(e.p) < 0.0000000001) {
          e.p = e.b = 0;
          continue;
        }
        int sum = 0;
        bool match = true;
        for (int c = 0; c < channels; ++c) {
          const int d = kind == pairs ? abs(e.before[c] - before[c]) : 0, f = abs(e.after[c] - after[c]);
          if (d > tolerances[kind] || f > tolerances[kind]) match = false;
          sum += d + f;
        }
        if (match) {
          if (nearest < 0 || sum < smallest) nearest = i, smallest = sum;
        } else if (channels == 1) {
          nearest = -1;
          break;
        }
      }
    }
    if (nearest >= 0) {
      table[nearest].p = table[nearest].p + a;
      if (isBackground) table[nearest].b = table[nearest].b + a;
    } else {
      nearest = entryCounts[kind] - 1;
      table[nearest].p = table[nearest].b = a;
      for (int c = 0; c < channels; ++c) table[nearest].before[c] = before[c], table[nearest].after[c] = after[c];
    }
    const Entry changed = table[nearest];
    int place = 0;
    while (table[place].p > changed.p) ++place;
    table.erase(table.begin() + nearest);
    table.insert(table.begin() + place, changed);
    float p = 0, b = 0;
    int count = 0;
    for (; count < testedCounts[kind] && table[count].p != 0; ++count) p += table[count].p, b += table[count].b;
    if (p > 0.9f) pixel.trained[kind] = true;
    if (p - b * background > 0.9f) {
      for (int i = 0; i < count; ++i) table[i].b = (table[i].p - table[i].b * background) / (1 - background);
      if (kind == values) background = 1 - background;
    }
  }

  template <class Mask>
  void update(const Image<uint8_t>& src, Mask mask, QoriSize roi) {
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width; ++x) {
        ModelPixel& pixel = pixels[at(x, y)];
        const bool changed = frameChange[at(x, y)], differs = referenceChange[at(x, y)], is = mask(x, y) == 0;
        std::array<int, 3> before = {}, after = {};
        for (int c = 0; c < channels; ++c) {
          before[c] = previous[at(x, y) * channels + c];
          after[c] = src.get(x, y, c);
        }
        if (changed || !pixel.trained[pairs]) learn(pixel, pairs, before, after, is);
        if (!changed) learn(pixel, values, before, after, is);
        for (int c = 0; c < channels && is; ++c) {
          uint8_t& r = reference[at(x, y) * channels + c];
          r = changed || differs ? uint8_t(after[c]) : uint8_t(float(r) * (1 - 0.1f) + 0.1f * float(after[c]));
        }
        for (int c = 0; c < channels; ++c) previous[at(x, y) * channels + c] = uint8_t(after[c]);
      }
    }
  }
};

// --- library and model together ---

struct Both {
  const Member& member;
  Random& random;
  QoriSize size;
  State* state = nullptr;
  std::unique_ptr<Model> model;
  std::vector<uint8_t> decided;  // by the last frame

  Both(const Member& member_, Random& random_, QoriSize size_, const Image<uint8_t>& first)
      : member(member_), random(random_), size(size_) {
    EXPECT_EQ(member.init(first.data(), first.step(), size, this, &state), qorStatusOk);
    model = std::make_unique<Model>(first, size, member.channels);
  }
  ~Both() { EXPECT_EQ(member.free(state), qorStatusOk); }
  Both(const Both&) = delete;
  Both& operator=(const Both&) = delete;

  // Pixels behind the region that only a decision in one channel may read.
  int32_t margin() const { return member.channels == 1 ? 2 : 0; }
  const Record& record() const { return *reinterpret_cast<const Record*>(state); }

  // A frame and its update; maskByte(x, y) is what the update is told. Returns what differs.
  template <class MaskByte>
  std::string step(const Image<uint8_t>& src, QoriSize roi, MaskByte maskByte) {
    AnyImage<uint8_t> dst(random, roi), mask(random, roi), exact(random, roi, member.channels),
        ref(random, roi, member.channels);
    dst.fill([&] { return random.value<uint8_t>(); });
    if (member.frame(src.data(), src.step(), dst.data(), dst.step(), roi, state) != qorStatusOk) return "status";
    if (!dst.gapsIntact()) return "wrote outside the mask";
    decided = model->frame(src, roi);
    std::string what = difference(dst, [&](int x, int y, int) { return decided[size_t(y) * roi.width + x]; });
    if (!what.empty()) return "decision " + what;
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width; ++x) {
        mask.set(x, y, maskByte(x, y));
        for (int c = 0; c < member.channels; ++c) exact.set(x, y, c, src.get(x, y, c));
      }
    }
    if (member.update(exact.data(), exact.step(), mask.data(), mask.step(), ref.data(), ref.step(), roi, state) !=
        qorStatusOk) {
      return "status of the update";
    }
    if (!ref.gapsIntact()) return "wrote outside the reference";
    model->update(
        src, [&](int x, int y) { return mask.get(x, y); }, roi);
    what = difference(
        ref, [&](int x, int y, int c) { return model->reference[model->at(x, y) * size_t(member.channels) + c]; });
    return what.empty() ? "" : "reference " + what;
  }

  // What has been learnt. Entries behind the first of probability 0 do not count.
  std::string wrongTables() const {
    for (size_t i = 0; i < model->pixels.size(); ++i) {
      const Pixel& is = record().pixels[i];
      const ModelPixel& should = model->pixels[i];
      const std::string where = "pixel " + std::to_string(i);
      if (!sameValue(is.stillBackground, should.background[values])) return where + " stillBackground";
      if (!sameValue(is.changedBackground, should.background[pairs])) return where + " changedBackground";
      if (is.valueTrained != should.trained[values] || is.pairTrained != should.trained[pairs])
        return where + " trained";
      for (int k = 0; k < entryCounts[values]; ++k) {
        const ValueEntry& e = is.valueTable[k];
        const Entry& m = should.tables[values][k];
        if (!sameValue(e.probability, m.p)) return where + " value " + std::to_string(k) + " probability";
        if (e.probability == 0) break;
        if (!sameValue(e.backgroundProbability, m.b)) return where + " value " + std::to_string(k) + " background";
        for (int c = 0; c < 3; ++c) {
          if (e.value[c] != m.after[c]) return where + " value " + std::to_string(k);
        }
      }
      for (int k = 0; k < entryCounts[pairs]; ++k) {
        const PairEntry& e = is.pairTable[k];
        const Entry& m = should.tables[pairs][k];
        if (!sameValue(e.probability, m.p)) return where + " pair " + std::to_string(k) + " probability";
        if (e.probability == 0) break;
        if (!sameValue(e.backgroundProbability, m.b)) return where + " pair " + std::to_string(k) + " background";
        for (int c = 0; c < 3; ++c) {
          if (e.before[c] != m.before[c] || e.after[c] != m.after[c]) return where + " pair " + std::to_string(k);
        }
      }
    }
    return "";
  }

  // Gives a pixel of both a table; entries that are not listed get probability 0.
  void plant(size_t i, int kind, const std::vector<Entry>& entries, float background, bool trained) {
    ModelPixel& m = model->pixels[i];
    m.background[kind] = background;
    m.trained[kind] = trained;
    Pixel& p = record().pixels[i];
    (kind == values ? p.stillBackground : p.changedBackground) = background;
    (kind == values ? p.valueTrained : p.pairTrained) = trained;
    for (int k = 0; k < entryCounts[kind]; ++k) {
      const Entry e = size_t(k) < entries.size() ? entries[size_t(k)] : Entry();
      m.tables[kind][k] = e;
      const auto b = [](const std::array<int, 3>& a, int c) { return uint8_t(a[size_t(c)]); };
      if (kind == values) {
        p.valueTable[k] = {e.p, e.b, {b(e.after, 0), b(e.after, 1), b(e.after, 2)}};
      } else {
        p.pairTable[k] = {
            e.p, e.b, {b(e.before, 0), b(e.before, 1), b(e.before, 2)}, {b(e.after, 0), b(e.after, 1), b(e.after, 2)}};
      }
    }
  }
};

AnyImage<uint8_t> pictureFor(Random& random, const Member& member, QoriSize size) {
  return AnyImage<uint8_t>(random, {size.width + (member.channels == 1 ? 2 : 0), size.height}, member.channels);
}

enum class Scene { still, flipping, dark, noise, jumping, count };
enum class Masks { decided, anything, background, foreground, count };

// Pixels with a few favourite values each, from which they differ by a little noise.
struct Painter {
  Random& random;
  Scene scene;
  int32_t wobble;
  std::vector<std::array<uint8_t, 4>> favourites;
  int32_t shift = 0;

  Painter(Random& random_, Scene scene_, size_t elements) : random(random_), scene(scene_), favourites(elements) {
    wobble = int32_t(random.number(0, 6));
    for (auto& f : favourites) {
      for (uint8_t& v : f) v = uint8_t(scene == Scene::dark ? random.number(0, 12) : random.number(0, 255));
    }
  }
  void paint(Image<uint8_t>& image) {
    if (random.chance(0.05)) shift = int32_t(random.number(-40, 40));
    size_t i = 0;
    image.fill([&] {
      const auto& f = favourites[i++];
      if (scene == Scene::noise) return random.value<uint8_t>();
      const bool flips = scene == Scene::flipping ? random.chance(0.3) : random.chance(0.02);
      const int32_t v = f[flips ? size_t(random.number(1, 3)) : 0] + int32_t(random.number(-wobble, wobble)) +
                        (scene == Scene::jumping ? shift : 0);
      return uint8_t(std::max(0, std::min(255, v)));
    });
  }
};

uint8_t maskByteOf(Random& random, Masks masks, uint8_t decided) {
  switch (masks) {
    case Masks::anything: return random.chance(0.5) ? uint8_t(0) : random.value<uint8_t>();
    case Masks::background: return 0;
    case Masks::foreground: return uint8_t(random.number(1, 255));
    default: return decided;
  }
}

std::string wrongSequence(const Member& member, Random& random, QoriSize size, int frames, Scene scene, Masks masks,
                          const std::function<void(Both&)>& prepare = {}) {
  AnyImage<uint8_t> src = pictureFor(random, member, size);
  Painter painter(random, scene, size_t(src.width()) * src.height() * member.channels);
  painter.paint(src);
  Both both(member, random, size, src);
  if (prepare) prepare(both);
  const bool smaller = random.chance(0.2);
  for (int i = 0; i < frames; ++i) {
    if (!random.chance(0.05)) painter.paint(src);  // now and then a frame comes twice
    QoriSize roi = size;
    if (smaller && random.chance(0.3)) {
      roi = {int32_t(random.number(1, size.width)), int32_t(random.number(1, size.height))};
    }
    const std::string what = both.step(
        src, roi, [&](int x, int y) { return maskByteOf(random, masks, both.decided[size_t(y) * roi.width + x]); });
    if (!what.empty()) return "frame " + std::to_string(i) + ": " + what;
    const std::string tables = i % 16 == 0 || i == frames - 1 ? both.wrongTables() : "";
    if (!tables.empty()) return "frame " + std::to_string(i) + ": " + tables;
  }
  return "";
}

class ForegroundHistogram : public testing::Test {
 protected:
  void SetUp() override {
    services::reset();
    mallopt(M_PERTURB, 0x5b);  // fresh memory is not zero
  }
  void TearDown() override {
    mallopt(M_PERTURB, 0);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
};

template <class Body>
void forMembers(Body body) {
  body(c1);
  body(c3);
}

TEST_F(ForegroundHistogram, EqualsTheModelOnAllScenes) {
  forMembers([](const Member& member) {
    Random random(uint32_t(member.channels));
    for (int scene = 0; scene < int(Scene::count); ++scene) {
      for (int masks = 0; masks < int(Masks::count); ++masks) {
        const QoriSize size = {int32_t(random.number(1, 9)), int32_t(random.number(1, 4))};
        ASSERT_EQ(wrongSequence(member, random, size, 110, Scene(scene), Masks(masks)), "")
            << member.channels << " channels, scene " << scene << ", masks " << masks;
      }
    }
  });
}

TEST_F(ForegroundHistogram, EqualsTheModelOnAllWidths) {
  forMembers([](const Member& member) {
    Random random(77);
    for (const int32_t width : {1, 2, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 127, 129, 255, 256, 257, 300, 515}) {
      ASSERT_EQ(wrongSequence(member, random, {width, 2}, 5, Scene::still, Masks::decided), "") << width;
      ASSERT_EQ(wrongSequence(member, random, {width, 1}, 3, Scene::noise, Masks::anything), "") << width;
    }
    ASSERT_EQ(wrongSequence(member, random, {37, 70}, 40, Scene::still, Masks::decided), "");
  });
}

// Until entries have faded below 1e-10, and tables have been full for long.
TEST_F(ForegroundHistogram, EqualsTheModelForLong) {
  forMembers([](const Member& member) {
    Random random(5);
    for (const Scene scene : {Scene::flipping, Scene::jumping, Scene::dark}) {
      ASSERT_EQ(wrongSequence(member, random, {2, 1}, 1500, scene, Masks::anything), "") << int(scene);
    }
  });
}

// Tables as they come about after years: unordered, about to fade, full, with any background.
TEST_F(ForegroundHistogram, EqualsTheModelFromAnyTables) {
  forMembers([](const Member& member) {
    Random random(31);
    for (int round = 0; round < 60; ++round) {
      const QoriSize size = {int32_t(random.number(1, 5)), int32_t(random.number(1, 3))};
      const int near = random.chance(0.5) ? 5 : 60;
      const auto prepare = [&](Both& both) {
        for (size_t i = 0; i < both.model->pixels.size(); ++i) {
          for (const int kind : {values, pairs}) {
            std::vector<Entry> entries(size_t(random.number(0, entryCounts[kind])));
            for (Entry& e : entries) {
              static const std::vector<float> telling = {1.001e-10f, 1.05e-10f, 1.2e-10f, 0.1f, 0.005f, 0.0049f, 0.04f};
              e.p = random.chance(0.6) ? random.pick(telling) : float(random.number(1, 1000)) / 4000;
              e.b = random.chance(0.1) ? 0 : e.p * float(random.number(0, 1000)) / 900;
              for (int c = 0; c < member.channels; ++c) {
                const int v = both.model->previous[i * size_t(member.channels) + size_t(c)];
                const auto about = [&] { return std::max(0, std::min(255, v + int(random.number(-near, near)))); };
                if (kind == pairs) e.before[size_t(c)] = about();
                e.after[size_t(c)] = about();
              }
            }
            static const std::vector<float> backgrounds = {0, 1, 0.5f, 0.99999994f, 1e-20f};
            const bool sorted = random.chance(0.5);
            if (sorted || member.channels == 3) {
              std::stable_sort(entries.begin(), entries.end(),
                               [](const Entry& e, const Entry& f) { return e.p > f.p; });
            }
            both.plant(i, kind, entries, random.pick(backgrounds), random.chance(0.7));
          }
        }
      };
      const Scene scene = Scene(random.number(0, int(Scene::count) - 1));
      const Masks masks = Masks(random.number(0, int(Masks::count) - 1));
      ASSERT_EQ(wrongSequence(member, random, size, 45, scene, masks, prepare), "") << round;
    }
  });
}

TEST_F(ForegroundHistogram, IsCreatedWithTheValuesOfTheContract) {
  forMembers([](const Member& member) {
    Random random(2);
    const QoriSize size = {5, 3};
    AnyImage<uint8_t> src = pictureFor(random, member, size);
    src.fill([&] { return random.value<uint8_t>(); });
    Both both(member, random, size, src);
    const Record& r = both.record();
    EXPECT_EQ(r.referenceStep, 5 * member.channels);
    EXPECT_EQ(r.previousStep, 5 * member.channels);
    EXPECT_EQ(r.frameChangeStep, 5);
    EXPECT_EQ(r.referenceChangeStep, 5);
    EXPECT_EQ(r.valueLevels, 128);
    EXPECT_EQ(r.valueTested, 15);
    EXPECT_EQ(r.valueEntries, 25);
    EXPECT_EQ(r.pairLevels, 64);
    EXPECT_EQ(r.pairTested, 25);
    EXPECT_EQ(r.pairEntries, 40);
    EXPECT_EQ(r.one, 1);
    EXPECT_EQ(r.another, 1);
    EXPECT_EQ(r.referenceRate, 0.1f);
    EXPECT_EQ(r.slowRate, 0.005f);
    EXPECT_EQ(r.fastRate, 0.1f);
    EXPECT_EQ(r.levelScale, 2.0f);
    EXPECT_EQ(r.trainedLevel, 0.9f);
    EXPECT_EQ(r.fifteen, 15.0f);
    EXPECT_EQ(both.wrongTables(), "");
    for (int y = 0; y < 3; ++y) {
      for (int i = 0; i < 5 * member.channels; ++i) {
        const uint8_t pixel = src.get(i / member.channels, y, i % member.channels);
        EXPECT_EQ(r.reference[y * r.referenceStep + i], pixel);
        EXPECT_EQ(r.previous[y * r.previousStep + i], pixel);
      }
    }
  });
}

// A scene of one row in which only the given bytes matter.
struct Row : AnyImage<uint8_t> {
  Row(Random& random, const Member& member, const std::vector<int>& pixels)
      : AnyImage<uint8_t>(random, {int32_t(pixels.size()) + (member.channels == 1 ? 2 : 0), 1}, member.channels) {
    for (size_t x = 0; x < pixels.size(); ++x) {
      for (int c = 0; c < member.channels; ++c) set(int32_t(x), 0, c, uint8_t(pixels[x]));
    }
  }
};

std::vector<uint8_t> decide(const Member& member, State* state, const Image<uint8_t>& src, int32_t width) {
  std::vector<uint8_t> dst(size_t(width), 99);
  EXPECT_EQ(member.frame(src.data(), src.step(), dst.data(), width, {width, 1}, state), qorStatusOk);
  return dst;
}

using Bytes = std::vector<uint8_t>;

TEST_F(ForegroundHistogram, TheSameFrameAgainIsBackground) {
  forMembers([](const Member& member) {
    Random random(3);
    const Row src(random, member, {0, 9, 100, 255});
    Both both(member, random, {4, 1}, src);
    for (size_t i = 0; i < 4; ++i) both.plant(i, values, {}, 0, true);  // would decide for foreground
    EXPECT_EQ(decide(member, both.state, src, 4), Bytes({0, 0, 0, 0}));
  });
}

TEST_F(ForegroundHistogram, AConstantDifferenceMarksAllPixels) {
  forMembers([](const Member& member) {
    Random random(4);
    Row first(random, member, {10, 20, 30, 40}), next(random, member, {15, 15, 35, 45});
    Both both(member, random, {4, 1}, first);
    EXPECT_EQ(decide(member, both.state, next, 4), Bytes({255, 255, 255, 255}));
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(both.record().frameChange[i], 255);
      EXPECT_EQ(both.record().referenceChange[i], 255);
    }
  });
}

// Differences 4, 4, 12, 12 deviate from their mean by 4, which is not above 4; few large ones raise the threshold.
TEST_F(ForegroundHistogram, TheThresholdAdaptsToTheFrame) {
  forMembers([](const Member& member) {
    Random random(5);
    const Row first(random, member, {100, 100, 100, 100});
    Both both(member, random, {4, 1}, first);
    EXPECT_EQ(decide(member, both.state, Row(random, member, {104, 88, 96, 112}), 4), Bytes({0, 255, 0, 255}));
    EXPECT_EQ(decide(member, both.state, Row(random, member, {103, 103, 103, 103}), 4), Bytes({255, 255, 255, 255}));
    EXPECT_EQ(decide(member, both.state, Row(random, member, {103, 103, 103, 203}), 4), Bytes({0, 0, 0, 255}));
  });
}

TEST_F(ForegroundHistogram, OnlyTheFirstChannelMakesAChange) {
  Random random(6);
  const Row first(random, c3, {100, 100});
  Row next(random, c3, {100, 100});
  next.set(0, 0, 1, 200);
  next.set(1, 0, 2, 0);
  Both both(c3, random, {2, 1}, first);
  EXPECT_EQ(decide(c3, both.state, next, 2), Bytes({0, 0}));
}

TEST_F(ForegroundHistogram, UntrainedPairsAreForegroundUntrainedValuesBackground) {
  forMembers([](const Member& member) {
    Random random(7);
    Row first(random, member, {10, 10}), next(random, member, {10, 200});
    Both both(member, random, {2, 1}, first);
    EXPECT_EQ(both.step(next, {2, 1}, [](int, int) { return uint8_t(1); }), "");
    EXPECT_EQ(both.decided, Bytes({0, 255}));
    // As before, but unlike the reference, which foreground does not change.
    EXPECT_EQ(decide(member, both.state, next, 2), Bytes({0, 0}));
    EXPECT_EQ(both.record().frameChange[1], 0);
    EXPECT_EQ(both.record().referenceChange[1], 255);
  });
}

// Without a frame before it an update finds nothing changed.
TEST_F(ForegroundHistogram, AnUpdateMayComeFirst) {
  forMembers([](const Member& member) {
    Random random(8);
    Row first(random, member, {10, 10}), next(random, member, {10, 200});
    Both both(member, random, {2, 1}, first);
    Bytes mask(2), ref(6);
    EXPECT_EQ(member.update(next.data(), next.step(), mask.data(), 2, ref.data(), 6, {2, 1}, both.state), qorStatusOk);
    both.model->update(next, [](int, int) { return 0; }, {2, 1});
    EXPECT_EQ(both.wrongTables(), "");
    EXPECT_EQ(ref[size_t(member.channels)], 29);  // 10 * 0.9f + 0.1f * 200
  });
}

TEST_F(ForegroundHistogram, LearnsFastUntilTrainedAndSlowlyThen) {
  forMembers([](const Member& member) {
    Random random(9);
    const Row src(random, member, {50});
    Both both(member, random, {1, 1}, src);
    float expected = 0;
    for (int i = 1; i <= 40; ++i) {
      ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(0); }), "");
      const float rate = expected > 0.9f ? 0.005f : 0.1f;
      expected = i == 1 ? 0.1f : expected * (1 - rate) + rate;
      const Pixel& pixel = both.record().pixels[0];
      ASSERT_EQ(pixel.valueTable[0].probability, expected) << i;
      ASSERT_EQ(pixel.valueTrained, expected > 0.9f) << i;
      ASSERT_EQ(pixel.valueTrained, i >= 22) << i;  // 0.9 to the power of 22 is the first below 0.1
      ASSERT_EQ(pixel.valueTable[1].probability, 0) << i;
      // Pairs are learnt from unchanged pixels too, but only until they are trained.
      ASSERT_EQ(pixel.pairTable[0].probability, i <= 22 ? expected : both.model->pixels[0].tables[pairs][0].p);
    }
    EXPECT_LT(both.record().pixels[0].pairTable[0].probability, both.record().pixels[0].valueTable[0].probability);
  });
}

TEST_F(ForegroundHistogram, ARenewalAtBackgroundOneIsInfinite) {
  forMembers([](const Member& member) {
    for (const float background : {0.0f, 0.3f}) {
      Random random(10);
      const Row src(random, member, {5});
      Both both(member, random, {1, 1}, src);
      std::array<int, 3> five = {5, member.channels == 3 ? 5 : 0, member.channels == 3 ? 5 : 0};
      both.plant(0, values, {{0.97f, background, {}, five}, {0.01f, -0.5f, {}, five}}, 1, true);
      ASSERT_EQ(1.0f * (1 - 0.005f) + 0.005f, 1.0f);  // so it stays at 1
      ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(0); }), "");
      EXPECT_TRUE(isinf(both.record().pixels[0].valueTable[0].backgroundProbability));
      EXPECT_EQ(both.record().pixels[0].stillBackground, 0);
      EXPECT_EQ(both.wrongTables(), "");
      // Life goes on, with infinities and what becomes of them.
      for (int i = 0; i < 100; ++i) {
        const Row next(random, member, {int(random.number(0, 9))});
        ASSERT_EQ(both.step(next, {1, 1}, [&](int, int) { return uint8_t(random.number(0, 1)); }), "") << i;
        ASSERT_EQ(both.wrongTables(), "") << i;
      }
    }
  });
}

// With no more than what an entry's own probabilities say, an entry that counts makes a changed pixel background here,
// and one that does not makes it foreground.
TEST_F(ForegroundHistogram, OneChannelComparesThreePixelsThatFollowEachOther) {
  const auto decidedFor = [](int kind, int first, int second, int third) {
    Random random(11);
    Row before(random, c1, {100}), src(random, c1, {first});
    src.set(1, 0, uint8_t(second));  // behind the region
    src.set(2, 0, uint8_t(third));
    Both both(c1, random, {1, 1}, before);
    both.plant(0, kind, {{0.5f, 0.5f, {50, 0, 0}, {kind == pairs ? 60 : 50, 0, 0}}}, 1, true);
    // The value table decides where only the reference differs.
    if (kind == values) *both.record().previous = uint8_t(first);
    return int(decide(c1, both.state, src, 1)[0]);
  };
  for (const int kind : {values, pairs}) {
    const int t = kind == values ? 4 : 8;
    EXPECT_EQ(decidedFor(kind, 50, 0, 0), 0);
    EXPECT_EQ(decidedFor(kind, 50 + t, t, t), 0);
    EXPECT_EQ(decidedFor(kind, 50 - t, 0, t), 0);
    EXPECT_EQ(decidedFor(kind, 50 + t + 1, 0, 0), 255);
    EXPECT_EQ(decidedFor(kind, 50 - t - 1, 0, 0), 255);
    EXPECT_EQ(decidedFor(kind, 50, t + 1, 0), 255);
    EXPECT_EQ(decidedFor(kind, 50, 0, t + 1), 255);
    EXPECT_EQ(decidedFor(kind, 50, 50, 50), 255);
  }
}

TEST_F(ForegroundHistogram, ThreeChannelsAreComparedWithTheirOwn) {
  const auto decidedFor = [](std::array<int, 3> colour) {
    Random random(12);
    Row before(random, c3, {200}), src(random, c3, {0});
    for (int c = 0; c < 3; ++c) src.set(0, 0, c, uint8_t(colour[size_t(c)]));
    Both both(c3, random, {1, 1}, before);
    both.plant(0, pairs, {{0.5f, 0.5f, {50, 100, 150}, {0, 0, 0}}}, 1, true);
    return int(decide(c3, both.state, src, 1)[0]);
  };
  EXPECT_EQ(decidedFor({50, 100, 150}), 0);
  EXPECT_EQ(decidedFor({58, 92, 158}), 0);
  EXPECT_EQ(decidedFor({59, 100, 150}), 255);
  EXPECT_EQ(decidedFor({50, 91, 150}), 255);
  EXPECT_EQ(decidedFor({50, 100, 159}), 255);
}

// Sums stop at the slow rate and at the number of entries tested.
TEST_F(ForegroundHistogram, OnlyTheFirstEntriesDecide) {
  const auto decidedWith = [](std::vector<Entry> entries) {
    Random random(13);
    Row before(random, c3, {200}), src(random, c3, {50});
    Both both(c3, random, {1, 1}, before);
    both.plant(0, pairs, entries, 1, true);
    return int(decide(c3, both.state, src, 1)[0]);
  };
  const std::array<int, 3> like = {50, 50, 50}, unlike = {0, 0, 0};
  const Entry background = {0.01f, 0.01f, like, like}, other = {0.01f, 0.01f, unlike, like};
  std::vector<Entry> entries(24, other);
  entries.push_back(background);
  EXPECT_EQ(decidedWith(entries), 0);
  entries.insert(entries.begin(), other);
  EXPECT_EQ(decidedWith(entries), 255);
  EXPECT_EQ(decidedWith({other, {0.0051f, 0.0051f, like, like}}), 0);
  EXPECT_EQ(decidedWith({other, {0.005f, 0.005f, like, like}}), 255);
}

// In one channel an entry that does not match ends learning: the one that matched before it gets nothing.
TEST_F(ForegroundHistogram, OneChannelHasNoNearestEntryAfterAMismatch) {
  forMembers([](const Member& member) {
    Random random(14);
    const Row src(random, member, {50});
    const auto all = [&](int v) {
      return member.channels == 3 ? std::array<int, 3>{v, v, v} : std::array<int, 3>{v, 0, 0};
    };
    Both both(member, random, {1, 1}, src);
    both.plant(0, values, {{0.4f, 0.4f, {}, all(50)}, {0.3f, 0.3f, {}, all(90)}, {0.2f, 0.2f, {}, all(50)}}, 0, false);
    ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(0); }), "");
    EXPECT_EQ(both.wrongTables(), "");
    const ValueEntry* const table = both.record().pixels[0].valueTable;
    const float kept = 1 - 0.1f;
    if (member.channels == 1) {
      EXPECT_EQ(table[0].probability, 0.4f * kept);
      EXPECT_EQ(table[1].probability, 0.3f * kept);
      EXPECT_EQ(table[2].probability, 0.2f);
      EXPECT_EQ(table[3].probability, 0.1f);
      EXPECT_EQ(table[3].value[0], 50);
    } else {
      EXPECT_EQ(table[0].probability, 0.4f * kept + 0.1f);
      EXPECT_EQ(table[2].probability, 0.2f * kept);
      EXPECT_EQ(table[3].probability, 0);
    }
  });
}

TEST_F(ForegroundHistogram, OfEquallyNearEntriesTheFirstIsChangedAndGoesBeforeItsEquals) {
  Random random(15);
  const Row src(random, c3, {50});
  Both both(c3, random, {1, 1}, src);
  const float kept = 1 - 0.1f;
  both.plant(0, values, {{0.3f, 0, {}, {90, 90, 90}}, {0.2f, 0, {}, {52, 50, 50}}, {0.2f, 0, {}, {50, 49, 49}}}, 0,
             false);
  ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(1); }), "");
  const ValueEntry* const table = both.record().pixels[0].valueTable;
  EXPECT_EQ(table[0].probability, 0.2f * kept + 0.1f);
  EXPECT_EQ(table[0].value[0], 52);
  EXPECT_EQ(table[1].value[0], 90);
  EXPECT_EQ(table[2].value[0], 50);
  // A new entry, with the rate as its probability, stands before old ones of the same.
  both.plant(0, values, {{0.1f / kept, 0, {}, {90, 90, 90}}}, 0, false);
  ASSERT_EQ(0.1f / kept * kept, 0.1f);
  ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(1); }), "");
  EXPECT_EQ(table[0].value[0], 50);
  EXPECT_EQ(table[1].value[0], 90);
  EXPECT_EQ(table[1].probability, 0.1f);
}

TEST_F(ForegroundHistogram, AFullTableLosesItsLastEntry) {
  forMembers([](const Member& member) {
    Random random(16);
    const Row src(random, member, {50});
    Both both(member, random, {1, 1}, src);
    std::vector<Entry> entries;
    for (int i = 0; i < 25; ++i) entries.push_back({0.2f - 0.005f * float(i), 0.01f, {}, {100 + i, 0, 0}});
    both.plant(0, values, entries, 0, true);
    ASSERT_EQ(both.step(src, {1, 1}, [](int, int) { return uint8_t(0); }), "");
    EXPECT_EQ(both.wrongTables(), "");
    EXPECT_EQ(both.record().pixels[0].valueTable[24].value[0], 50);
    EXPECT_EQ(both.record().pixels[0].valueTable[23].value[0], 123);
  });
}

TEST_F(ForegroundHistogram, ForegroundLeavesTheReference) {
  forMembers([](const Member& member) {
    Random random(17);
    const Row first(random, member, {10, 20, 255, 40}), next = Row(random, member, {10, 20, 255, 90});
    Both both(member, random, {4, 1}, first);
    ASSERT_EQ(both.step(next, {4, 1}, [](int x, int) { return uint8_t(x == 1 ? 7 : 0); }), "");
    const uint8_t* const reference = both.record().reference;
    EXPECT_EQ(reference[1 * member.channels], 20);
    EXPECT_EQ(reference[2 * member.channels], uint8_t(255 * (1 - 0.1f) + 0.1f * 255));
    EXPECT_EQ(reference[3 * member.channels], 90);  // changed: at once
  });
}

// No decision of untrained tables looks at pixels, and learning never looks behind the region.
TEST_F(ForegroundHistogram, UntrainedReadsTheRegionOnly) {
  Random random(18);
  for (const int32_t width : {1, 2, 8, 40, 64}) {
    AnyImage<uint8_t> src(random, {width, 3});
    Image<uint8_t> dst(width, 3), ref(width, 3);
    State* state = nullptr;
    ASSERT_EQ(c1.init(src.data(), src.step(), {width, 3}, &src, &state), qorStatusOk);
    for (int i = 0; i < 5; ++i) {
      src.fill([&] { return random.value<uint8_t>(); });
      ASSERT_EQ(c1.frame(src.data(), src.step(), dst.data(), dst.step(), src.size(), state), qorStatusOk);
      ASSERT_EQ(c1.update(src.data(), src.step(), dst.data(), dst.step(), ref.data(), ref.step(), src.size(), state),
                qorStatusOk);
    }
    c1.free(state);
  }
}

// Only the step of the frame is tested.
TEST_F(ForegroundHistogram, OtherStepsMayBeAnything) {
  forMembers([](const Member& member) {
    Random random(19);
    AnyImage<uint8_t> src = pictureFor(random, member, {4, 3});
    Both both(member, random, {4, 3}, src);
    Image<uint8_t> dst(4, 1), ref(4, 1, member.channels);
    EXPECT_EQ(member.frame(src.data(), src.step(), dst.data(), 0, {4, 3}, both.state), qorStatusOk);
    EXPECT_EQ(member.update(src.data(), src.step(), dst.data(), 0, ref.data(), 0, {4, 3}, both.state), qorStatusOk);
  });
}

TEST_F(ForegroundHistogram, RunsInTheCallingThread) {
  services::threads(8);
  Random random(20);
  AnyImage<uint8_t> src = pictureFor(random, c1, {512, 520});
  Image<uint8_t> dst(512, 520), ref(512, 520);
  State* state = nullptr;
  EXPECT_EQ(requestedTeam([&] {
              c1.init(src.data(), src.step(), dst.size(), &src, &state);
              c1.frame(src.data(), src.step(), dst.data(), dst.step(), dst.size(), state);
              c1.update(src.data(), src.step(), dst.data(), dst.step(), ref.data(), ref.step(), dst.size(), state);
            }),
            0);
  c1.free(state);
}

struct Args {
  const uint8_t* src;
  int32_t srcStep;
  uint8_t *mask, *ref;
  QoriSize size;
  const void* model;
  State** result;
  State* state;
};

TEST_F(ForegroundHistogram, StatusesAndTheirOrder) {
  forMembers([](const Member& member) {
    const QoriSize size = {7, 3};
    const int32_t rowBytes = size.width * member.channels;
    Random random(21);
    AnyImage<uint8_t> src = pictureFor(random, member, size);
    Both both(member, random, size, src);
    Bytes mask(21, 3), ref(63, 4);
    State* result = both.state;
    const auto written = [&] {
      Bytes all = mask;
      all.insert(all.end(), ref.begin(), ref.end());
      const auto* r = reinterpret_cast<const uint8_t*>(&result);
      all.insert(all.end(), r, r + sizeof result);
      return all;
    };
    const Args good = {src.data(), src.step(), mask.data(), ref.data(), size, &size, &result, both.state};
    const Fault<Args> noSrc = {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }};
    const Fault<Args> noMask = {"mask", qorStatusNullPtr, [](Args& a) { a.mask = nullptr; }};
    const Fault<Args> noRef = {"ref", qorStatusNullPtr, [](Args& a) { a.ref = nullptr; }};
    const Fault<Args> noModel = {"model", qorStatusNullPtr, [](Args& a) { a.model = nullptr; }};
    const Fault<Args> noResult = {"result", qorStatusNullPtr, [](Args& a) { a.result = nullptr; }};
    const Fault<Args> noState = {"state", qorStatusNullPtr, [](Args& a) { a.state = nullptr; }};
    const Fault<Args> noWidth = {"width", qorStatusBadSize, [](Args& a) { a.size.width = 0; }};
    const Fault<Args> negativeWidth = {"width", qorStatusBadSize, [](Args& a) { a.size.width = INT32_MIN; }};
    const Fault<Args> noHeight = {"height", qorStatusBadSize, [](Args& a) { a.size.height = 0; }};
    const Fault<Args> large = {"width", qorStatusBadSize, [](Args& a) { a.size.width = 8; }};
    const Fault<Args> high = {"height", qorStatusBadSize, [](Args& a) { a.size.height = 4; }};
    const Fault<Args> shortStep = {"step", qorStatusBadStep, [=](Args& a) { a.srcStep = rowBytes - 1; }};
    const Fault<Args> negativeStep = {"step", qorStatusBadStep, [](Args& a) { a.srcStep = -100; }};
    expectStatuses<Args>(
        good, {noSrc, noMask, noState, noWidth, negativeWidth, noHeight, large, high, shortStep, negativeStep},
        [&](const Args& a) { return member.frame(a.src, a.srcStep, a.mask, size.width, a.size, a.state); }, written);
    expectStatuses<Args>(
        good, {noSrc, noMask, noRef, noState, noWidth, negativeWidth, noHeight, large, high, shortStep, negativeStep},
        [&](const Args& a) {
          return member.update(a.src, a.srcStep, a.mask, size.width, a.ref, rowBytes, a.size, a.state);
        },
        written);
    expectStatuses<Args>(
        good, {noSrc, noModel, noResult, noWidth, negativeWidth, noHeight, shortStep, negativeStep},
        [&](const Args& a) { return member.init(a.src, a.srcStep, a.size, a.model, a.result); }, written);
    ASSERT_NE(result, both.state);
    EXPECT_EQ(member.free(result), qorStatusOk);
    EXPECT_EQ(member.free(nullptr), qorStatusNullPtr);
    // A model of other channels.
    const Member& other = member.channels == 1 ? c3 : c1;
    EXPECT_EQ(other.frame(src.data(), 21, mask.data(), 1, {1, 1}, both.state), qorStatusBadSize);
    EXPECT_EQ(other.update(src.data(), 21, mask.data(), 1, ref.data(), 3, {1, 1}, both.state), qorStatusBadSize);
  });
}

TEST_F(ForegroundHistogram, FailedAllocationsLeaveNothing) {
  forMembers([](const Member& member) {
    Image<uint8_t> src(6, 5, member.channels);
    State* const untouched = reinterpret_cast<State*>(&src);
    State* state = untouched;
    int64_t successes = 0;
    for (;; ++successes) {
      services::failAfter(successes);
      const QorStatus status = member.init(src.data(), src.step(), src.size(), &src, &state);
      if (status == qorStatusOk) break;
      ASSERT_EQ(status, qorStatusNoMemory);
      ASSERT_EQ(state, untouched);
      ASSERT_EQ(services::liveBlocks(), 0);
      ASSERT_LT(successes, 8);
    }
    EXPECT_EQ(successes, 8);
    services::failAfter(-1);
    EXPECT_EQ(member.free(state), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 0);
  });
}

// Tables whose size passes 64 bits, and what remains of it would be small.
TEST_F(ForegroundHistogram, SizesBeyondAddressesAreNoMemory) {
  Image<uint8_t> src(1, 1);
  State* state = nullptr;
  for (const QoriSize size :
       {QoriSize{0x7fffffff, 0x7fffffff}, QoriSize{0x40000000, 0x40000000}, QoriSize{0x10000000, 0x10000000}}) {
    EXPECT_EQ(c1.init(src.data(), 0x7fffffff, size, &src, &state), qorStatusNoMemory);
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
}

}  // namespace
