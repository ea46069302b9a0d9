// The kernel on Linux: memory from malloc, mutexes from POSIX threads, strings from the C library,
// one file system.
#ifndef OX_HOST_POSIX_KERNEL_H_
#define OX_HOST_POSIX_KERNEL_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "host/posix_file_system.h"
#include "module/ox_kernel.h"

namespace ox::host {

// What the module holds of the host, and what it has asked for since the start.
struct KernelCounts {
  std::uint64_t blocks;       // live blocks of memory
  std::uint64_t bytes;        // live bytes, as asked for
  std::uint64_t mutexes;      // live mutexes
  std::uint64_t files;        // live file objects of the kernel's own file system
  std::uint64_t allocations;  // successful requests since the start
};

// Threads: all operations from any thread. The kernel must outlive the module and every string.
class PosixKernel final : public IOxKernel {
 public:
  // `defaultDirectory` is where "file-cache.conf" is looked for and, unless that names another
  // directory, where the cache lives. Taken byte for byte.
  explicit PosixKernel(std::string defaultDirectory);

  // Puts another file system in the place of the kernel's own, for example one that wraps it.
  // Before the first manager; not owned.
  void UseFileSystem(IFileSystem* fileSystem) { fileSystem_ = fileSystem; }
  PosixFileSystem& OwnFileSystem() { return ownFileSystem_; }

  KernelCounts Counts() const;

  void* GetInterface(const char* name) override;
  void ReleaseInterface(void* interface) override;
  IOxMutex* CreateMutex() override;
  void DestroyMutex(IOxMutex* mutex) override;
  void* Allocate(std::size_t bytes, const char* file, int line) override;
  void Free(void* block, const char* file, int line) override;
  void* MemSet(void* dst, int value, std::size_t bytes) override;
  void* MemCopy(void* dst, const void* src, std::size_t bytes) override;
  std::size_t StrLen16(const std::uint16_t* text) override;
  std::size_t StrLen(const char* text) override;
  int StrCmp(const char* a, const char* b) override;
  char* StrCpy(char* dst, const char* src) override;
  const char* StrStr(const char* haystack, const char* needle) override;
  unsigned long StrToUL(const char* text, char** end, int base) override;

 private:
  PosixFileSystem ownFileSystem_;
  IFileSystem* fileSystem_;
  std::atomic<std::uint64_t> allocations_{0};
  std::atomic<std::uint64_t> frees_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> mutexes_{0};
};

}  // namespace ox::host

#endif
