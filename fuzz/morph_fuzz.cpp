// Morphology.
#include "support/fuzz.h"
#include "support/services.h"

using fuzz::Arguments;

namespace {

// A structuring element whose arguments may be spoiled.
struct Element {
  std::shared_ptr<GuardedMemory> taps;
  uint8_t* mask;
  QoriSize size;
  QoriPoint anchor;
};

// Elements of all kinds: boxes and discs now and then, else any taps, few or many.
Element element(Arguments& a) {
  const QoriSize size = {a.number(1, a.chance(90) ? 7 : 40), a.number(1, a.chance(90) ? 7 : 40)};
  Element e = {a.guarded(size.width * size.height), nullptr, size, {}};
  const int32_t form = a.number(0, 2), percent = a.number(0, 100);
  const QoriRect box = {a.number(0, size.width - 1), a.number(0, size.height - 1), a.number(1, 40), a.number(1, 40)};
  const int32_t centreX = size.width / 2, centreY = size.height / 2, radius = a.number(0, 900);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      const int32_t dx = x - centreX, dy = y - centreY;
      const bool inBox = x >= box.x && x < box.x + box.width && y >= box.y && y < box.y + box.height;
      const bool set = form == 0 ? inBox : form == 1 ? dx * dx + 2 * dy * dy <= radius : a.chance(percent);
      e.taps->data()[y * size.width + x] = set ? a.value<uint8_t>() : 0;
    }
  }
  e.mask = a.orNull(e.taps->data());
  e.size = a.chance(3) ? QoriSize{a.number(-1, size.width), a.number(-1, size.height)} : size;
  e.anchor = {a.orAnything(a.number(0, size.width - 1)), a.orAnything(a.number(0, size.height - 1))};
  if (a.chance(50)) e.anchor = {size.width / 2, size.height / 2};
  return e;
}

// The size of the states of an element with its own anchor, which the size query does not tell.
template <class InitAlloc>
int32_t trueSize(InitAlloc initAlloc, int32_t width, const Element& e) {
  QoriMorphState* state = nullptr;
  if (initAlloc(width, e.mask, e.size, e.anchor, &state) != qorStatusOk) return 0;
  const int32_t size = state->stateSize;
  qoriMorphologyFree(state);
  return size;
}

template <class T, class GetSize, class Init, class InitAlloc, class Function>
void addPlain(const char* name, int32_t channels, GetSize getSize, Init init, InitAlloc initAlloc, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels), dst = a.image<T>(size, channels);
    const Element e = element(a);
    const int32_t width = size.width + (a.chance(20) ? a.number(-1, 50) : 0);
    const bool own = a.chance(50);
    const int32_t bytes = own ? trueSize(initAlloc, width, e) : 0;
    const auto block = a.guarded(bytes);
    if (fuzz::alone && a.chance(3)) services::failAfter(a.number(0, 3));
    QoriMorphState* state = own && bytes > 0 ? reinterpret_cast<QoriMorphState*>(block->data()) : nullptr;
    const QorStatus status = own ? init(width, e.mask, e.size, e.anchor, state)
                                 : initAlloc(width, e.mask, e.size, e.anchor, a.chance(3) ? nullptr : &state);
    services::failAfter(-1);
    if (status == qorStatusOk) {
      function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orAnything(qorBorderReplicate),
               a.orNull(state));
      if (!own) qoriMorphologyFree(state);
    }
    int32_t reported;
    getSize(a.orAnything(width), e.mask, e.size, a.orNull(&reported));
  });
}

