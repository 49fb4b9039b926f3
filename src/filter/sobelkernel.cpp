// Sobel kernels of any odd size, for the separable pipelines.
#include <string.h>

#include "frame/frame.h"

// Builds the coefficients of (x + 1)^(kernelSize - 1 - order) * (x - 1)^order in place, one factor a round. The
// polynomial stands at the end of the array and grows by one tap each round.
template <class T>
static QorStatus genSobelKernel(T* kernel, int32_t kernelSize, int32_t order, int32_t sign) {
  if (anyNull(kernel)) return qorStatusNullPtr;
  if (kernelSize < 1 || kernelSize % 2 == 0 || order < 0 || order >= kernelSize) return qorStatusBadSize;
  memset(kernel, 0, kernelSize * sizeof(T));
  kernel[kernelSize - 1] = 1;
  for (int32_t round = 0; round < kernelSize - 1; ++round) {
    const bool sum = round < kernelSize - 1 - order;
    for (int32_t j = kernelSize - 2 - round; j <= kernelSize - 2; ++j) {
      kernel[j] = T(sum ? kernel[j] + kernel[j + 1] : kernel[j] - kernel[j + 1]);
    }
  }
  if (sign < 0) {
    for (int32_t j = 0; j < kernelSize; ++j) kernel[j] = T(0 - kernel[j]);
  }
  return qorStatusOk;
}

QorStatus qoriGenSobelKernel_16s(int16_t* kernel, int32_t kernelSize, int32_t order, int32_t sign) {
  return genSobelKernel(kernel, kernelSize, order, sign);
}

QorStatus qoriGenSobelKernel_32f(float* kernel, int32_t kernelSize, int32_t order, int32_t sign) {
  return genSobelKernel(kernel, kernelSize, order, sign);
}
