// A file object on Linux.
//
// Symbolic links are never followed for the file itself (its directory may be reached through
// some). Files are made with mode 0600, descriptors are closed on exec, interrupted calls are tried
// again. Every failure is a 0 as the interface says; errno is left as the system call set it.
//
// Exists looks ahead: the module asks it of a metadata file only to open it next, and of a content
// file only to measure it next. What the one system call found serves the next operation too; after
// any other operation it is forgotten.
//
// From the second path in a row that leads to the same directory on, that directory is held open
// (held_directory.h) until a path leads elsewhere or LeaveDirectory is called.
#ifndef OX_HOST_POSIX_FILE_H_
#define OX_HOST_POSIX_FILE_H_

#include <climits>
#include <cstddef>
#include <cstdint>

#include "host/held_directory.h"
#include <oxfilecache/file_system.h>

struct stat;

namespace ox::internal {

class PosixFile final : public os::filesystem::File {
 public:
  PosixFile() { path_[0] = '\0'; }
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
  // A regular file or a directory; nothing else is a file of the cache. For the path of a metadata
  // file whatever can be opened for reading, since Open comes next; if it is not a regular file,
  // Read gives nothing.
  int Exists() override;
  void GetPath(OxString& out) override;
  // 0 for anything but a regular file.
  std::uint64_t GetSize() override;
  // Reads until `count` bytes or the end. A call of the system that gives less than it was asked
  // for counts as the end.
  std::uint64_t Read(std::uint64_t count, void* destination) override;
  // Goes on after a short write; less than `count` when the disk is full or fails.
  std::uint64_t Write(std::uint64_t count, const void* source) override;
  // Works on a snapshot, oldest modification time first, ties by name, so that a list rebuilt from
  // it runs in the order of use. Nonzero when the directory could be read.
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

  // The bound path, "" when there is none.
  const char* Path() const { return length_ > 0 ? path_ : ""; }

  // For an object that stands for an enumerated entry: GetSize gives this size once, as if Exists
  // had just been asked.
  void KnowSize(std::uint64_t size);

  // What the system says of the open file; false when none is open.
  bool GetStatus(struct stat* status) const;

  // Lets the directory go that is held for the next path.
  void LeaveDirectory() { directory_.Release(); }

 private:
  // What the system's calls take after HoldDirectory: the path from the held directory on, all of
  // it when none is held.
  const char* Name() const { return directory_.IsHeld() ? path_ + nameAt_ : Path(); }
  void HoldDirectory();
  int OpenFile(int flags);
  bool LookAt(struct stat* status);
  bool ProbeByOpening();
  bool ProbeByPath();
  void Forget();

  // When the object is bound to none (length_ is 0), the directory of the last path and no name.
  char path_[PATH_MAX];
  std::size_t length_ = 0;
  std::size_t nameAt_ = 0;          // behind the last "/"
  bool isInSameDirectory_ = false;  // as the path before
  HeldDirectory directory_;
  int fd_ = -1;
  std::uint64_t position_ = 0;
  // Opened for reading by Exists and not yet claimed by Open.
  bool isProbed_ = false;
  bool knowsSize_ = false;
  std::uint64_t size_ = 0;
};

}  // namespace ox::internal

#endif
