// Compound operations: opening, closing, gradient, top-hat and black-hat, as chains of dilation and erosion.
//
// The second step of a chain takes the element turned by 180 degrees. Its state is built from the first one's copy of
// the element, which is turned for that time.
//
// Odd: a state in the caller's block never is an ellipse, although the size query counts with one, so that a block of
// that size can be too small. A region must have at least as many bytes as the temporary image; there is no test
// against more, so a higher region overruns it.
#include "frame/frame.h"
#include "frame/kit/images.h"
#include "morph/element.h"

namespace {

constexpr ptrdiff_t recordBytes = sizeof(QoriMorphAdvState);

// Bytes of a row of the temporary image, in 32 bits that wrap, as all its sizes.
inline int32_t strideOf(int32_t width, int32_t pixelBytes) { return (width * pixelBytes + 31) & ~31; }

void reverse(uint8_t* bytes, ptrdiff_t count) {
  for (ptrdiff_t first = 0, last = count - 1; first < last; ++first, --last) {
    const uint8_t byte = bytes[first];
    bytes[first] = bytes[last];
    bytes[last] = byte;
  }
}

struct Element {
  QorDataType dataType;
  int32_t channels, roiWidth;
  QoriSize size;
  QoriPoint anchor;

  int32_t pixelBytes() const { return channels * (dataType == qor32f ? 4 : 1); }
};

QorStatus build(const Element& element, const uint8_t* mask, QoriMorphState** state, StateMode mode) {
  return ownMorphologyInitAlloc(element.dataType, element.channels, element.roiWidth, mask, element.size,
                                element.anchor, state, nullptr, mode, mode == StateMode::callersBlock);
}

// Builds the state for the turned element from the other one.
QorStatus buildReflected(Element element, const QoriMorphState* forward, QoriMorphState** reflected, StateMode mode) {
  uint8_t* mask = loaded(forward).maskData;
  const ptrdiff_t count = ptrdiff_t(element.size.width) * element.size.height;
  element.anchor = {element.size.width - element.anchor.x - 1, element.size.height - element.anchor.y - 1};
  reverse(mask, count);
  const QorStatus status = build(element, mask, reflected, mode);
  reverse(mask, count);
  return status;
}

QorStatus advGetSize(QorDataType dataType, int32_t channels, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize,
                     int32_t* size) {
  if (roiSize.height < 1) return qorStatusBadSize;
  if (!size) return qorStatusNullPtr;
  const Element element = {dataType, channels, roiSize.width, maskSize, {maskSize.width / 2, maskSize.height / 2}};
  int32_t stateSize = 0;
  const QorStatus status = ownMorphologyInitAlloc(dataType, channels, element.roiWidth, mask, maskSize, element.anchor,
                                                  nullptr, &stateSize, StateMode::size, 0);
  if (status != qorStatusOk) return status;
  *size = 2 * stateSize + roiSize.height * strideOf(roiSize.width, element.pixelBytes()) + 96;
  return qorStatusOk;
}

QorStatus advInit(QoriMorphAdvState* state, QoriSize roiSize, const uint8_t* mask, const Element& element) {
  if (roiSize.height < 1) return qorStatusBadSize;
  if (!state) return qorStatusNullPtr;
  QoriMorphState* forward = reinterpret_cast<QoriMorphState*>(reinterpret_cast<uint8_t*>(state) + recordBytes);
  if (const QorStatus status = build(element, mask, &forward, StateMode::callersBlock)) return status;
  const auto after = [](QoriMorphState* built) {
    return alignUp<uint8_t>(reinterpret_cast<uint8_t*>(built) + loaded(built).stateSize, 32);
  };
  QoriMorphState* reflected = reinterpret_cast<QoriMorphState*>(after(forward));
  if (const QorStatus status = buildReflected(element, forward, &reflected, StateMode::callersBlock)) return status;
  const int32_t tempSize = roiSize.height * strideOf(roiSize.width, element.pixelBytes());
  stored(state, QoriMorphAdvState{forward, reflected, after(reflected), tempSize, 0});
  return qorStatusOk;
}

void freeParts(const QoriMorphAdvState& parts) {
  qorsFree(parts.forward);
  qorsFree(parts.reflected);
  qorsFree(parts.temp);
}

QorStatus advInitAlloc(QoriMorphAdvState** state, QoriSize roiSize, const uint8_t* mask, const Element& element) {
  if (!state) return qorStatusNullPtr;
  QoriMorphAdvState parts = {nullptr, nullptr, nullptr, 0, 0};
  QorStatus status = build(element, mask, &parts.forward, StateMode::newBlock);
  if (status == qorStatusOk) status = buildReflected(element, parts.forward, &parts.reflected, StateMode::newBlock);
  if (status == qorStatusOk) {
    parts.tempSize = roiSize.height * strideOf(roiSize.width, element.pixelBytes());
    // The height has not been tested: one below 1 is an image that there is no memory for.
    if (roiSize.height >= 1) parts.temp = qorsMalloc_8u(parts.tempSize);
    uint8_t* record = parts.temp ? qorsMalloc_8u(recordBytes) : nullptr;
    if (record) {
      *state = reinterpret_cast<QoriMorphAdvState*>(record);
      stored(*state, parts);
      return qorStatusOk;
    }
    status = qorStatusNoMemory;
  }
  freeParts(parts);
  return status;
}

// ---- Operations, by element type and channels

template <class T, int32_t channels>
struct Steps;
#define STEPS_8U(layout, channels)                                                                          \
  template <>                                                                                               \
  struct Steps<uint8_t, channels> {                                                                         \
    static constexpr auto dilate = qoriDilateBorderReplicate_8u_##layout##R;                                \
    static constexpr auto erode = qoriErodeBorderReplicate_8u_##layout##R;                                  \
    static QorStatus subtract(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, \
                              uint8_t* dst, int32_t dstStep, QoriSize size) {                               \
      return qoriSub_8u_##layout##RSfs(src1, src1Step, src2, src2Step, dst, dstStep, size, 0);              \
    }                                                                                                       \
    static QorStatus subtractInPlace(const uint8_t* src, int32_t srcStep, uint8_t* srcDst, int32_t step,    \
                                     QoriSize size) {                                                       \
      return qoriSub_8u_##layout##IRSfs(src, srcStep, srcDst, step, size, 0);                               \
    }                                                                                                       \
    static QorStatus holdPositive(uint8_t*, int32_t, QoriSize) { return qorStatusOk; }                      \
  };
STEPS_8U(C1, 1)
STEPS_8U(C3, 3)
STEPS_8U(C4, 4)
#undef STEPS_8U

#define STEPS_32F(layout, channels)                                            \
  template <>                                                                  \
  struct Steps<float, channels> {                                              \
    static constexpr auto dilate = qoriDilateBorderReplicate_32f_##layout##R;  \
    static constexpr auto erode = qoriErodeBorderReplicate_32f_##layout##R;    \
    static constexpr auto subtract = qoriSub_32f_##layout##R;                  \
    static constexpr auto subtractInPlace = qoriSub_32f_##layout##IR;          \
    static QorStatus holdPositive(float* image, int32_t step, QoriSize size) { \
      size.width *= channels;                                                  \
      return qoriThreshold_LT_32f_C1IR(image, step, size, 0.0f);               \
    }                                                                          \
  };
STEPS_32F(C1, 1)
STEPS_32F(C3, 3)
STEPS_32F(C4, 4)
#undef STEPS_32F

enum class Operation { open, close, gradient, tophat, blackhat };

template <Operation operation, class T, int32_t channels>
QorStatus compound(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
                   const QoriMorphAdvState* record) {
  using S = Steps<T, channels>;
  if (anyNull(src, dst, record)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T, channels>(srcStep, roiSize) || shortStep<T, channels>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (borderType != qorBorderReplicate) return qorStatusBadArg;
  const QoriMorphAdvState state = loaded(record);
  if (roiSize.width > loaded(state.forward).roiWidth) return qorStatusBadSize;
  const int32_t stride = strideOf(roiSize.width, channels * int32_t(sizeof(T)));
  // It is the region below what the state was built for that is refused.
  if (roiSize.height * stride < state.tempSize) return qorStatusBadSize;
  T* const temp = reinterpret_cast<T*>(state.temp);
  const auto step = [&](auto function, const T* from, int32_t fromStep, T* to, int32_t toStep,
                        QoriMorphState* element) {
    return function(from, fromStep, to, toStep, roiSize, borderType, element);
  };
  QorStatus status;
  switch (operation) {
    case Operation::open:
      status = step(S::erode, src, srcStep, temp, stride, state.forward);
      return status ? status : step(S::dilate, temp, stride, dst, dstStep, state.reflected);
    case Operation::close:
      status = step(S::dilate, src, srcStep, temp, stride, state.forward);
      return status ? status : step(S::erode, temp, stride, dst, dstStep, state.reflected);
    case Operation::gradient:
      status = step(S::dilate, src, srcStep, dst, dstStep, state.forward);
      if (!status) status = step(S::erode, src, srcStep, temp, stride, state.forward);
      if (!status) status = S::subtractInPlace(temp, stride, dst, dstStep, roiSize);
      break;
    case Operation::tophat:
      status = step(S::erode, src, srcStep, dst, dstStep, state.forward);
      if (!status) status = step(S::dilate, dst, dstStep, temp, stride, state.reflected);
      if (!status) status = S::subtract(temp, stride, src, srcStep, dst, dstStep, roiSize);
      break;
    case Operation::blackhat:
      status = step(S::dilate, src, srcStep, temp, stride, state.forward);
      if (!status) status = step(S::erode, temp, stride, dst, dstStep, state.reflected);
      if (!status) status = S::subtractInPlace(src, srcStep, dst, dstStep, roiSize);
      break;
  }
  return status ? status : S::holdPositive(dst, dstStep, roiSize);
}

}  // namespace

QorStatus qoriMorphAdvFree(QoriMorphAdvState* state) {
  if (!state) return qorStatusNullPtr;
  freeParts(loaded(state));
  qorsFree(state);
  return qorStatusOk;
}

#define STATE(T, type, layout, channels)                                                                              \
  QorStatus qoriMorphAdvGetSize_##type##_##layout(QoriSize roiSize, const uint8_t* mask, QoriSize maskSize,           \
                                                  int32_t* size) {                                                    \
    return advGetSize(dataTypeOf<T>, channels, roiSize, mask, maskSize, size);                                        \
  }                                                                                                                   \
  QorStatus qoriMorphAdvInit_##type##_##layout(QoriMorphAdvState* state, QoriSize roiSize, const uint8_t* mask,       \
                                               QoriSize maskSize, QoriPoint anchor) {                                 \
    return advInit(state, roiSize, mask, {dataTypeOf<T>, channels, roiSize.width, maskSize, anchor});                 \
  }                                                                                                                   \
  QorStatus qoriMorphAdvInitAlloc_##type##_##layout(QoriMorphAdvState** state, QoriSize roiSize, const uint8_t* mask, \
                                                    QoriSize maskSize, QoriPoint anchor) {                            \
    return advInitAlloc(state, roiSize, mask, {dataTypeOf<T>, channels, roiSize.width, maskSize, anchor});            \
  }
