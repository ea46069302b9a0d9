// Keeps directories open, so that files in them are opened relative to them: otherwise the system
// walks the whole path for each file, which is up to a third of the cost of a call for a small one.
//
// What a path leads to may change while its directory is open: the directory may be renamed, or
// something may be mounted over it. Therefore a directory is opened again when the second in which
// it was opened is over, and all are opened again before their next use once one of them was found
// to be no longer where its path leads.
//
// An open directory keeps its file system from being unmounted (CloseAll).
//
// Threads: all operations from any thread. Nothing here allocates memory or throws.
#ifndef OX_HOST_HELD_DIRECTORIES_H_
#define OX_HOST_HELD_DIRECTORIES_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

struct stat;

namespace ox::internal {

// Keeps one directory open. For one thread at a time.
class HeldDirectory {
 public:
  HeldDirectory() = default;
  ~HeldDirectory() { Close(); }
  HeldDirectory(const HeldDirectory&) = delete;
  HeldDirectory& operator=(const HeldDirectory&) = delete;

  // Longer paths are not held.
  static constexpr std::size_t kMaxPathBytes = 191;

  // The directory's path, which ends in "/". Closes the one before.
  void MoveTo(std::string_view path);
  bool IsAt(std::string_view path) const { return path == std::string_view(path_, length_); }
  std::time_t LastUse() const { return lastUse_; }

  // Opens the directory unless it was opened in this second and under this generation. None is open
  // afterwards if that fails.
  void Refresh(std::uint32_t generation);
  void Close();

  // -1 when none is open.
  int Descriptor() const { return fd_; }

 private:
  char path_[kMaxPathBytes + 1] = {};
  std::size_t length_ = 0;
  int fd_ = -1;
  // Seconds of a clock that only goes forward.
  std::time_t openedAt_ = 0;
  std::time_t lastUse_ = 0;
  std::uint32_t generation_ = 0;
};

// A call borrows the directory that it needs, so that no other closes it meanwhile. Where all are
// borrowed, or a path cannot be held, the call goes by the whole path. Relative paths are never
// held, since the working directory may change.
//
// `nameStart` is where the file's name begins in `path`: after the last "/".
class HeldDirectories {
 public:
  HeldDirectories() = default;
  HeldDirectories(const HeldDirectories&) = delete;
  HeldDirectories& operator=(const HeldDirectories&) = delete;

  // open(2) with mode 0600 for new files: a descriptor, or -1 with errno. A file that is not in the
  // held directory is looked for by its whole path too, since another directory may have taken that
  // one's place. When descriptors run short, the directory's is given up for the file.
  int OpenFile(const char* path, std::size_t nameStart, int flags);

  // lstat(2): false with errno.
  bool GetStatus(const char* path, std::size_t nameStart, struct stat* status);

  // Closes those that no call has borrowed at the moment.
  void CloseAll();

 private:
  class Loan;
  struct Slot {
    std::atomic<bool> isBorrowed{false};
    HeldDirectory directory;
  };

  Slot* Borrow(std::string_view directory);
  static void GiveBack(Slot* slot);
  int OpenByWholePath(const char* path, int flags);

  Slot slots_[4];
  std::atomic<std::uint32_t> generation_{0};
};

}  // namespace ox::internal

#endif
