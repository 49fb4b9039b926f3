// What QORAPI means inside the library.
//
// All sources are compiled once a level, with QOR_SUFFIX as the level's name. Every function with external linkage then
// carries that suffix in its symbol, so that each level calls its own copies; dispatch.cpp binds the plain names. A
// build of a single level defines no suffix and exports the plain names itself.
#pragma once

#ifdef QOR_SUFFIX
#define QORAPI(type, name, args) type name args __asm__(#name QOR_SUFFIX)
#define QORLOCAL(type, name, args) type name args __asm__(#name QOR_SUFFIX)
#else
#define QORAPI(type, name, args) __attribute__((visibility("default"))) type name args
#define QORLOCAL(type, name, args) type name args
#endif

#include <stddef.h>

#include "qorcvmx.h"
