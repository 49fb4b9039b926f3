// The public headers in C++, and one call of each library.
#include "qorcore.h"
#include "qorcvmx.h"

int main() {
  const QorLibraryVersion* version = qorcvGetLibVersion();
  void* block = qorMalloc(64);
  const bool ok = version && version->minor == 1 && block &&
                  qoriAbsDiff_8u_C1R(nullptr, 0, nullptr, 0, nullptr, 0, QoriSize{1, 1}) == qorStatusNullPtr;
  qorFree(block);
  return ok ? 0 : 1;
}
