// The Linux host as a library for oxhostcheck, and the pattern for other hosts.
#include <oxfilecache/host.h>
#include <oxfilecache/host_check.h>
#include <oxfilecache/kernel.h>

using ox::host::PosixKernel;

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  auto* kernel = new PosixKernel(directory);
  // The strings of this library take their memory from the same kernel as those of the program.
  ox::SetKernel(kernel);
  return kernel;
}

void OxHostCheck_ReleaseKernel(IOxKernel* kernel) {
  ox::SetKernel(nullptr);
  delete static_cast<PosixKernel*>(kernel);
}
