// Linear and rank filters.
#include "support/fuzz.h"
#include "support/services.h"

using fuzz::Arguments;

// Sizes at which the fixed-kernel filters start threads, now and then.
static QoriSize sizeForThreads(Arguments& a) { return a.chance(3) ? QoriSize{256, a.number(256, 300)} : a.size(); }

// A region whose neighbours above and below are real rows, so that the filter may read them: by a flag of the caller's,
// or because a lone thread does.
template <class T>
struct Region {
  fuzz::ImageArgument<T> image;
  T* data;
};

template <class T>
static Region<T> regionInsideRows(Arguments& a, QoriSize size) {
  constexpr int32_t margin = 2;
  Region<T> region = {a.image<T>({size.width, size.height + 2 * margin}), nullptr};
  if (region.image.data) {
    region.data = reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(region.image.data) +
                                       ptrdiff_t(margin) * region.image.image->step());
  }
  return region;
}

// `call` gets (src, srcStep, dst, dstStep, size, mask, border, buffer); `query` gets (size, mask, bytes).
template <class Src, class Dst, class Query, class Call>
static void addFixed(const std::string& name, Query query, Call call) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const Region<Src> src = regionInsideRows<Src>(a, size);
    const auto dst = a.image<Dst>(size);
    const QoriMaskSelector mask = a.chance(50) ? qorMaskSize3x3 : qorMaskSize5x5;
    // A spoiled selector may happen to be the other right one, which needs other scratch.
    const QoriMaskSelector told = a.orAnything(mask);
    int32_t bytes = 0;
    query(size, told == qorMaskSize3x3 || told == qorMaskSize5x5 ? told : mask, &bytes);
    const auto buffer = a.guarded(bytes);
    const QoriBorderType border = a.orAnything(a.number(0, 4) + (a.chance(20) ? qorBorderRowsAbove : 0) +
                                               (a.chance(20) ? qorBorderRowsBelow : 0));
    call(a, src.data, src.image.step, dst.data, dst.step, a.spoiled(size), told, border, a.orNull(buffer->data()));
    query({a.value<int32_t>(), a.value<int32_t>()}, a.orAnything(mask), a.orNull(&bytes));
  });
}

// Row stages. `call` gets all but the border value, which the C1 and C3 forms take differently.
template <class Src, class Dst, class Tap, class Query, class Call>
static void addRows(const std::string& name, int32_t channels, Query query, Call call) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.chance(3) ? QoriSize{512, a.number(64, 400)} : a.size();
    const auto src = a.image<Src>(size, channels);
    const auto dst = a.image<Dst>(size, channels);
    const int32_t taps = a.number(1, a.chance(80) ? 9 : 70);
    std::vector<Dst*> rows;
    for (int32_t y = 0; y < size.height; ++y) {
      uint8_t* row = reinterpret_cast<uint8_t*>(dst.image->data()) + ptrdiff_t(y) * dst.image->step();
      rows.push_back(a.chance(1) ? nullptr : reinterpret_cast<Dst*>(row));
    }
    const auto pointers = a.guarded(int64_t(rows.size() * sizeof(Dst*)));
    memcpy(pointers->data(), rows.data(), rows.size() * sizeof(Dst*));
    const auto kernel = a.array<Tap>(size_t(taps));
    int32_t bytes = 0;
    query(size, taps, &bytes);
    const auto buffer = a.guarded(bytes);
    call(a, src.data, src.step, a.orNull(reinterpret_cast<Dst* const*>(pointers->data())), a.spoiled(size),
         a.orNull(reinterpret_cast<const Tap*>(kernel->data())), a.chance(3) ? -a.number(0, 1 << 30) : taps,
         a.orAnything(a.number(0, taps - 1)), a.orAnything(a.number(0, 4)), a.orNull(buffer->data()));
    query({a.value<int32_t>(), a.value<int32_t>()}, a.value<int32_t>(), a.orNull(&bytes));
  });
}

