// Linear and rank filters.
#include <memory>

#include "support/bench.h"

using bench::Picture;

// A fixed-kernel filter with a mask selector; `rest` are the arguments between the border value and the buffer.
template <class Src, class Dst, class Filter, class Size, class... Rest>
static void addFixed(const char* name, Filter filter, Size bufferSize, Rest... rest) {
  for (const QoriMaskSelector mask : {QoriMaskSelector(qorMaskSize3x3), QoriMaskSelector(qorMaskSize5x5)}) {
    bench::add(name, mask == qorMaskSize3x3 ? "3x3, replicate" : "5x5, replicate", [=](QoriSize size) {
      auto src = std::make_shared<Picture<Src>>(bench::noise<Src>(size));
      auto dst = std::make_shared<Picture<Dst>>(size);
      auto buffer = std::make_shared<std::vector<uint8_t>>(
          bench::scratch([=](int32_t* bytes) { return bufferSize(size, mask, bytes); }));
      return [=] {
        CHECK_CALL(filter(src->data(), src->step(), dst->data(), dst->step(), size, mask, qorBorderReplicate, Src(0),
                          rest..., buffer->data()));
      };
    });
  }
}

template <class Src, class Dst, class Filter, class Size, class... Rest>
static void addScharr(const char* name, Filter filter, Size bufferSize, Rest... rest) {
  bench::add(name, "replicate", [=](QoriSize size) {
    auto src = std::make_shared<Picture<Src>>(bench::noise<Src>(size));
    auto dst = std::make_shared<Picture<Dst>>(size);
    auto buffer =
        std::make_shared<std::vector<uint8_t>>(bench::scratch([=](int32_t* bytes) { return bufferSize(size, bytes); }));
    return [=] {
      CHECK_CALL(filter(src->data(), src->step(), dst->data(), dst->step(), size, qorBorderReplicate, Src(0), rest...,
                        buffer->data()));
    };
  });
}

// A row stage into an image of its own.
template <class Src, class Dst, class Tap, class Stage, class Size, class Border, class... Rest>
static void addRows(const char* name, int channels, Stage stage, Size bufferSize, int taps, Border border,
                    Rest... divisor) {
  bench::add(name, std::to_string(taps) + " taps, mirror", [=](QoriSize size) {
    auto src = std::make_shared<Picture<Src>>(bench::noise<Src>(size, channels));
    auto dst = std::make_shared<Picture<Dst>>(size, channels);
    auto rows = std::make_shared<std::vector<Dst*>>();
    for (int32_t y = 0; y < size.height; ++y) rows->push_back(dst->data() + size_t(y) * size.width * channels);
    auto kernel = std::make_shared<std::vector<Tap>>(taps, Tap(1));
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return bufferSize(size, taps, bytes); }));
    return [=, heldByPointers = dst] {
      CHECK_CALL(stage(src->data(), src->step(), rows->data(), size, kernel->data(), taps, taps / 2, qorBorderMirror,
                       border, divisor..., buffer->data()));
    };
  });
}

// A column stage over an image whose edge rows are repeated.
template <class Src, class Dst, class Tap, class Stage, class Size, class... Rest>
static void addColumns(const char* name, int channels, Stage stage, Size bufferSize, int taps, Rest... divisor) {
  bench::add(name, std::to_string(taps) + " taps", [=](QoriSize size) {
    auto src = std::make_shared<Picture<Src>>(bench::noise<Src>(size, channels));
    auto dst = std::make_shared<Picture<Dst>>(size, channels);
    auto rows = std::make_shared<std::vector<const Src*>>();
    for (int32_t y = 0; y < size.height + taps - 1; ++y) {
      const int32_t row = std::min(std::max(y - taps / 2, 0), size.height - 1);
      rows->push_back(src->data() + size_t(row) * size.width * channels);
    }
    auto kernel = std::make_shared<std::vector<Tap>>(taps, Tap(1));
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return bufferSize(size, taps, bytes); }));
    return [=, heldByPointers = src] {
      CHECK_CALL(stage(rows->data(), dst->data(), dst->step(), size, kernel->data(), taps, divisor..., buffer->data()));
    };
  });
}

// A minimum or maximum filter with a square mask and its anchor in the middle.
template <class T, class Filter, class Size>
static void addExtreme(const char* name, int channels, Filter filter, Size bufferSize, int32_t length) {
  const std::string square = std::to_string(length) + "x" + std::to_string(length);
  bench::add(name, square + ", centre", [=](QoriSize size) {
    const QoriSize mask = {length, length};
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    auto dst = std::make_shared<Picture<T>>(size, channels);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return bufferSize(size.width, mask, bytes); }));
    return [=] {
      CHECK_CALL(filter(src->data(), src->step(), dst->data(), dst->step(), size, mask, {length / 2, length / 2},
                        buffer->data()));
    };
  });
}

static void addGauss(int32_t kernelSize, float sigma, const char* variant) {
  bench::add("qoriFilterGaussBorder_32f_C1R", variant, [=](QoriSize size) {
    auto src = std::make_shared<Picture<float>>(bench::noise<float>(size));
    auto dst = std::make_shared<Picture<float>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return qoriFilterGaussGetBufferSize_32f_C1R(size, kernelSize, bytes); }));
    return [=] {
      CHECK_CALL(qoriFilterGaussBorder_32f_C1R(src->data(), src->step(), dst->data(), dst->step(), size, kernelSize,
                                               sigma, qorBorderReplicate, 0, buffer->data()));
    };
  });
}

