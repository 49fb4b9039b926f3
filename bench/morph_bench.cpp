// Morphology.
#include <memory>

#include "support/bench.h"

using bench::Picture;

namespace {

// A structuring element with its anchor in the centre.
struct Element {
  const char* name;
  QoriSize size;
  std::vector<uint8_t> taps;
  QoriPoint anchor() const { return {size.width / 2, size.height / 2}; }
};

template <class IsSet>
Element element(const char* name, int32_t side, IsSet isSet) {
  Element e = {name, {side, side}, {}};
  for (int32_t y = 0; y < side; ++y) {
    for (int32_t x = 0; x < side; ++x) e.taps.push_back(isSet(x - side / 2, y - side / 2) ? 1 : 0);
  }
  return e;
}

Element rectangle(int32_t side) {
  return element("rectangle 7x7", side, [](int32_t, int32_t) { return true; });
}
Element disc() {
  return element("ellipse 9x9", 9, [](int32_t x, int32_t y) { return 4 * (x * x + y * y) <= 9 * 9; });
}
Element chequers() {
  return element("chequered 5x5 (general)", 5, [](int32_t x, int32_t y) { return ((x + y) & 1) == 0; });
}

template <class T, class Function, class Init>
void addPlain(const char* name, const Element& e, int channels, Function function, Init init) {
  bench::add(name, e.name, [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    auto dst = std::make_shared<Picture<T>>(size, channels);
    QoriMorphState* made = nullptr;
    CHECK_CALL(init(size.width, e.taps.data(), e.size, e.anchor(), &made));
    std::shared_ptr<QoriMorphState> state(made, qoriMorphologyFree);
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, qorBorderReplicate, state.get()));
    };
  });
}

template <class T, class Function, class Init>
void addCompound(const char* name, const Element& e, int channels, Function function, Init init) {
  bench::add(name, e.name, [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    auto dst = std::make_shared<Picture<T>>(size, channels);
    QoriMorphAdvState* made = nullptr;
    CHECK_CALL(init(&made, size, e.taps.data(), e.size, e.anchor()));
    std::shared_ptr<QoriMorphAdvState> state(made, qoriMorphAdvFree);
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, qorBorderReplicate, state.get()));
    };
  });
}