template <class Src, class Dst, class Tap, class Query, class Call>
static void addColumns(const std::string& name, int32_t channels, Query query, Call call) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.chance(3) ? QoriSize{512, a.number(64, 400)} : a.size();
    const int32_t taps = a.number(1, a.chance(80) ? 9 : 70);
    const auto src = a.image<Src>(size, channels);
    const auto dst = a.image<Dst>(size, channels);
    std::vector<const Src*> rows;
    for (int32_t y = 0; y < size.height + taps - 1; ++y) {
      const uint8_t* row =
          reinterpret_cast<const uint8_t*>(src.image->data()) + ptrdiff_t(y * 7 % size.height) * src.image->step();
      rows.push_back(reinterpret_cast<const Src*>(row));
    }
    if (a.chance(5)) rows[size_t(a.number(0, int32_t(rows.size()) - 1))] = nullptr;
    const auto pointers = a.guarded(int64_t(rows.size() * sizeof(Src*)));
    memcpy(pointers->data(), rows.data(), rows.size() * sizeof(Src*));
    const auto kernel = a.array<Tap>(size_t(taps));
    int32_t bytes = 0;
    query(size, taps, &bytes);
    const auto buffer = a.guarded(bytes);
    call(a, a.orNull(reinterpret_cast<const Src* const*>(pointers->data())), dst.data, dst.step, a.spoiled(size),
         a.orNull(reinterpret_cast<const Tap*>(kernel->data())), a.chance(3) ? -a.number(0, 1 << 30) : taps,
         a.orNull(buffer->data()));
    query({a.value<int32_t>(), a.value<int32_t>()}, a.value<int32_t>(), a.orNull(&bytes));
  });
}

// Minimum and maximum filters: masks of all proportions, now and then of lengths that no image has.
template <class T, class Query, class Filter>
static void addExtreme(const std::string& name, int32_t channels, Query query, Filter filter) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels);
    const auto dst = a.image<T>(size, channels);
    const auto length = [&] {
      if (a.chance(3)) return a.number(1, std::numeric_limits<int32_t>::max());
      return a.number(1, a.chance(80) ? 20 : 700);
    };
    QoriSize mask = {length(), length()};
    const QoriPoint anchor = {a.orAnything(a.number(0, mask.width - 1)), a.orAnything(a.number(0, mask.height - 1))};
    // A size that has wrapped may be negative or far too large to be there; such a call gets none.
    int32_t bytes = 0;
    query(size.width, mask, &bytes);
    const auto buffer = a.guarded(bytes > 1 << 24 ? 0 : bytes);
    filter(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.spoiled(mask), anchor, a.orNull(buffer->data()));
    query(a.value<int32_t>(), {a.value<int32_t>(), a.value<int32_t>()}, a.orNull(&bytes));
  });
}

#define ADD_FIXED(name, Src, Dst, form, ...)                                                                     \
  addFixed<Src, Dst>("qoriFilter" #name "Border_" #form "_C1R", qoriFilter##name##GetBufferSize_##form##_C1R,    \
                     [](Arguments& a, const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize size, \
                        QoriMaskSelector mask, QoriBorderType border, uint8_t* buffer) {                         \
                       (void)a;                                                                                  \
                       qoriFilter##name##Border_##form##_C1R(src, srcStep, dst, dstStep, size, mask, border,     \
                                                             a.value<Src>(), ##__VA_ARGS__, buffer);             \
                     });
#define ADD_ALL_FIXED(name)                \
  ADD_FIXED(name, float, float, 32f)       \
  ADD_FIXED(name, uint8_t, int16_t, 8u16s) \
  ADD_FIXED(name, uint8_t, int8_t, 8u8s, a.chance(10) ? a.value<int32_t>() : a.number(-20, 20))

