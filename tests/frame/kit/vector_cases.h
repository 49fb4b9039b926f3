// What the tests of the vector routines share: lengths, places in memory, status matrices.
#pragma once

#include <limits>
#include <vector>

#include "support/image.h"
#include "support/statuses.h"

inline const std::vector<int32_t>& tellingLengths() {
  static const std::vector<int32_t> lengths = {1,  2,  3,  4,  5,  7,  8,   9,   15,  16,  17,  31,
                                               32, 33, 63, 64, 65, 99, 127, 128, 129, 255, 1000};
  return lengths;
}

// Calls test(length, edge, shift) for vectors of all lengths, next to unmapped memory on either side, at even and odd
// addresses.
template <class Test>
void forEachVector(Test test) {
  for (const int32_t length : tellingLengths()) {
    for (const Edge edge : {Edge::begin, Edge::end}) {
      for (const size_t shift : {size_t(0), size_t(1)}) test(length, edge, shift);
    }
  }
}

// A vector is an image of one row.
template <class T>
class Vector : public Image<T> {
 public:
  explicit Vector(int32_t length, Edge edge = Edge::end, size_t shift = 0) : Image<T>(length, 1, 1, 0, edge, shift) {}

  T operator[](int32_t i) const { return this->get(i, 0); }
};

struct VectorArgs {
  std::vector<bool> null;
  int32_t len;

  template <class T>
  T* pointer(size_t number, T* p) const {
    return null[number] ? nullptr : p;
  }
};

// Null pointers in order, then bad lengths.
inline void expectVectorStatuses(int32_t pointers, int32_t len, const std::function<QorStatus(const VectorArgs&)>& call,
                                 const std::function<std::vector<uint8_t>()>& written) {
  std::vector<Fault<VectorArgs>> faults;
  for (int32_t p = 0; p < pointers; ++p) {
    faults.push_back(
        {"pointer " + std::to_string(p), qorStatusNullPtr, [p](VectorArgs& a) { a.null[size_t(p)] = true; }});
  }
  for (const int32_t bad : {0, -1, std::numeric_limits<int32_t>::min()}) {
    faults.push_back({"len", qorStatusBadSize, [bad](VectorArgs& a) { a.len = bad; }});
  }
  expectStatuses<VectorArgs>({std::vector<bool>(size_t(pointers), false), len}, faults, call, written);
}
