// A file object on Linux.
//
// Symbolic links are never followed for the file itself (its directory may be reached through
// some). Files are made with mode 0600, descriptors are closed on exec, interrupted calls are tried
// again. Every failure is a 0 as the interface says; errno is left as the system call set it.
#ifndef OX_HOST_POSIX_FILE_H_
#define OX_HOST_POSIX_FILE_H_

#include <climits>

#include "module/file_system.h"

namespace ox::host {

class PosixFile final : public os::filesystem::File {
 public:
  PosixFile() = default;
  ~PosixFile();
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  // 0 for a null or empty path and one of PATH_MAX bytes or more; the object is then bound to none.
  // Closes what was open.
  int SetPath(const char* utf8Path) override;
  // kOpenRead and kOpenWrite; 0 for any other mode and for anything but a regular file.
  int Open(int mode) override;
  void Close() override;
  // 0 for a directory.
  int Delete(int flags) override;
  // A regular file or a directory; nothing else is a file of the cache.
  int Exists() override;
  void GetPath(OxString& out) override;
  // 0 for anything but a regular file.
  std::uint64_t GetSize() override;
  // Reads until `count` bytes or the end.
  std::uint64_t Read(std::uint64_t count, void* destination) override;
  // Goes on after a short write; less than `count` when the disk is full or fails.
  std::uint64_t Write(std::uint64_t count, const void* source) override;
  // Works on a snapshot, oldest modification time first, ties by name, so that a list rebuilt from
  // it runs in the order of use. Nonzero when the directory could be read.
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

 private:
  char path_[PATH_MAX] = "";
  int fd_ = -1;
};

}  // namespace ox::host

#endif
