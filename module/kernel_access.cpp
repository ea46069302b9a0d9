#include <oxfilecache/kernel.h>

namespace ox {
namespace {
IOxKernel* currentKernel = nullptr;
}

IOxKernel* Kernel() {
  return currentKernel;
}

void SetKernel(IOxKernel* kernel) {
  currentKernel = kernel;
}

}  // namespace ox