static const bool added = [] {
#define ADD_FIXED(name)                                                                                 \
  addFixed<uint8_t, int16_t>("qoriFilter" #name "Border_8u16s_C1R", qoriFilter##name##Border_8u16s_C1R, \
                             qoriFilter##name##GetBufferSize_8u16s_C1R);                                \
  addFixed<uint8_t, int8_t>("qoriFilter" #name "Border_8u8s_C1R", qoriFilter##name##Border_8u8s_C1R,    \
                            qoriFilter##name##GetBufferSize_8u8s_C1R, 8);                               \
  addFixed<float, float>("qoriFilter" #name "Border_32f_C1R", qoriFilter##name##Border_32f_C1R,         \
                         qoriFilter##name##GetBufferSize_32f_C1R);
  ADD_FIXED(SobelHoriz)
  ADD_FIXED(SobelVert)
  ADD_FIXED(SobelNegVert)
  ADD_FIXED(SobelHorizSecond)
  ADD_FIXED(SobelVertSecond)
  ADD_FIXED(SobelCross)
  ADD_FIXED(Laplacian)
#undef ADD_FIXED
  addFixed<uint8_t, uint8_t>("qoriFilterLowpassBorder_8u_C1R", qoriFilterLowpassBorder_8u_C1R,
                             qoriFilterLowpassGetBufferSize_8u_C1R);
  addFixed<float, float>("qoriFilterLowpassBorder_32f_C1R", qoriFilterLowpassBorder_32f_C1R,
                         qoriFilterLowpassGetBufferSize_32f_C1R);
#define ADD_SCHARR(name)                                                                                 \
  addScharr<uint8_t, int16_t>("qoriFilter" #name "Border_8u16s_C1R", qoriFilter##name##Border_8u16s_C1R, \
                              qoriFilter##name##GetBufferSize_8u16s_C1R);                                \
  addScharr<uint8_t, int8_t>("qoriFilter" #name "Border_8u8s_C1R", qoriFilter##name##Border_8u8s_C1R,    \
                             qoriFilter##name##GetBufferSize_8u8s_C1R, 16);                              \
  addScharr<float, float>("qoriFilter" #name "Border_32f_C1R", qoriFilter##name##Border_32f_C1R,         \
                          qoriFilter##name##GetBufferSize_32f_C1R);
  ADD_SCHARR(ScharrHoriz)
  ADD_SCHARR(ScharrVert)
#undef ADD_SCHARR

  static const uint8_t black8u[3] = {};
  static const int16_t black16s[3] = {};
  static const float black32f[3] = {};
  for (const int taps : {3, 5, 11, 31}) {
#define ADD_ROWS(form, Src, Dst, Tap, black, ...)                                                                  \
  addRows<Src, Dst, Tap>("qoriFilterRowBorderPipeline_" #form "_C1R", 1, qoriFilterRowBorderPipeline_##form##_C1R, \
                         qoriFilterRowBorderPipelineGetBufferSize_##form##_C1R, taps, Src(0), ##__VA_ARGS__);      \
  addRows<Src, Dst, Tap>("qoriFilterRowBorderPipeline_" #form "_C3R", 3, qoriFilterRowBorderPipeline_##form##_C3R, \
                         qoriFilterRowBorderPipelineGetBufferSize_##form##_C3R, taps, black, ##__VA_ARGS__);
    ADD_ROWS(8u16s, uint8_t, int16_t, int16_t, black8u, taps)
    ADD_ROWS(16s, int16_t, int16_t, int16_t, black16s, taps)
    ADD_ROWS(Low_16s, int16_t, int16_t, int16_t, black16s, taps)
    ADD_ROWS(32f, float, float, float, black32f)
#undef ADD_ROWS
#define ADD_COLUMNS(form, Src, Dst, Tap, ...)                                                                   \
  addColumns<Src, Dst, Tap>("qoriFilterColumnPipeline_" #form "_C1R", 1, qoriFilterColumnPipeline_##form##_C1R, \
                            qoriFilterColumnPipelineGetBufferSize_##form##_C1R, taps, ##__VA_ARGS__);
    ADD_COLUMNS(16s, int16_t, int16_t, int16_t, taps)
    ADD_COLUMNS(16s8s, int16_t, int8_t, int16_t, taps)
    ADD_COLUMNS(16s8u, int16_t, uint8_t, int16_t, taps)
    ADD_COLUMNS(Low_16s, int16_t, int16_t, int16_t, taps)
    ADD_COLUMNS(32f, float, float, float)
#undef ADD_COLUMNS
  }

  addGauss(7, 1.4f, "size 7, sigma 1.4, replicate");
  addGauss(31, 5, "size 31, sigma 5, replicate");

#define ADD_EXTREME(name, form, channels, T, length)                                      \
  addExtreme<T>("qoriFilter" #name "BorderReplicate_" #form "_C" #channels "R", channels, \
                qoriFilter##name##BorderReplicate_##form##_C##channels##R,                \
                qoriFilter##name##GetBufferSize_##form##_C##channels##R, length);
#define ADD_EXTREMES(...)       \
  ADD_EXTREME(Max, __VA_ARGS__) \
  ADD_EXTREME(Min, __VA_ARGS__)
  for (const int32_t length : {3, 5, 8, 15, 41}) {
    ADD_EXTREMES(8u, 1, uint8_t, length)
    ADD_EXTREMES(32f, 1, float, length)
  }
  ADD_EXTREMES(8u, 3, uint8_t, 5)
  ADD_EXTREMES(8u, 4, uint8_t, 5)
  ADD_EXTREMES(32f, 3, float, 5)
  ADD_EXTREMES(32f, 4, float, 5)
#undef ADD_EXTREMES
#undef ADD_EXTREME
  return true;
}();
