// What the tests of the image routines share: random geometry and status matrices.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "support/image.h"
#include "support/random.h"
#include "support/statuses.h"

// One random call: a size, a gap for each image, and where the images lie in memory.
struct Geometry {
  int32_t width, height;
  int32_t gaps[3];
  Edge edge;
  size_t shift;

  explicit Geometry(Random& random)
      : width(random.width(150)),
        height(int32_t(random.number(1, 5))),
        gaps(),
        edge(random.chance(0.5) ? Edge::begin : Edge::end),
        shift(random.chance(0.5) ? 1 : 0) {
    // Half of the calls have no gaps at all, since such images are handled as one run.
    if (random.chance(0.5)) {
      for (int32_t& gap : gaps) gap = int32_t(random.number(0, 5));
    }
  }

  template <class T>
  Image<T> image(int32_t number, int32_t channels) const {
    return Image<T>(width, height, channels, gaps[number], edge, shift);
  }
};

template <class T>
T anyElement(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.anyFloat();
  } else {
    return random.value<T>();
  }
}

struct ImageArgs {
  std::vector<bool> null;
  QoriSize size;
  std::vector<int32_t> steps;
  int32_t op;

  template <class T>
  T* pointer(size_t number, T* p) const {
    return null[number] ? nullptr : p;
  }
};

inline std::vector<Fault<ImageArgs>> pointerFaults(int32_t pointers) {
  std::vector<Fault<ImageArgs>> faults;
  for (int32_t p = 0; p < pointers; ++p) {
    faults.push_back(
        {"pointer " + std::to_string(p), qorStatusNullPtr, [p](ImageArgs& a) { a.null[size_t(p)] = true; }});
  }
  return faults;
}

inline std::vector<Fault<ImageArgs>> sizeFaults() {
  std::vector<Fault<ImageArgs>> faults;
  for (const int32_t bad : {0, -1, std::numeric_limits<int32_t>::min()}) {
    faults.push_back({"width", qorStatusBadSize, [bad](ImageArgs& a) { a.size.width = bad; }});
  }
  for (const int32_t bad : {0, -1, std::numeric_limits<int32_t>::min()}) {
    faults.push_back({"height", qorStatusBadSize, [bad](ImageArgs& a) { a.size.height = bad; }});
  }
  return faults;
}

inline std::vector<Fault<ImageArgs>> stepFaults(int32_t steps) {
  std::vector<Fault<ImageArgs>> faults;
  for (int32_t s = 0; s < steps; ++s) {
    for (const int32_t bad : {0, -1, std::numeric_limits<int32_t>::min()}) {
      faults.push_back(
          {"step " + std::to_string(s), qorStatusBadStep, [s, bad](ImageArgs& a) { a.steps[size_t(s)] = bad; }});
    }
  }
  return faults;
}

template <class... Lists>
std::vector<Fault<ImageArgs>> joined(std::vector<Fault<ImageArgs>> first, const Lists&... others) {
  (first.insert(first.end(), others.begin(), others.end()), ...);
  return first;
}
