// Uses both libraries from C++: says the version, and adds up how far two images are apart.
#include <qorcore.h>
#include <qorcvmx.h>

#include <cstdio>
#include <vector>

int main() {
  if (qorSetNumThreads(1) != 0) return 1;
  const QoriSize size = {64, 48};
  const std::vector<uint8_t> first(64 * 48, 200), second(64 * 48, 50);
  std::vector<uint8_t> difference(64 * 48);
  if (qoriAbsDiff_8u_C1R(first.data(), 64, second.data(), 64, difference.data(), 64, size) != qorStatusOk) return 1;
  long sum = 0;
  for (const uint8_t value : difference) sum += value;
  const QorLibraryVersion* version = qorcvGetLibVersion();
  std::printf("%d.%d %ld\n", version->major, version->minor, sum);
}
