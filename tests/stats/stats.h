// What the tests of the statistics share: the functions as members of tables, scenes of two images and a mask, what a
// plain model sees of a scene, the gates, and the status matrices.
#pragma once

#include <float.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "support/image.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

// From how many pixels on a function takes threads, M being the number of threads allowed.
enum class Gate {
  never,
  at16384,
  m15,            // P >= M << 15
  m15Cores,       // the same, on a die of several cores only
  m16,            // P >= M << 16
  m17,            // P >= M << 17
  m17Cores,       // the same, on a die of several cores only
  m15CoresOrM17,  // either m15Cores or m17
  m19             // P >= M << 19
};

inline bool threaded(Gate gate, QoriSize size) {
  const int32_t p = int32_t(uint32_t(size.width) * uint32_t(size.height)), m = services::maxThreads;
  const bool cores = services::cores != 1 && services::cores != 0;
  switch (gate) {
    case Gate::at16384: return p >= 16384;
    case Gate::m15: return p >= m << 15;
    case Gate::m15Cores: return p >= m << 15 && cores;
    case Gate::m16: return p >= m << 16;
    case Gate::m17: return p >= m << 17;
    case Gate::m17Cores: return p >= m << 17 && cores;
    case Gate::m15CoresOrM17: return (p >= m << 15 && cores) || p >= m << 17;
    case Gate::m19: return p >= m << 19;
    default: return false;
  }
}

// The team that a call gets: 0 for none, that is, all in the calling thread.
inline int32_t teamOf(Gate gate, QoriSize size) {
  if (!threaded(gate, size)) return 0;
  return services::teamSize < 1 ? 1 : services::teamSize;
}

// The rows of thread t; without a team all of them.
struct Rows {
  int32_t first, count;
};
inline std::vector<Rows> stripes(int32_t height, int32_t team) {
  if (team == 0) return {{0, height}};
  std::vector<Rows> rows;
  for (int32_t t = 0; t < team; ++t) {
    rows.push_back({t * (height / team), t == team - 1 ? height / team + height % team : height / team});
  }
  return rows;
}

// Enough for the gate of any function but the three of `m19`, with one thread allowed and several cores; and more than
// enough allowed for all to be done in one thread.
constexpr QoriSize large = {401, 327};
constexpr int32_t farTooMany = 1000;

// The arguments before the results; a function takes those that its form has.
template <class T>
struct Input {
  const T* src;
  int32_t srcStep;
  const T* src2;
  int32_t src2Step;
  const uint8_t* mask;
  int32_t maskStep;
  QoriSize size;
  int32_t coi;
};

// A function with results of the types R.
template <class T, class... R>
struct Member {
  using Element = T;
  using Pointers = std::tuple<R*...>;
  using Values = std::tuple<R...>;

  const char* name;
  Gate gate;
  int32_t channels;
  bool masked, twoImages;
  std::function<QorStatus(const Input<T>&, R*...)> function;

  QorStatus call(const Input<T>& input, Pointers results) const {
    return std::apply([&](R*... r) { return function(input, r...); }, results);
  }
  bool is(const char* part) const { return strstr(name, part) != nullptr; }
};

