// The version record: the same at every call.
#include "support/fuzz.h"

static const bool added = fuzz::add("qorcvGetLibVersion", [](fuzz::Arguments&) {
  if (qorcvGetLibVersion() != qorcvGetLibVersion()) __builtin_trap();
});
