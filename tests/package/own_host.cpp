// A library for the installed oxhostcheck.
#include <oxfilecache/host.h>
#include <oxfilecache/host_check.h>
#include <oxfilecache/kernel.h>

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  auto* kernel = new ox::host::PosixKernel(directory);
  ox::SetKernel(kernel);
  return kernel;
}