template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate, QorStatus (*f)(const T*, int32_t, QoriSize, R*...)) {
  return {name, gate, 1, false, false, [f](const Input<T>& i, R*... r) { return f(i.src, i.srcStep, i.size, r...); }};
}
template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate, QorStatus (*f)(const T*, int32_t, QoriSize, int32_t, R*...)) {
  return {name,  gate,  3,
          false, false, [f](const Input<T>& i, R*... r) { return f(i.src, i.srcStep, i.size, i.coi, r...); }};
}
template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate,
                       QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, R*...)) {
  return {name,  gate,
          1,     true,
          false, [f](const Input<T>& i, R*... r) { return f(i.src, i.srcStep, i.mask, i.maskStep, i.size, r...); }};
}
template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate,
                       QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, int32_t, R*...)) {
  return {
      name,  gate,
      3,     true,
      false, [f](const Input<T>& i, R*... r) { return f(i.src, i.srcStep, i.mask, i.maskStep, i.size, i.coi, r...); }};
}
template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate,
                       QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t, QoriSize, R*...)) {
  return {name, gate, 1, true, true, [f](const Input<T>& i, R*... r) {
            return f(i.src, i.srcStep, i.src2, i.src2Step, i.mask, i.maskStep, i.size, r...);
          }};
}
template <class T, class... R>
Member<T, R...> member(const char* name, Gate gate,
                       QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t, QoriSize, int32_t,
                                      R*...)) {
  return {name, gate, 3, true, true, [f](const Input<T>& i, R*... r) {
            return f(i.src, i.srcStep, i.src2, i.src2Step, i.mask, i.maskStep, i.size, i.coi, r...);
          }};
}

// Pixels of one of several characters: all values, only large or small ones; floats of very different magnitudes (so
// that the order of additions shows), whole ones, ones close to each other, huge and tiny ones, ones of any bits.
constexpr int kinds = 6;
template <class T>
T pixel(Random& random, int kind) {
  if constexpr (std::is_same_v<T, float>) {
    switch (kind) {
      case 1: return float(random.number(-128, 255));
      case 2: return 1e6f + 0.0625f * float(random.number(0, 7));
      case 3:
        return random.chance(0.5) ? FLT_MAX / float(random.number(1, 9)) : FLT_TRUE_MIN * float(random.number(-9, 9));
      case 4: return random.anyFloat();
      case 5:
        if (random.chance(0.003)) return random.anyFloat();
        [[fallthrough]];
      default: return ldexpf(float(random.number(-0xffffff, 0xffffff)), int(random.number(-84, 36)));
    }
  } else {
    switch (kind) {
      case 1: return T(std::numeric_limits<T>::max() - random.number(0, 2));
      case 2: return T(std::numeric_limits<T>::lowest() + random.number(0, 2));
      case 3: return T(random.number(0, 3));
      default: return random.value<T>();
    }
  }
}

inline void fillMask(Random& random, Image<uint8_t>& mask, bool any) {
  const int kind = any ? int(random.number(0, 10)) : 10;
  const int32_t half = mask.height() / 2;
  for (int32_t y = 0; y < mask.height(); ++y) {
    for (int32_t x = 0; x < mask.width(); ++x) {
      uint8_t byte = random.chance(0.5) ? uint8_t(random.number(1, 255)) : 0;
      if (kind == 0) byte = 0;
      if (kind == 1) byte = 255;
      if (kind == 2) byte = 1;
      if (kind == 3 && y >= half) byte = 0;
      if (kind == 4 && y < half) byte = 0;
      if (kind == 5 && random.chance(0.95)) byte = 0;
      if (kind == 6 && byte) byte = 255;
      mask.set(x, y, byte);
    }
  }
}

// What a model sees of a scene: the pixels of one channel, and which of them are selected.
template <class T>
struct Plane {
  QoriSize size;
  std::vector<T> x, y;
  std::vector<char> selected;
};

template <class T>
Plane<T> planeOf(const Input<T>& input, int32_t channels, bool masked, bool twoImages) {
  Plane<T> plane = {input.size, {}, {}, {}};
  const size_t pixels = size_t(input.size.width) * input.size.height;
  plane.x.resize(pixels);
  plane.y.resize(pixels);
  plane.selected.assign(pixels, 1);
  const size_t c = channels == 3 ? size_t(input.coi - 1) : 0;
  size_t i = 0;
  for (int32_t row = 0; row < input.size.height; ++row) {
    const uint8_t* a = reinterpret_cast<const uint8_t*>(input.src) + ptrdiff_t(row) * input.srcStep + c * sizeof(T);
    const uint8_t* b = reinterpret_cast<const uint8_t*>(input.src2) + ptrdiff_t(row) * input.src2Step + c * sizeof(T);
    for (int32_t column = 0; column < input.size.width; ++column, ++i) {
      memcpy(&plane.x[i], a + size_t(column) * channels * sizeof(T), sizeof(T));
      if (twoImages) memcpy(&plane.y[i], b + size_t(column) * channels * sizeof(T), sizeof(T));
      if (masked) plane.selected[i] = input.mask[ptrdiff_t(row) * input.maskStep + column] != 0;
    }
  }
  return plane;
}
template <class M>
Plane<typename M::Element> planeOf(const M& m, const Input<typename M::Element>& input) {
  return planeOf<typename M::Element>(input, m.channels, m.masked, m.twoImages);
}

