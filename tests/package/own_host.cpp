// A library for the installed oxhostcheck.
#include "host/check/host_check_library.h"
#include "host/posix_kernel.h"
#include "module/kernel_access.h"

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  auto* kernel = new ox::host::PosixKernel(directory);
  ox::SetKernel(kernel);
  return kernel;
}
