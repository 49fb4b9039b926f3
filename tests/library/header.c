/* The public headers in C99, and one call of each library. */
#include <stddef.h>

#include "qorcore.h"
#include "qorcvmx.h"

int main(void) {
  const QorLibraryVersion* version = qorcvGetLibVersion();
  void* block = qorMalloc(64);
  const int ok = version != NULL && version->major == 6 && block != NULL &&
                 qoriAbsDiff_8u_C1R(NULL, 0, NULL, 0, NULL, 0, (QoriSize){1, 1}) == qorStatusNullPtr;
  qorFree(block);
  return ok ? 0 : 1;
}
