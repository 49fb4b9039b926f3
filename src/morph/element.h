// States of structuring elements, as dilation, erosion and the compound operations share them.
#pragma once

#include <string.h>

#include "frame/level.h"

enum class StateMode { size, callersBlock, newBlock };

// Analyses an element and then, by the mode, stores the size of its state in *size, builds the state in the block
// *state, or builds it in a new block whose address goes to *state. With noEllipse = 1 nothing is an ellipse.
QORLOCAL(QorStatus, ownMorphologyInitAlloc,
         (QorDataType dataType, int32_t channels, int32_t roiWidth, const uint8_t* mask, QoriSize maskSize,
          QoriPoint anchor, QoriMorphState** state, int32_t* size, StateMode mode, int32_t noEllipse));

// Records lie at any address, since the caller's blocks do: they are read and written as bytes.
template <class T>
static inline T loaded(const T* record) {
  T copy;
  memcpy(&copy, static_cast<const void*>(record), sizeof copy);
  return copy;
}

template <class T>
static inline void stored(T* record, T value) {
  memcpy(static_cast<void*>(record), &value, sizeof value);
}

template <class T>
constexpr QorDataType dataTypeOf = sizeof(T) == 1 ? qor8u : qor32f;
