// Windows between the pixels, as the tracking loop needs them.
#pragma once

#include "frame/level.h"

// As qoriCopySubpixIntersect_*, but only the pixels from minPoint to maxPoint are written; where there are none, none.
#define QOR_GET_RECT(name, Src, Dst, SCALE_PARAMETER)                                                             \
  QORLOCAL(QorStatus, name,                                                                                       \
           (const Src* src, int32_t srcStep, QoriSize srcRoiSize, Dst* dst, int32_t dstStep, QoriSize dstRoiSize, \
            QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint SCALE_PARAMETER))
#define QOR_NOTHING
#define QOR_SCALE_FACTOR , int32_t scaleFactor
QOR_GET_RECT(ownGetRectSubpix_8u16u_C1R_Sfs, uint8_t, uint16_t, QOR_SCALE_FACTOR);
QOR_GET_RECT(ownGetRectSubpix_16u32f_C1R, uint16_t, float, QOR_NOTHING);
QOR_GET_RECT(ownGetRectSubpix_32f_C1R, float, float, QOR_NOTHING);
#undef QOR_SCALE_FACTOR
#undef QOR_NOTHING
#undef QOR_GET_RECT

namespace {

// A window along one axis. Its elements `first` to `last` lie inside the source, each at `start` plus its index.
struct SubpixPlacement {
  int64_t start;
  int32_t first, last;
  float fraction;
};

inline SubpixPlacement placeSubpix(float centre, int32_t length, int32_t sourceLength) {
  const float corner = centre - float(length - 1) * 0.5f;
  const float raised = float(length) + corner;
  // No image reaches this far. A centre that is no number comes to lie before it.
  constexpr float limit = 4e9f;
  const int64_t whole = raised >= limit ? int64_t(limit) : raised > -limit ? int64_t(raised) : -int64_t(limit);
  SubpixPlacement p;
  p.start = whole - length;
  if (p.start >= sourceLength) {
    p.first = 0;
    p.last = -1;
  } else {
    p.first = p.start < 0 ? int32_t(p.start > -length ? -p.start : length) : 0;
    p.last = int32_t(p.start + length - 1 > sourceLength - 2 ? sourceLength - p.start - 2 : length - 1);
  }
  p.fraction = p.first <= p.last ? corner - float(p.start) : 0;
  return p;
}

}  // namespace