#define ADD_SCHARR(name, Src, Dst, form, ...)                                                                          \
  addFixed<Src, Dst>(                                                                                                  \
      "qoriFilter" #name "Border_" #form "_C1R",                                                                       \
      [](QoriSize size, QoriMaskSelector, int32_t* bytes) {                                                            \
        return qoriFilter##name##GetBufferSize_##form##_C1R(size, bytes);                                              \
      },                                                                                                               \
      [](Arguments& a, const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize size, QoriMaskSelector,    \
         QoriBorderType border, uint8_t* buffer) {                                                                     \
        qoriFilter##name##Border_##form##_C1R(src, srcStep, dst, dstStep, size, border, a.value<Src>(), ##__VA_ARGS__, \
                                              buffer);                                                                 \
      });
#define ADD_ALL_SCHARR(name)                \
  ADD_SCHARR(name, float, float, 32f)       \
  ADD_SCHARR(name, uint8_t, int16_t, 8u16s) \
  ADD_SCHARR(name, uint8_t, int8_t, 8u8s, a.chance(10) ? a.value<int32_t>() : a.number(-20, 20))

#define ADD_ROWS(form, Src, Dst, Tap, ...)                                                                             \
  addRows<Src, Dst, Tap>("qoriFilterRowBorderPipeline_" #form "_C1R", 1,                                               \
                         qoriFilterRowBorderPipelineGetBufferSize_##form##_C1R,                                        \
                         [](Arguments& a, const Src* src, int32_t srcStep, Dst* const* rows, QoriSize size,            \
                            const Tap* kernel, int32_t taps, int32_t anchor, QoriBorderType border, uint8_t* buffer) { \
                           qoriFilterRowBorderPipeline_##form##_C1R(src, srcStep, rows, size, kernel, taps, anchor,    \
                                                                    border, a.value<Src>(), ##__VA_ARGS__, buffer);    \
                         });                                                                                           \
  addRows<Src, Dst, Tap>("qoriFilterRowBorderPipeline_" #form "_C3R", 3,                                               \
                         qoriFilterRowBorderPipelineGetBufferSize_##form##_C3R,                                        \
                         [](Arguments& a, const Src* src, int32_t srcStep, Dst* const* rows, QoriSize size,            \
                            const Tap* kernel, int32_t taps, int32_t anchor, QoriBorderType border, uint8_t* buffer) { \
                           const Src value[3] = {a.value<Src>(), a.value<Src>(), a.value<Src>()};                      \
                           qoriFilterRowBorderPipeline_##form##_C3R(src, srcStep, rows, size, kernel, taps, anchor,    \
                                                                    border, a.orNull(value), ##__VA_ARGS__, buffer);   \
                         });

#define ADD_COLUMNS_OF(channels, form, Src, Dst, Tap, ...)                                                             \
  addColumns<Src, Dst, Tap>("qoriFilterColumnPipeline_" #form "_C" #channels "R", channels,                            \
                            qoriFilterColumnPipelineGetBufferSize_##form##_C##channels##R,                             \
                            [](Arguments& a, const Src* const* rows, Dst* dst, int32_t dstStep, QoriSize size,         \
                               const Tap* kernel, int32_t taps, uint8_t* buffer) {                                     \
                              (void)a;                                                                                 \
                              qoriFilterColumnPipeline_##form##_C##channels##R(rows, dst, dstStep, size, kernel, taps, \
                                                                               ##__VA_ARGS__, buffer);                 \
                            });
#define ADD_COLUMNS(...)         \
  ADD_COLUMNS_OF(1, __VA_ARGS__) \
  ADD_COLUMNS_OF(3, __VA_ARGS__)

