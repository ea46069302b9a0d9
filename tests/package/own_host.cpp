// A host with a file system of its own, as a library for oxhostcheck.
#include <oxfilecache/host.h>
#include <oxfilecache/host_check.h>
#include <oxfilecache/string.h>

namespace {

using ox::os::filesystem::File;

// Knows the directory, which the kernel under it does not.
class OwnFileSystem final : public IFileSystem {
 public:
  OwnFileSystem(IFileSystem& inner, const char* directory) : inner_(inner), directory_(directory) {}
  File* CreateFile() override { return inner_.CreateFile(); }
  void DestroyFile(File* file) override { inner_.DestroyFile(file); }
  int GetDefaultDirectory(OxString& out) override { return out = directory_, 1; }

 private:
  IFileSystem& inner_;
  const OxString directory_;
};

}  // namespace

IOxKernel* OxHostCheck_GetKernel(const char* directory) {
  static ox::host::PosixKernel kernel("/dev/null");
  ox::SetKernel(&kernel);
  static OwnFileSystem fileSystem(kernel.OwnFileSystem(), directory);
  kernel.UseFileSystem(&fileSystem);
  return &kernel;
}
