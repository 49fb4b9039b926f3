// Edges and features.
#include "support/fuzz.h"

using fuzz::Arguments;

template <class T, class Function>
static void addCanny(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto dx = a.image<T>(size), dy = a.image<T>(size);
    // The gaps of dst are cleared too, so it gets an image without gaps; the rows of dst may not be spoiled to longer.
    const Image<uint8_t> dst(size.width, size.height, 1, 0, a.chance(50) ? Edge::end : Edge::begin);
    int32_t bytes = 0;
    qoriCannyGetSize(size, &bytes);
    const auto buffer = a.guarded(bytes);
    const float low = a.chance(80) ? float(a.number(0, 200)) : a.value<float>();
    const float high = a.chance(80) ? low + float(a.number(-5, 200)) : a.value<float>();
    function(dx.data, dx.step, dy.data, dy.step, a.orNull(dst.data()), dst.step() - (a.chance(3) ? 1 : 0),
             a.spoiled(size), low, high, a.orNull(buffer->data()));
  });
}

template <class T, class Measure, class Query>
static void addCorners(const char* name, Measure measure, Query query, int32_t values) {
  fuzz::add(name, [=](Arguments& a) {
    // Large enough for threads, now and then; a lone one reads two rows above and below the region.
    const QoriSize size = a.chance(3) ? QoriSize{256, a.number(256, 300)} : a.size();
    const auto src = a.image<T>({size.width, size.height + 4});
    const T* const first =
        src.data ? reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(src.data) + 2 * src.image->step())
                 : nullptr;
    auto dst = a.image<float>(size, values);
    // The 32f form takes steps of one float a pixel and writes rows of six: here such a step has to be too short even
    // so.
    if (values == 6 && sizeof(T) == 4 && dst.step < 24 * size.width) dst.step = std::min(dst.step, 4 * size.width - 1);
    const bool scharr = a.chance(50);
    const int32_t kernelType = a.orAnything(scharr ? 1 : 0);
    const int32_t apertureSize = a.orAnything(scharr || a.chance(50) ? 3 : 5);
    const int32_t avgWindow = a.orAnything(a.chance(50) ? 3 : 5);
    int32_t bytes = 0;
    query(size, apertureSize, avgWindow, &bytes);
    const auto buffer = a.guarded(bytes);
    measure(first, src.step, dst.data, dst.step, a.spoiled(size), kernelType, apertureSize, avgWindow,
            a.orNull(buffer->data()));
  });
}

template <class Query>
static void addCornerSize(const char* name, Query query) {
  fuzz::add(name, [=](Arguments& a) {
    int32_t bytes;
    const QoriSize size = {a.value<int32_t>(), a.value<int32_t>()};
    query(size, a.orAnything(3), a.orAnything(5), a.orNull(&bytes));
  });
}

// search(src, srcStep, size, delta, threshold, lines, region, maxLineCount, lineCount, buffer)
template <class Search>
static void addHough(const char* name, Search search) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.chance(3)   ? QoriSize{a.number(32760, 32776), 2}
                          : a.chance(3) ? QoriSize{1, a.number(32760, 32776)}
                                        : a.size();
    const auto src = a.image<uint8_t>(size);
    const int32_t maxLineCount = a.number(1, 40), told = a.chance(4) ? a.number(-2, 1) : maxLineCount;
    // Steps of any kind, as long as the scratch is not too large. Small ones let the products wrap.
    const float most = float(size.width + size.height);
    QoriPointPolar delta = {most / float(a.number(1, 200)), float(a.number(1, 320)) * 0.01f};
    if (a.chance(10)) delta.rho = most / float(a.number(1, a.chance(10) ? 4000000 : 20000));
    if (a.chance(5)) delta.rho = a.value<float>();
    if (a.chance(5)) delta.theta = a.value<float>();
    const int32_t threshold = a.orAnything(a.number(0, 20));
    float region[4] = {a.value<float>(), a.value<float>(), a.value<float>(), a.value<float>()};
    if (a.chance(80)) {
      region[0] = most * 0.01f * float(a.number(-110, 110));
      region[1] = 0.01f * float(a.number(-20, 330));
      region[2] = region[0] + most * 0.01f * float(a.number(-1, 150));
      region[3] = region[1] + 0.01f * float(a.number(-1, 330));
    }
    const QoriSize toldSize = a.spoiled(size);
    // The truth in double; where a count has no 32 bits there are none, whatever the size says.
    const double rhos = (2.0 * double(most) + 1) / double(delta.rho), thetas = 3.14159 / double(delta.theta);
    const bool tooMany = (rhos > 1e7 && rhos < 3e9) || (thetas > 1e4 && thetas < 3e9) || rhos * thetas > 5e7;
    if (tooMany && rhos < 3e9 && thetas < 3e9) return;
    int32_t bytes = 0;
    qoriHoughLineGetSize_8u_C1R(size, delta, maxLineCount, &bytes);
    const auto buffer = a.guarded(rhos < 3e9 && thetas < 3e9 ? bytes : 0);
    const auto lines = a.image<float>({2 * maxLineCount, 1});
    int32_t lineCount = 0;
    search(src.data, src.step, toldSize, delta, threshold, reinterpret_cast<QoriPointPolar*>(lines.data),
           a.orNull(region), told, a.orNull(&lineCount), a.orNull(buffer->data()));
  });
}

