// What the fuzz targets share: random arguments, images over guarded memory, and the list of functions.
//
// A target makes arguments that are right, spoils some of them now and then, and calls. Memory is always there for what
// the arguments say, ends (or begins) at an unmapped page, and is checked afterwards: whatever the call returned,
// nothing outside the images may have changed.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "qorcvmx.h"
#include "support/image.h"
#include "support/memory.h"

namespace fuzz {

// An image whose pointer and step may be spoiled.
template <class T>
struct ImageArgument {
  std::shared_ptr<Image<T>> image;
  T* data;
  int32_t step;
};

class Arguments {
 public:
  Arguments(const uint8_t* bytes, size_t size) : provider_(bytes, size) {}
  // Stops the program if memory outside the images has changed.
  ~Arguments();
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  // What the images and arrays hold now, scratch left out, as one number.
  uint64_t digest() const;

  int32_t number(int32_t first, int32_t last) { return provider_.ConsumeIntegralInRange(first, last); }
  bool chance(int32_t percent) { return number(0, 99) < percent; }

  // A value of any bits.
  template <class T>
  T value() {
    if constexpr (std::is_floating_point_v<T>) {
      const auto bits = provider_.ConsumeIntegral<std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>();
      T f;
      memcpy(&f, &bits, sizeof f);
      return f;
    } else {
      return provider_.ConsumeIntegral<T>();
    }
  }

  // `right`, or sometimes anything else.
  int32_t orAnything(int32_t right) { return chance(4) ? value<int32_t>() : right; }

  // Sizes up to the limit; sometimes large enough for threads.
  QoriSize size(int32_t mostPixels = 4096);

  // The size that a call is told: `right`, or sometimes one that is refused.
  QoriSize spoiled(QoriSize right);

  // An image for `size` pixels. The pointer may become null, the step too short or odd.
  template <class T>
  ImageArgument<T> image(QoriSize size, int32_t channels = 1) {
    const int32_t gap = chance(50) ? number(0, 9) : 0;
    const size_t shift = chance(20) ? 1 : 0;
    auto image =
        std::make_shared<Image<T>>(size.width, size.height, channels, gap, chance(50) ? Edge::end : Edge::begin, shift);
    // A few values repeated: enough for a reduction or an edge, cheap in bytes of input.
    std::vector<T> values(size_t(number(1, 16)));
    for (T& v : values) v = value<T>();
    size_t next = 0;
    image->fill([&] { return values[(next++ * 2654435761u >> 7) % values.size()]; });
    checks_.push_back([image] { return image->gapsIntact(); });
    contents_.push_back([image] { return image->bytes(); });
    ImageArgument<T> argument = {image, image->data(), image->step()};
    if (chance(3)) argument.data = nullptr;
    if (chance(3)) argument.step = shortStep(size.width * channels * int32_t(sizeof(T)));
    // Only an odd step is refused whatever the element: a call may not take it for a longer one.
    if (sizeof(T) > 1 && chance(3)) argument.step |= 1;
    return argument;
  }

  // `count` elements of any value, exactly as many as there are.
  template <class T>
  std::shared_ptr<GuardedMemory> array(size_t count) {
    auto memory = guarded(count * sizeof(T));
    for (size_t i = 0; i < count; ++i) {
      const T v = value<T>();
      memcpy(memory->data() + i * sizeof(T), &v, sizeof v);
    }
    contents_.push_back([memory] { return std::vector<uint8_t>(memory->data(), memory->data() + memory->size()); });
    return memory;
  }

  // Memory of exactly `bytes` bytes; for a negative size, as queries of refused arguments leave it, of none.
  std::shared_ptr<GuardedMemory> guarded(int64_t bytes);

  // A pointer that is sometimes null.
  template <class T>
  T* orNull(T* pointer) {
    return chance(3) ? nullptr : pointer;
  }

 private:
  int32_t shortStep(int32_t rowBytes);

  FuzzedDataProvider provider_;
  std::vector<std::function<bool()>> checks_;
  std::vector<std::function<std::vector<uint8_t>()>> contents_;
};

// A function, or a family's functions that make sense only together.
struct Target {
  std::string name;
  std::function<void(Arguments&)> call;
};

// Whether nobody else calls the library meanwhile, so that a target may change what the core services say.
extern bool alone;

// Adds a target; registered before main() runs.
bool add(const std::string& name, std::function<void(Arguments&)> target);

const std::vector<Target>& targets();

}  // namespace fuzz
