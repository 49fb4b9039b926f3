// What the benchmarks share: pictures, and the registration of a function at all sizes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "qorcvmx.h"

namespace bench {

// An image without gaps between its rows.
template <class T>
struct Picture {
  QoriSize size;
  std::vector<T> elements;

  explicit Picture(QoriSize size_, int channels = 1)
      : size(size_), elements(size_t(size_.width) * size_.height * channels) {}
  T* data() { return elements.data(); }
  int32_t step() const { return int32_t(elements.size() / size.height * sizeof(T)); }
};

// A photograph, repeated to fill the size.
Picture<uint8_t> naturalScene(QoriSize size);

// Evenly distributed values, the same on each call.
template <class T>
Picture<T> noise(QoriSize size, int channels = 1);

// Stops the program if a call fails: a benchmark of a refused call measures nothing.
void check(QorStatus status, const char* what);
#define CHECK_CALL(call) ::bench::check(call, #call)

// Asks a GetBufferSize function, given as a call with `&size` at its end, and allocates.
template <class Query>
std::vector<uint8_t> scratch(Query query) {
  int32_t size = 0;
  check(query(&size), "size query");
  return std::vector<uint8_t>(size_t(size) + 64);
}

// Registers a function in one case ("" if it has just one) at 640x480 and 1920x1080, with one thread and with all.
// prepare(size) makes the data and returns the call to be measured.
void add(const std::string& function, const std::string& variant,
         std::function<std::function<void()>(QoriSize)> prepare);

// Something about a function that the report prints below its table.
void tell(const std::string& function, const std::string& fact);

}  // namespace bench