static void addLines() {
  addHough("qoriHoughLine_8u32f_C1R", [](const uint8_t* src, int32_t srcStep, QoriSize size, QoriPointPolar delta,
                                         int32_t threshold, QoriPointPolar* lines, const float*, int32_t maxLineCount,
                                         int32_t* lineCount, uint8_t* buffer) {
    return qoriHoughLine_8u32f_C1R(src, srcStep, size, delta, threshold, lines, maxLineCount, lineCount, buffer);
  });
  addHough("qoriHoughLine_Region_8u32f_C1R",
           [](const uint8_t* src, int32_t srcStep, QoriSize size, QoriPointPolar delta, int32_t threshold,
              QoriPointPolar* lines, float* region, int32_t maxLineCount, int32_t* lineCount, uint8_t* buffer) {
             return qoriHoughLine_Region_8u32f_C1R(src, srcStep, size, lines, region, maxLineCount, lineCount, delta,
                                                   threshold, buffer);
           });
  fuzz::add("qoriHoughLineGetSize_8u_C1R", [](Arguments& a) {
    int32_t bytes;
    qoriHoughLineGetSize_8u_C1R({a.value<int32_t>(), a.value<int32_t>()}, {a.value<float>(), a.value<float>()},
                                a.value<int32_t>(), a.orNull(&bytes));
  });
}

template <class T, class Function>
static void addGradientGray(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, 3);
    const auto dst = a.image<T>(size);
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orAnything(a.number(0, 2)));
  });
}

template <class T, class Function>
static void addSampleLine(const char* name, Function function, int32_t channels) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels);
    const auto anyPoint = [&] {
      return QoriPoint{a.orAnything(a.number(0, size.width - 1)), a.orAnything(a.number(0, size.height - 1))};
    };
    const QoriPoint from = anyPoint(), to = anyPoint();
    const int64_t across = std::abs(int64_t(from.x) - to.x), down = std::abs(int64_t(from.y) - to.y);
    const int64_t pixels = std::min<int64_t>(std::max(across, down) + 1, size.width + size.height);
    const auto dst = a.guarded(pixels * channels * int64_t(sizeof(T)));
    function(src.data, src.step, a.spoiled(size), a.orNull(reinterpret_cast<T*>(dst->data())), from, to);
  });
}

template <class T, class Function, class Query>
static void addPeaks(const char* name, Function function, Query query) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size);
    int32_t bytes = 0;
    query(size.width, &bytes);
    const auto buffer = a.guarded(bytes);
    const int32_t room = a.number(1, 64), border = a.orAnything(a.number(1, 3));
    const auto peaks = a.guarded(room * int64_t(sizeof(QoriPoint)));
    const T threshold = a.value<T>();
    int32_t count;
    function(src.data, src.step, a.spoiled(size), threshold, a.orNull(reinterpret_cast<QoriPoint*>(peaks->data())),
             a.chance(3) ? 0 : room, a.orNull(&count), a.orAnything(a.number(0, 1)), border, a.orNull(buffer->data()));
  });
}

template <class Query>
static void addPeaksSize(const char* name, Query query) {
  fuzz::add(name, [=](Arguments& a) {
    int32_t bytes;
    query(a.value<int32_t>(), a.orNull(&bytes));
  });
}

