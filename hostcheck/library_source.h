// The host of a shared library.
#ifndef OX_HOSTCHECK_LIBRARY_SOURCE_H_
#define OX_HOSTCHECK_LIBRARY_SOURCE_H_

#include <chrono>
#include <string>

#include <oxfilecache/host_check.h>

namespace ox::hostcheck::internal {

// Loads the library anew in each child process, so that nothing it does while it is loaded reaches
// the program.
class LibrarySource final : public KernelSource {
 public:
  explicit LibrarySource(std::string path);

  IOxKernel* Get(const char* directory) override;
  bool Release(IOxKernel* kernel) override;

  // Loads the library in a child process and looks for the entry point. Empty when that works,
  // otherwise why it does not.
  std::string WhyNotLoadable(std::chrono::milliseconds timeout) const;

 private:
  std::string path_;
};

}  // namespace ox::hostcheck::internal

#endif
