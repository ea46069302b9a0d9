// A file object on Linux.
//
// Symbolic links are never followed for the file itself; its directory may be reached through some.
// Files are made with mode 0600, descriptors are closed on exec, interrupted calls are tried again.
// Every failure is a 0, as the interface says; errno is left as the system call set it.
//
// The module calls Exists of a metadata file only to open it next, and Exists of a content file
// only to measure it next. Exists therefore keeps what its one system call found, the open file or
// the size, and the next operation uses that instead of a call of its own. Any other operation
// drops it.
//
// Threads: for one at a time.
#ifndef OX_HOST_POSIX_FILE_H_
#define OX_HOST_POSIX_FILE_H_

#include <cstdint>
#include <optional>

#include "host/path_text.h"
#include <oxfilecache/file_system.h>

struct stat;

namespace ox::internal {

class HeldDirectories;

class PosixFile final : public os::filesystem::File {
 public:
  // Looks files up through `directories`, which must outlive the object.
  explicit PosixFile(HeldDirectories& directories) : directories_(directories) {}
  ~PosixFile();
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  // Copies the path and closes what was open. 0 for a null or empty path, for one of PATH_MAX bytes
  // or more, and when memory runs out; the object is then bound to no path.
  int SetPath(const char* utf8Path) override;
  // kOpenRead and kOpenWrite; 0 for any other mode and for anything but a regular file.
  int Open(int mode) override;
  void Close() override;
  // 0 for a directory.
  int Delete(int flags) override;
  // A regular file or a directory; nothing else is a file of the cache. For the path of a metadata
  // file whatever can be opened for reading, since Open comes next; if it is not a regular file,
  // Read gives nothing.
  int Exists() override;
  void GetPath(OxString& out) override;
  // In bytes; 0 for anything but a regular file.
  std::uint64_t GetSize() override;
  // Reads until it has `count` bytes or the file ends. 0 when that fails, even if some bytes were
  // read before.
  std::uint64_t Read(std::uint64_t count, void* destination) override;
  // Goes on after a short write; less than `count` when the disk is full or fails.
  std::uint64_t Write(std::uint64_t count, const void* source) override;
  // Lists the directory first and then calls back, oldest modification time first, ties by name, so
  // that a list rebuilt from it runs in the order of use. Nonzero when the directory could be read.
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

  // The bound path, "" when there is none.
  const char* Path() const { return path_.Text(); }

  // For an object that stands for an enumerated entry: the next operation, if it is GetSize, gives
  // this size (bytes) without asking the system.
  void RememberSize(std::uint64_t size);

  // fstat(2) of the open file; false with errno when that fails, false when none is open.
  bool GetStatus(struct stat* status);

 private:
  int OpenFile(int flags);
  bool GetStatusByPath(struct stat* status);
  bool ExistsByOpening();
  bool ExistsByStatus();
  void DropFindings();
  bool IsAtEnd();

  HeldDirectories& directories_;
  PathText path_;
  int fd_ = -1;
  std::uint64_t position_ = 0;  // of the next Read
  // Of the open file, in bytes, where it was asked for.
  std::optional<std::uint64_t> openSize_;
  // What Exists has found: that fd_ is open for reading, or the size.
  bool isOpenedByExists_ = false;
  std::optional<std::uint64_t> foundSize_;
};

}  // namespace ox::internal

#endif