static void addSmallMeasures() {
  addGradientGray<uint8_t>("qoriGradientColorToGray_8u_C3C1R", qoriGradientColorToGray_8u_C3C1R);
  addGradientGray<uint16_t>("qoriGradientColorToGray_16u_C3C1R", qoriGradientColorToGray_16u_C3C1R);
  addGradientGray<float>("qoriGradientColorToGray_32f_C3C1R", qoriGradientColorToGray_32f_C3C1R);
  fuzz::add("qoribFastArctan_32f", [](Arguments& a) {
    const int32_t length = a.number(1, 300);
    const auto y = a.array<float>(size_t(length)), x = a.array<float>(size_t(length));
    const auto dst = a.guarded(4 * int64_t(length));
    qoribFastArctan_32f(a.orNull(reinterpret_cast<const float*>(y->data())),
                        a.orNull(reinterpret_cast<const float*>(x->data())),
                        a.orNull(reinterpret_cast<float*>(dst->data())), a.chance(3) ? -length : length);
  });
  addSampleLine<uint8_t>("qoriSampleLine_8u_C1R", qoriSampleLine_8u_C1R, 1);
  addSampleLine<uint8_t>("qoriSampleLine_8u_C3R", qoriSampleLine_8u_C3R, 3);
  addSampleLine<uint16_t>("qoriSampleLine_16u_C1R", qoriSampleLine_16u_C1R, 1);
  addSampleLine<uint16_t>("qoriSampleLine_16u_C3R", qoriSampleLine_16u_C3R, 3);
  addSampleLine<float>("qoriSampleLine_32f_C1R", qoriSampleLine_32f_C1R, 1);
  addSampleLine<float>("qoriSampleLine_32f_C3R", qoriSampleLine_32f_C3R, 3);
  addPeaks<float>("qoriFindPeaks3x3_32f_C1R", qoriFindPeaks3x3_32f_C1R, qoriFindPeaks3x3GetBufferSize_32f_C1R);
  addPeaks<int32_t>("qoriFindPeaks3x3_32s_C1R", qoriFindPeaks3x3_32s_C1R, qoriFindPeaks3x3GetBufferSize_32s_C1R);
  addPeaksSize("qoriFindPeaks3x3GetBufferSize_32f_C1R", qoriFindPeaks3x3GetBufferSize_32f_C1R);
  addPeaksSize("qoriFindPeaks3x3GetBufferSize_32s_C1R", qoriFindPeaks3x3GetBufferSize_32s_C1R);
}

static const bool added = [] {
  addLines();
  addSmallMeasures();
  addCorners<uint8_t>("qoriEigenValsVecs_8u32f_C1R", qoriEigenValsVecs_8u32f_C1R,
                      qoriEigenValsVecsGetBufferSize_8u32f_C1R, 6);
  addCorners<float>("qoriEigenValsVecs_32f_C1R", qoriEigenValsVecs_32f_C1R, qoriEigenValsVecsGetBufferSize_32f_C1R, 6);
  addCorners<uint8_t>("qoriMinEigenVal_8u32f_C1R", qoriMinEigenVal_8u32f_C1R, qoriMinEigenValGetBufferSize_8u32f_C1R,
                      1);
  addCorners<float>("qoriMinEigenVal_32f_C1R", qoriMinEigenVal_32f_C1R, qoriMinEigenValGetBufferSize_32f_C1R, 1);
  addCornerSize("qoriEigenValsVecsGetBufferSize_8u32f_C1R", qoriEigenValsVecsGetBufferSize_8u32f_C1R);
  addCornerSize("qoriEigenValsVecsGetBufferSize_32f_C1R", qoriEigenValsVecsGetBufferSize_32f_C1R);
  addCornerSize("qoriMinEigenValGetBufferSize_8u32f_C1R", qoriMinEigenValGetBufferSize_8u32f_C1R);
  addCornerSize("qoriMinEigenValGetBufferSize_32f_C1R", qoriMinEigenValGetBufferSize_32f_C1R);
  addCanny<int16_t>("qoriCanny_16s8u_C1R", qoriCanny_16s8u_C1R);
  addCanny<float>("qoriCanny_32f8u_C1R", qoriCanny_32f8u_C1R);
  fuzz::add("qoriCannyGetSize", [](Arguments& a) {
    int32_t bytes;
    qoriCannyGetSize({a.value<int32_t>(), a.value<int32_t>()}, a.orNull(&bytes));
  });
  return true;
}();
