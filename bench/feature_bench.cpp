// Edges and features.
#include <memory>

#include "support/bench.h"

using bench::Picture;

// The derivatives of the photograph, as a caller of the detector would form them.
template <class T>
struct Derivatives {
  Picture<T> dx, dy;
};

static std::shared_ptr<Derivatives<int16_t>> sobel16s(QoriSize size) {
  Picture<uint8_t> scene = bench::naturalScene(size);
  auto d = std::make_shared<Derivatives<int16_t>>(Derivatives<int16_t>{Picture<int16_t>(size), Picture<int16_t>(size)});
  auto buffer = bench::scratch(
      [=](int32_t* bytes) { return qoriFilterSobelHorizGetBufferSize_8u16s_C1R(size, qorMaskSize3x3, bytes); });
  CHECK_CALL(qoriFilterSobelNegVertBorder_8u16s_C1R(scene.data(), scene.step(), d->dx.data(), d->dx.step(), size,
                                                    qorMaskSize3x3, qorBorderReplicate, 0, buffer.data()));
  CHECK_CALL(qoriFilterSobelHorizBorder_8u16s_C1R(scene.data(), scene.step(), d->dy.data(), d->dy.step(), size,
                                                  qorMaskSize3x3, qorBorderReplicate, 0, buffer.data()));
  return d;
}

static std::shared_ptr<Derivatives<float>> sobel32f(QoriSize size) {
  const auto d = sobel16s(size);
  auto f = std::make_shared<Derivatives<float>>(Derivatives<float>{Picture<float>(size), Picture<float>(size)});
  std::copy(d->dx.elements.begin(), d->dx.elements.end(), f->dx.elements.begin());
  std::copy(d->dy.elements.begin(), d->dy.elements.end(), f->dy.elements.begin());
  return f;
}

template <class Detector, class MakeDerivatives>
static void addCanny(const char* name, Detector detector, MakeDerivatives makeDerivatives) {
  bench::add(name, "3x3 Sobel of a natural scene, thresholds 60 and 120", [=](QoriSize size) {
    auto d = makeDerivatives(size);
    auto dst = std::make_shared<Picture<uint8_t>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return qoriCannyGetSize(size, bytes); }));
    return [=] {
      CHECK_CALL(detector(d->dx.data(), d->dx.step(), d->dy.data(), d->dy.step(), dst->data(), dst->step(), size, 60,
                          120, buffer->data()));
    };
  });
}

static const bool added = [] {
  addCanny("qoriCanny_16s8u_C1R", qoriCanny_16s8u_C1R, sobel16s);
  addCanny("qoriCanny_32f8u_C1R", qoriCanny_32f8u_C1R, sobel32f);
  return true;
}();