template <class T, class GetSize, class Init, class InitAlloc, class PlainInitAlloc, class Function>
void addCompound(const char* name, int32_t channels, GetSize getSize, Init init, InitAlloc initAlloc,
                 PlainInitAlloc plainInitAlloc, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels), dst = a.image<T>(size, channels);
    const Element e = element(a);
    // A higher region than the state's overruns the temporary image, so only lower ones are tried.
    const QoriSize most = {size.width + (a.chance(20) ? a.number(-1, 50) : 0), size.height + (a.chance(5) ? 1 : 0)};
    // Of an element that is no ellipse with the anchor in the centre, the query tells the size that Init needs, if the
    // anchor is there too; else the largest of all kinds is brought.
    const bool own = a.chance(50);
    int32_t bytes = 0;
    if (own) {
      const int64_t row = (int64_t(most.width) + e.size.width) * channels * int64_t(sizeof(T)) + 64;
      const int64_t kinds = e.size.height * 2 * row + e.size.width * e.size.height + 40 * e.size.height + 512;
      const int32_t rectangle = trueSize(plainInitAlloc, most.width, e);
      bytes = rectangle > 0 ? int32_t(2 * (kinds > rectangle ? kinds : rectangle) + most.height * row + 128) : 0;
    }
    const auto block = a.guarded(bytes);
    if (fuzz::alone && a.chance(3)) services::failAfter(a.number(0, 7));
    QoriMorphAdvState* state = own && bytes > 0 ? reinterpret_cast<QoriMorphAdvState*>(block->data()) : nullptr;
    const QorStatus status = own ? init(state, most, e.mask, e.size, e.anchor)
                                 : initAlloc(a.chance(3) ? nullptr : &state, most, e.mask, e.size, e.anchor);
    services::failAfter(-1);
    if (status == qorStatusOk) {
      function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orAnything(qorBorderReplicate),
               a.orNull(state));
      if (!own) qoriMorphAdvFree(state);
    }
    int32_t reported;
    getSize({a.orAnything(most.width), a.orAnything(most.height)}, e.mask, e.size, a.orNull(&reported));
  });
}

const bool added = [] {
#define ADD_PLAIN(T, form, channels, Name)                                                   \
  addPlain<T>("qori" #Name "BorderReplicate_" #form, channels, qoriMorphologyGetSize_##form, \
              qoriMorphologyInit_##form, qoriMorphologyInitAlloc_##form, qori##Name##BorderReplicate_##form);
#define ADD_COMPOUND(T, form, channels, Name)                                                                      \
  addCompound<T>("qoriMorph" #Name "Border_" #form, channels, qoriMorphAdvGetSize_##form, qoriMorphAdvInit_##form, \
                 qoriMorphAdvInitAlloc_##form, qoriMorphologyInitAlloc_##form, qoriMorph##Name##Border_##form);
#define ADD_FORM(T, form, channels)         \
  ADD_PLAIN(T, form, channels, Dilate)      \
  ADD_PLAIN(T, form, channels, Erode)       \
  ADD_COMPOUND(T, form, channels, Open)     \
  ADD_COMPOUND(T, form, channels, Close)    \
  ADD_COMPOUND(T, form, channels, Gradient) \
  ADD_COMPOUND(T, form, channels, Tophat)   \
  ADD_COMPOUND(T, form, channels, Blackhat)
  ADD_FORM(uint8_t, 8u_C1R, 1)
  ADD_FORM(uint8_t, 8u_C3R, 3)
  ADD_FORM(uint8_t, 8u_C4R, 4)
  ADD_FORM(float, 32f_C1R, 1)
  ADD_FORM(float, 32f_C3R, 3)
  ADD_FORM(float, 32f_C4R, 4)
#undef ADD_FORM
#undef ADD_COMPOUND
#undef ADD_PLAIN
  return true;
}();

}  // namespace

// ---- Grayscale structuring functions and reconstruction

namespace {

// An image without NaN: with one among its floats a reconstruction does not end.
template <class T>
fuzz::ImageArgument<T> numbers(Arguments& a, QoriSize size) {
  const auto argument = a.image<T>(size);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      const T value = argument.image->get(x, y);
      if (value != value) argument.image->set(x, y, T(x % 7));
    }
  }
  return argument;
}