const bool added = [] {
#define ADD_FORM(T, form, channels)                                                                \
  for (const Element& e : {rectangle(7), disc(), chequers()}) {                                    \
    addPlain<T>("qoriDilateBorderReplicate_" #form, e, channels, qoriDilateBorderReplicate_##form, \
                qoriMorphologyInitAlloc_##form);                                                   \
    addPlain<T>("qoriErodeBorderReplicate_" #form, e, channels, qoriErodeBorderReplicate_##form,   \
                qoriMorphologyInitAlloc_##form);                                                   \
  }                                                                                                \
  for (const Element& e : {rectangle(7)}) {                                                        \
    addCompound<T>("qoriMorphOpenBorder_" #form, e, channels, qoriMorphOpenBorder_##form,          \
                   qoriMorphAdvInitAlloc_##form);                                                  \
    addCompound<T>("qoriMorphCloseBorder_" #form, e, channels, qoriMorphCloseBorder_##form,        \
                   qoriMorphAdvInitAlloc_##form);                                                  \
    addCompound<T>("qoriMorphGradientBorder_" #form, e, channels, qoriMorphGradientBorder_##form,  \
                   qoriMorphAdvInitAlloc_##form);                                                  \
    addCompound<T>("qoriMorphTophatBorder_" #form, e, channels, qoriMorphTophatBorder_##form,      \
                   qoriMorphAdvInitAlloc_##form);                                                  \
    addCompound<T>("qoriMorphBlackhatBorder_" #form, e, channels, qoriMorphBlackhatBorder_##form,  \
                   qoriMorphAdvInitAlloc_##form);                                                  \
  }
  ADD_FORM(uint8_t, 8u_C1R, 1)
  ADD_FORM(uint8_t, 8u_C3R, 3)
  ADD_FORM(uint8_t, 8u_C4R, 4)
  ADD_FORM(float, 32f_C1R, 1)
  ADD_FORM(float, 32f_C3R, 3)
  ADD_FORM(float, 32f_C4R, 4)
#undef ADD_FORM
  return true;
}();

}  // namespace

// ---- Grayscale structuring functions and reconstruction

namespace {

// The scans by which one thread reconstructs by dilation with eight neighbours, two plain ones and then checking ones,
// as slowly as they can be told.
struct Scans {
  const Picture<uint8_t>& mask;
  Picture<uint8_t> marker;
  std::vector<bool> mayChange;
  int mode = 2;  // above 0 the checking scans sweep a row once, else twice

  uint8_t& at(int x, int y) { return marker.elements[size_t(y) * marker.size.width + x]; }

  bool sweep(int y, bool backward) {
    bool changed = false;
    uint8_t value = 0;
    for (int i = 0; i < mask.size.width; ++i) {
      const int x = backward ? mask.size.width - 1 - i : i;
      value = std::min(std::max(at(x, y), value), mask.elements[size_t(y) * mask.size.width + x]);
      changed |= value != at(x, y);
      at(x, y) = value;
    }
    return changed;
  }
  // Takes in the row before; what that raises counts as a change only if the mask lets it stay.
  bool visit(int y, int before, bool backward, bool twice) {
    std::vector<uint8_t> old(size_t(mask.size.width));
    for (int x = 0; x < mask.size.width; ++x) {
      old[size_t(x)] = at(x, y);
      for (int near = std::max(0, x - 1); near <= std::min(mask.size.width - 1, x + 1); ++near) {
        at(x, y) = std::max(at(x, y), at(near, before));
      }
    }
    sweep(y, backward);
    if (twice) sweep(y, !backward);
    return !std::equal(old.begin(), old.end(), &at(0, y));
  }
  int check(int start, int end, int next) {
    const bool backward = next < 0;
    int count = 0;
    bool changed = false;
    if (mode > 0 && mayChange[size_t(start)]) {
      changed = sweep(start, backward);
      mayChange[size_t(start)] = changed;
      count += changed;
    } else if (mode == 0 && sweep(start, backward)) {
      mayChange[size_t(start)] = true;
    }
    for (int y = start + next; y != end; y += next) {
      if (!changed && !mayChange[size_t(y)]) continue;
      changed = visit(y, y - next, backward, mode <= 0);
      mayChange[size_t(y)] = changed;
      if (changed) mayChange[size_t(y - next)] = true;
      count += changed;
    }
    return count;
  }
  int count() {
    const int height = mask.size.height;
    mayChange.assign(size_t(height), true);
    sweep(0, false);
    sweep(0, true);
    for (int y = 1; y < height; ++y) visit(y, y - 1, false, true);
    for (int y = height - 2; y >= 0; --y) visit(y, y + 1, false, true);
    for (int scans = 3;; scans += 2) {
      const int down = check(0, height, 1);
      if (down == 0) return scans;
      const int up = check(height - 1, -1, -1);
      if (up > 0.9 * down) mode -= 2;
      if (up == 0) return scans + 1;
    }
  }
};

void tellScans() {
  const Picture<uint8_t> scene = bench::naturalScene({640, 480});
  Scans scans = {scene, scene, {}};
  for (uint8_t& element : scans.marker.elements) element = uint8_t(std::max(element - 40, 0));
  bench::tell("qoriMorphReconstructDilate_8u_C1IR",
              "natural scene, 640x480, eight neighbours, one thread: " + std::to_string(scans.count()) + " scans");
}

// The marker is copied on each call, since the function works in place.
template <class T, class Function, class Query>
void addReconstruct(const char* name, Function function, Query query, int32_t norm, bool dilates) {
  const std::string neighbours = norm == qorNormInf ? "eight" : "four";
  bench::add(
      name, "natural scene, marker 40 off it, " + neighbours + " neighbours, copy of the marker included",
      [=](QoriSize size) {
        const Picture<uint8_t> scene = bench::naturalScene(size);
        auto mask = std::make_shared<Picture<T>>(size), marker = std::make_shared<Picture<T>>(size),
             srcDst = std::make_shared<Picture<T>>(size);
        for (size_t i = 0; i < scene.elements.size(); ++i) {
          const int value = scene.elements[i];
          mask->elements[i] = T(value);
          marker->elements[i] = T(dilates ? std::max(value - 40, 0) : std::min(value + 40, 255));
        }
        auto buffer =
            std::make_shared<std::vector<uint8_t>>(bench::scratch([=](int32_t* bytes) { return query(size, bytes); }));
        return [=] {
          srcDst->elements = marker->elements;
          CHECK_CALL(function(mask->data(), mask->step(), srcDst->data(), srcDst->step(), size, buffer->data(), norm));
        };
      });
}

template <class T, class Value, class InitAlloc, class Free, class Function>
void addGray(const char* name, InitAlloc initAlloc, Free freeState, Function function, int32_t side) {
  const std::string sides = std::to_string(side) + "x" + std::to_string(side);
  bench::add(name, "element " + sides, [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size));
    auto dst = std::make_shared<Picture<T>>(size);
    std::vector<Value> taps(size_t(side) * side);
    for (size_t i = 0; i < taps.size(); ++i) taps[i] = Value(int(i * 37 % 61) - 30);
    QoriMorphGrayState* state = nullptr;
    CHECK_CALL(initAlloc(&state, size, taps.data(), {side, side}, {side / 2, side / 2}));
    auto owner = std::shared_ptr<QoriMorphGrayState>(state, [=](QoriMorphGrayState* s) { CHECK_CALL(freeState(s)); });
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, qorBorderReplicate, owner.get()));
    };
  });
}

const bool addedReconstruct = [] {
  tellScans();
#define ADD(operation, type, T, dilates)                                                                            \
  for (int32_t norm : {int32_t(qorNormInf), int32_t(qorNormL1)})                                                    \
  addReconstruct<T>("qoriMorphReconstruct" #operation "_" #type "_C1IR",                                            \
                    qoriMorphReconstruct##operation##_##type##_C1IR, qoriMorphReconstructGetBufferSize_##type##_C1, \
                    norm, dilates)
  ADD(Dilate, 8u, uint8_t, true);
  ADD(Erode, 8u, uint8_t, false);
  ADD(Dilate, 32f, float, true);
  ADD(Erode, 32f, float, false);
#undef ADD
#define ADD(operation, type, T, Value)                                                                 \
  for (int32_t side : {3, 9})                                                                          \
  addGray<T, Value>("qoriGray" #operation "Border_" #type "_C1R", qoriMorphGrayInitAlloc_##type##_C1R, \
                    qoriMorphGrayFree_##type##_C1R, qoriGray##operation##Border_##type##_C1R, side)
  ADD(Dilate, 8u, uint8_t, int32_t);
  ADD(Erode, 8u, uint8_t, int32_t);
  ADD(Dilate, 32f, float, float);
  ADD(Erode, 32f, float, float);
#undef ADD
  return true;
}();

}  // namespace