// Two images and a mask, with gaps, against unmapped pages, often at odd addresses.
template <class T>
struct Scene {
  Image<T> src, src2;
  Image<uint8_t> mask;

  // `kind`: that of the pixels, under a random mask; negative for any pixels and masks.
  Scene(Random& random, QoriSize size, int32_t channels, int kind = -1)
      : src(make<T>(random, size, channels)),
        src2(make<T>(random, size, channels)),
        mask(make<uint8_t>(random, size, 1)) {
    const bool any = kind < 0;
    fillMask(random, mask, any);
    if (any) kind = int(random.number(0, kinds - 1));
    if (any && random.chance(0.15)) {
      const T value = pixel<T>(random, kind);
      src.fill([&] { return value; });
    } else {
      src.fill([&] { return pixel<T>(random, kind); });
    }
    src2.fill([&] { return pixel<T>(random, kind); });
    const bool same = any && random.chance(0.1), zero = any && random.chance(0.15);
    const bool spoiled = any ? random.chance(0.3) : kind == 2;
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) {
        for (int32_t c = 0; c < channels; ++c) {
          if (zero) src2.set(x, y, c, T(0));
          if (same) src2.set(x, y, c, src.get(x, y, c));
          if constexpr (std::is_same_v<T, float>) {
            if (!spoiled || mask.get(x, y)) continue;
            src.set(x, y, c, random.chance(0.5) ? NAN : INFINITY);
            src2.set(x, y, c, random.chance(0.5) ? NAN : -INFINITY);
          }
        }
      }
    }
  }

  Input<T> input(int32_t coi) const {
    return {src.data(), src.step(), src2.data(), src2.step(), mask.data(), mask.step(), src.size(), coi};
  }

 private:
  template <class E>
  static Image<E> make(Random& random, QoriSize size, int32_t channels) {
    const int32_t gap = random.chance(0.5) ? int32_t(random.number(1, 9)) : 0;
    const size_t shift = random.chance(0.5) ? size_t(random.number(1, 5)) : 0;
    return Image<E>(size.width, size.height, channels, gap, random.chance(0.5) ? Edge::begin : Edge::end, shift);
  }
};

// A scene for each element type and number of channels.
template <class T>
struct ScenesOf {
  Scene<T> one, three;
  ScenesOf(Random& random, QoriSize size, int kind) : one(random, size, 1, kind), three(random, size, 3, kind) {}
};
struct Scenes {
  ScenesOf<uint8_t> u8;
  ScenesOf<int8_t> s8;
  ScenesOf<uint16_t> u16;
  ScenesOf<float> f32;
  explicit Scenes(Random& random, QoriSize size, int kind = -1)
      : u8(random, size, kind), s8(random, size, kind), u16(random, size, kind), f32(random, size, kind) {}

  template <class M>
  const Scene<typename M::Element>& of(const M& m) const {
    const auto& both = scenes<typename M::Element>();
    return m.channels == 3 ? both.three : both.one;
  }

 private:
  template <class T>
  const ScenesOf<T>& scenes() const {
    if constexpr (std::is_same_v<T, uint8_t>) {
      return u8;
    } else if constexpr (std::is_same_v<T, int8_t>) {
      return s8;
    } else if constexpr (std::is_same_v<T, uint16_t>) {
      return u16;
    } else {
      return f32;
    }
  }
};