#define OPERATION(T, type, layout, channels, Name, operation)                                                   \
  QorStatus qoriMorph##Name##Border_##type##_##layout(const T* src, int32_t srcStep, T* dst, int32_t dstStep,   \
                                                      QoriSize roiSize, QoriBorderType borderType,              \
                                                      QoriMorphAdvState* state) {                               \
    return compound<Operation::operation, T, channels>(src, srcStep, dst, dstStep, roiSize, borderType, state); \
  }
#define COMPOUND(T, type, layout, channels)                \
  STATE(T, type, layout, channels)                         \
  OPERATION(T, type, layout, channels, Open, open)         \
  OPERATION(T, type, layout, channels, Close, close)       \
  OPERATION(T, type, layout, channels, Gradient, gradient) \
  OPERATION(T, type, layout, channels, Tophat, tophat)     \
  OPERATION(T, type, layout, channels, Blackhat, blackhat)
COMPOUND(uint8_t, 8u, C1R, 1)
COMPOUND(uint8_t, 8u, C3R, 3)
COMPOUND(uint8_t, 8u, C4R, 4)
COMPOUND(float, 32f, C1R, 1)
COMPOUND(float, 32f, C3R, 3)
COMPOUND(float, 32f, C4R, 4)
#undef COMPOUND
#undef OPERATION
#undef STATE