#define ADD_EXTREME(name, form, channels, T)                                              \
  addExtreme<T>("qoriFilter" #name "BorderReplicate_" #form "_C" #channels "R", channels, \
                qoriFilter##name##GetBufferSize_##form##_C##channels##R,                  \
                qoriFilter##name##BorderReplicate_##form##_C##channels##R);
#define ADD_EXTREMES(form, T)  \
  ADD_EXTREME(Max, form, 1, T) \
  ADD_EXTREME(Max, form, 3, T) \
  ADD_EXTREME(Max, form, 4, T) \
  ADD_EXTREME(Min, form, 1, T) \
  ADD_EXTREME(Min, form, 3, T) \
  ADD_EXTREME(Min, form, 4, T)

// Rows above and below the region are there, as a flag may ask for them.
static void addGauss() {
  fuzz::add("qoriFilterGaussBorder_32f_C1R", [](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const int32_t half = a.number(1, a.chance(80) ? 5 : 40), kernelSize = 2 * half + 1;
    const auto src = a.image<float>({size.width, size.height + 2 * half});
    const auto dst = a.image<float>(size);
    const float* const first = src.data ? reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(src.data) +
                                                                         ptrdiff_t(half) * src.image->step())
                                        : nullptr;
    int32_t bytes = 0;
    qoriFilterGaussGetBufferSize_32f_C1R(size, kernelSize, &bytes);
    const auto buffer = a.guarded(bytes);
    const QoriBorderType border = a.orAnything(a.number(0, 4) + (a.chance(20) ? qorBorderRowsAbove : 0) +
                                               (a.chance(20) ? qorBorderRowsBelow : 0));
    const int32_t told = a.chance(3) ? kernelSize - a.number(1, 2 * half) : kernelSize;
    const float sigma = a.value<float>(), value = a.value<float>();
    qoriFilterGaussBorder_32f_C1R(first, src.step, dst.data, dst.step, a.spoiled(size), told, sigma, border, value,
                                  a.orNull(buffer->data()));
    qoriFilterGaussGetBufferSize_32f_C1R({a.value<int32_t>(), a.value<int32_t>()}, a.value<int32_t>(),
                                         a.orNull(&bytes));
  });
}

static const bool added = [] {
  addGauss();
  ADD_ALL_FIXED(SobelHoriz)
  ADD_ALL_FIXED(SobelVert)
  ADD_ALL_FIXED(SobelNegVert)
  ADD_ALL_FIXED(SobelHorizSecond)
  ADD_ALL_FIXED(SobelVertSecond)
  ADD_ALL_FIXED(SobelCross)
  ADD_ALL_FIXED(Laplacian)
  ADD_FIXED(Lowpass, float, float, 32f)
  ADD_FIXED(Lowpass, uint8_t, uint8_t, 8u)
  ADD_ALL_SCHARR(ScharrHoriz)
  ADD_ALL_SCHARR(ScharrVert)
  ADD_ROWS(32f, float, float, float)
  ADD_ROWS(16s, int16_t, int16_t, int16_t, a.value<int32_t>())
  ADD_ROWS(8u16s, uint8_t, int16_t, int16_t, a.value<int32_t>())
  ADD_ROWS(Low_16s, int16_t, int16_t, int16_t, a.value<int32_t>())
  ADD_COLUMNS(32f, float, float, float)
  ADD_COLUMNS(16s, int16_t, int16_t, int16_t, a.value<int32_t>())
  ADD_COLUMNS(16s8s, int16_t, int8_t, int16_t, a.value<int32_t>())
  ADD_COLUMNS(16s8u, int16_t, uint8_t, int16_t, a.value<int32_t>())
  ADD_COLUMNS(Low_16s, int16_t, int16_t, int16_t, a.value<int32_t>())
  ADD_EXTREMES(8u, uint8_t)
  ADD_EXTREMES(32f, float)

  fuzz::add("qoriGenSobelKernel", [](Arguments& a) {
    const int32_t size = a.number(1, 63);
    const auto kernel16s = a.guarded(size * 2), kernel32f = a.guarded(size * 4);
    const int32_t told = a.chance(10) ? -a.number(0, 1 << 30) : size;
    const int32_t order = a.orAnything(a.number(0, size - 1)), sign = a.value<int32_t>();
    qoriGenSobelKernel_16s(a.orNull(reinterpret_cast<int16_t*>(kernel16s->data())), told, order, sign);
    qoriGenSobelKernel_32f(a.orNull(reinterpret_cast<float*>(kernel32f->data())), told, order, sign);
  });
  return true;
}();