// One channel without gaps, of `value` everywhere, under a mask of 255: for cases by hand. set() goes to all channels.
template <class T>
struct Flat {
  QoriSize size;
  int32_t channels;
  std::vector<T> src, src2;
  std::vector<uint8_t> mask;

  Flat(QoriSize s, T value = T(0), int32_t n = 1)
      : size(s),
        channels(n),
        src(size_t(s.width) * s.height * n, value),
        src2(src.size(), T(0)),
        mask(size_t(s.width) * s.height, 255) {}
  Input<T> input(int32_t coi = 2) const {
    const int32_t step = size.width * channels * int32_t(sizeof(T));
    return {src.data(), step, src2.data(), step, mask.data(), size.width, size, coi};
  }
  void set(int32_t x, int32_t y, T value) {
    for (int32_t c = 0; c < channels; ++c) src[(size_t(y) * size.width + x) * channels + c] = value;
  }
  void maskRows(int32_t first, int32_t limit, uint8_t byte) {
    std::fill(mask.begin() + ptrdiff_t(first) * size.width, mask.begin() + ptrdiff_t(limit) * size.width, byte);
  }
};

// Whether the call opens a parallel region.
template <class Call>
bool forks(Call call) {
  services::teamSize = 2;
  return requestedTeam(call) != 0;
}

// Expects the member to take threads exactly where its gate says so, around all gates that there are.
template <class M>
void expectGate(const M& m) {
  using T = typename M::Element;
  static const std::vector<float> zeros(3 * (2 << 19));
  typename M::Values values;
  const auto pointers = std::apply([](auto&... v) { return typename M::Pointers(&v...); }, values);
  for (const auto& [allowed, cores] :
       std::vector<std::pair<int32_t, int32_t>>{{1, 1}, {1, 2}, {1, 0}, {2, 8}, {2, 1}}) {
    services::maxThreads = allowed;
    services::cores = cores;
    for (int32_t pixels : {16384, allowed << 15, allowed << 16, allowed << 17, allowed << 19}) {
      if (pixels > 1 << 18 && m.gate != Gate::m19 && m.gate != Gate::never) continue;  // far beyond all others
      for (QoriSize size : {QoriSize{pixels - 1, 1}, QoriSize{pixels, 1}, QoriSize{256, pixels / 256}}) {
        const T* src = reinterpret_cast<const T*>(zeros.data());
        const uint8_t* mask = reinterpret_cast<const uint8_t*>(zeros.data());
        const int32_t step = size.width * m.channels * int32_t(sizeof(T));
        const Input<T> input = {src, step, src, step, mask, size.width, size, 1};
        QorStatus status = qorStatusNoMemory;
        EXPECT_EQ(forks([&] { status = m.call(input, pointers); }), threaded(m.gate, size))
            << m.name << " on " << size.width << "x" << size.height << ", " << allowed << " threads allowed, " << cores
            << " cores";
        ASSERT_GE(status, 0);
      }
    }
  }
}