template <class T, class Query, class Function>
void addReconstruct(const char* name, Query query, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = numbers<T>(a, size), srcDst = numbers<T>(a, size);
    int32_t bytes = 0;
    query(a.spoiled(size), a.orNull(&bytes));
    query(size, &bytes);
    // The buffer begins at any address; what follows it is not touched either.
    const int32_t shift = a.chance(30) ? a.number(1, 40) : 0;
    const auto buffer = a.guarded(int64_t(bytes) + shift);
    function(src.data, src.step, srcDst.data, srcDst.step, a.spoiled(size), a.orNull(buffer->data() + shift),
             a.orAnything(a.number(0, 1)));
  });
}

template <class T, class Value, class GetSize, class Init, class InitAlloc, class Free, class Function>
void addGray(const char* name, GetSize getSize, Init init, InitAlloc initAlloc, Free freeState, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size), dst = a.image<T>(size);
    const QoriSize right = {a.number(1, a.chance(90) ? 7 : 80), a.number(1, a.chance(90) ? 5 : 20)};
    const auto taps = a.array<Value>(size_t(right.width) * size_t(right.height));
    const Value* const kernel = a.orNull(reinterpret_cast<const Value*>(taps->data()));
    const QoriSize maskSize = a.chance(3) ? QoriSize{a.number(-1, right.width), a.number(-1, right.height)} : right;
    const QoriPoint anchor = {a.orAnything(a.number(0, right.width - 1)), a.orAnything(a.number(0, right.height - 1))};
    const QoriSize most = {size.width + (a.chance(20) ? a.number(-1, 50) : 0),
                           size.height + (a.chance(20) ? a.number(-1, 50) : 0)};
    const bool own = a.chance(50);
    int32_t bytes = 0;
    getSize(most, kernel, maskSize, &bytes);
    const auto block = a.guarded(bytes);
    if (fuzz::alone && a.chance(3)) services::failAfter(0);
    QoriMorphGrayState* state = own && bytes > 0 ? reinterpret_cast<QoriMorphGrayState*>(block->data()) : nullptr;
    const QorStatus status = own ? init(state, most, kernel, maskSize, anchor)
                                 : initAlloc(a.chance(3) ? nullptr : &state, most, kernel, maskSize, anchor);
    services::failAfter(-1);
    if (status != qorStatusOk) return;
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orAnything(qorBorderReplicate),
             a.orNull(state));
    if (!own) freeState(state);
  });
}

const bool addedReconstruct = [] {
#define ADD(type, T, Value)                                                                                     \
  addReconstruct<T>("qoriMorphReconstructDilate_" #type "_C1IR", qoriMorphReconstructGetBufferSize_##type##_C1, \
                    qoriMorphReconstructDilate_##type##_C1IR);                                                  \
  addReconstruct<T>("qoriMorphReconstructErode_" #type "_C1IR", qoriMorphReconstructGetBufferSize_##type##_C1,  \
                    qoriMorphReconstructErode_##type##_C1IR);                                                   \
  addGray<T, Value>("qoriGrayDilateBorder_" #type "_C1R", qoriMorphGrayGetSize_##type##_C1R,                    \
                    qoriMorphGrayInit_##type##_C1R, qoriMorphGrayInitAlloc_##type##_C1R,                        \
                    qoriMorphGrayFree_##type##_C1R, qoriGrayDilateBorder_##type##_C1R);                         \
  addGray<T, Value>("qoriGrayErodeBorder_" #type "_C1R", qoriMorphGrayGetSize_##type##_C1R,                     \
                    qoriMorphGrayInit_##type##_C1R, qoriMorphGrayInitAlloc_##type##_C1R,                        \
                    qoriMorphGrayFree_##type##_C1R, qoriGrayErodeBorder_##type##_C1R);
  ADD(8u, uint8_t, int32_t)
  ADD(32f, float, float)
#undef ADD
  return true;
}();

}  // namespace
