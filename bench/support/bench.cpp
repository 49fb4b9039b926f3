#include "support/bench.h"

#include <benchmark/benchmark.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>

#include "qorcore.h"

namespace bench {

static Picture<uint8_t> readPhoto() {
  png_image image;
  memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, QOR_PHOTO)) {
    fprintf(stderr, "%s: %s\n", QOR_PHOTO, image.message);
    exit(1);
  }
  image.format = PNG_FORMAT_GRAY;
  Picture<uint8_t> photo({int32_t(image.width), int32_t(image.height)});
  png_image_finish_read(&image, nullptr, photo.data(), photo.step(), nullptr);
  return photo;
}

Picture<uint8_t> naturalScene(QoriSize size) {
  static const Picture<uint8_t> photo = readPhoto();
  Picture<uint8_t> scene(size);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      scene.elements[size_t(y) * size.width + x] =
          photo.elements[size_t(y % photo.size.height) * photo.size.width + x % photo.size.width];
    }
  }
  return scene;
}

template <class T>
Picture<T> noise(QoriSize size, int channels) {
  Picture<T> picture(size, channels);
  std::mt19937 engine(1);
  for (T& element : picture.elements) element = T(engine());
  return picture;
}

template <>
Picture<float> noise(QoriSize size, int channels) {
  Picture<float> picture(size, channels);
  std::mt19937 engine(1);
  std::uniform_real_distribution<float> values(0, 255);
  for (float& element : picture.elements) element = values(engine);
  return picture;
}

template Picture<uint8_t> noise(QoriSize, int);
template Picture<int8_t> noise(QoriSize, int);
template Picture<uint16_t> noise(QoriSize, int);
template Picture<int16_t> noise(QoriSize, int);
template Picture<int32_t> noise(QoriSize, int);

void check(QorStatus status, const char* what) {
  if (status < 0) {
    fprintf(stderr, "%s: status %d\n", what, status);
    exit(1);
  }
}

// Benchmarks are registered before main() runs, so that a file only has to be linked. Names are fields joined by bars,
// for the report to take apart.
static void addSized(const std::string& function, const std::string& variant, QoriSize size, int threads,
                     const std::function<std::function<void()>(QoriSize)>& prepare) {
  const std::string name = function + "|" + variant + "|" + std::to_string(size.width) + "x" +
                           std::to_string(size.height) + "|" + (threads == 1 ? "one" : "all");
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    qorSetNumThreads(threads);
    const std::function<void()> call = prepare(size);
    call();
    for (auto _ : state) {
      call();
      benchmark::ClobberMemory();
    }
  })->UseRealTime();
}

void add(const std::string& function, const std::string& variant,
         std::function<std::function<void()>(QoriSize)> prepare) {
  for (const QoriSize size : {QoriSize{640, 480}, QoriSize{1920, 1080}}) {
    for (const int threads : {1, 0}) addSized(function, variant, size, threads, prepare);
  }
}

void tell(const std::string& function, const std::string& fact) {
  benchmark::AddCustomContext("fact " + function, fact);
}

}  // namespace bench

// The unit of the report: a plain copy of width x height bytes.
static const bool copyAdded = [] {
  bench::add("copy", "", [](QoriSize size) {
    auto src = std::make_shared<bench::Picture<uint8_t>>(size);
    auto dst = std::make_shared<bench::Picture<uint8_t>>(size);
    return [src, dst] { memcpy(dst->data(), src->data(), dst->elements.size()); };
  });
  return true;
}();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