// Expects the statuses of the member in the order of its checks. `alignFirst`: the alignment of the step before the
// mask's step. `required`: the first result must not be null.
template <class M>
void expectMemberStatuses(const M& m, bool alignFirst, bool required) {
  using T = typename M::Element;
  struct Arguments {
    Input<T> input;
    typename M::Pointers results;
  };
  using A = Arguments;
  constexpr int32_t width = 9, height = 3;
  const Image<T> src(width, height, m.channels, 2), src2(width, height, m.channels, 2);
  Image<uint8_t> mask(width, height, 1, 2);
  mask.fill([] { return uint8_t(1); });
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width * m.channels; ++x) {
      const T one = T(1);
      memcpy(reinterpret_cast<uint8_t*>(src2.data()) + ptrdiff_t(y) * src2.step() + size_t(x) * sizeof(T), &one,
             sizeof one);
    }
  }
  const int32_t row = width * m.channels * int32_t(sizeof(T));

  std::vector<Fault<A>> faults;
  const auto add = [&](const char* argument, QorStatus status, std::function<void(A&)> apply) {
    faults.push_back({argument, status, apply});
  };
  const auto addAlignment = [&] {
    for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) {
      add("srcStep", qorStatusBadStepAlign, [=](A& a) { a.input.srcStep = row + more; });
      if (m.twoImages) add("src2Step", qorStatusBadStepAlign, [=](A& a) { a.input.src2Step = row + more; });
    }
  };
  add("src", qorStatusNullPtr, [](A& a) { a.input.src = nullptr; });
  if (m.twoImages) add("src2", qorStatusNullPtr, [](A& a) { a.input.src2 = nullptr; });
  if (m.masked) add("mask", qorStatusNullPtr, [](A& a) { a.input.mask = nullptr; });
  if (required) add("result", qorStatusNullPtr, [](A& a) { std::get<0>(a.results) = nullptr; });
  for (int32_t bad : {0, -1, INT32_MIN}) {
    add("width", qorStatusBadSize, [=](A& a) { a.input.size.width = bad; });
    add("height", qorStatusBadSize, [=](A& a) { a.input.size.height = bad; });
  }
  for (int32_t bad : {row - 1, row - int32_t(sizeof(T)), 0, -row, INT32_MIN}) {
    add("srcStep", qorStatusBadStep, [=](A& a) { a.input.srcStep = bad; });
    if (m.twoImages) add("src2Step", qorStatusBadStep, [=](A& a) { a.input.src2Step = bad; });
  }
  if (alignFirst) addAlignment();
  if (m.masked) {
    for (int32_t bad : {width - 1, 0, -width, INT32_MIN}) {
      add("maskStep", qorStatusBadStep, [=](A& a) { a.input.maskStep = bad; });
    }
  }
  if (!alignFirst) addAlignment();
  if (m.channels == 3) {
    for (int32_t bad : {0, 4, -1, INT32_MIN, INT32_MAX}) {
      add("coi", qorStatusBadCoi, [=](A& a) { a.input.coi = bad; });
    }
  }

  SCOPED_TRACE(m.name);
  typename M::Values values;
  memset(static_cast<void*>(&values), 0x77, sizeof values);
  const auto pointers = std::apply([](auto&... v) { return typename M::Pointers(&v...); }, values);
  const A good = {{src.data(), row, src2.data(), row, mask.data(), width, src.size(), 1}, pointers};
  expectStatuses<A>(
      good, faults, [&](const A& a) { return m.call(a.input, a.results); },
      [&] {
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&values);
        return std::vector<uint8_t>(bytes, bytes + sizeof values);
      });
}

// Every test starts from one thread and one core; nothing may be left of the blocks for large teams.
class Stats : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
};

// Calls body(scenes) for each team from 1 to 40, and for sizes that are no teams, on images large enough for threads:
// of many rows, of few, and of less than the team has threads.
template <class Body>
void forTeams(uint32_t seed, Body body) {
  Random random(seed);
  std::vector<std::unique_ptr<Scenes>> scenes;
  const std::pair<QoriSize, int> images[] = {
      {{131, 1003}, 0}, {{1637, 81}, 2}, {{3643, 36}, 0}, {{16400, 8}, 3}, {{43691, 3}, -1}};
  for (const auto& [size, kind] : images) scenes.push_back(std::make_unique<Scenes>(random, size, kind));
  services::maxThreads = 1;
  services::cores = 2;
  std::vector<int32_t> teams = {0, -1, INT32_MIN};
  for (int32_t team = 1; team <= 40; ++team) teams.push_back(team);
  for (int32_t team : teams) {
    services::teamSize = team;
    body(*scenes[size_t(random.number(0, int64_t(scenes.size()) - 1))]);
  }
}
