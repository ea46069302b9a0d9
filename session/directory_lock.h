// One process at a time has a cache directory.
#ifndef OX_SESSION_DIRECTORY_LOCK_H_
#define OX_SESSION_DIRECTORY_LOCK_H_

#include <sys/types.h>

#include <ctime>
#include <string>

#include "session/file_at.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Locks the directory itself: a lock file can be deleted, as "rm cache/*" does, and a second
// process would then lock another one. Only where the file system refuses is the lock file locked
// instead. The lock file names the process that has the directory, for messages.
//
// The kernel lets go when the process dies. A forked child does not hold the lock, and may not
// touch the directory: IsHeld is false there.
class DirectoryLock {
 public:
  DirectoryLock() = default;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  // kInUse, with the process number of the one that has it, when the directory is taken.
  Error Take(const std::string& directory);

  bool IsHeld() const { return fd_ >= 0; }
  // An error in a forked child.
  Error CheckHeld() const;

  // A file of the locked directory, whatever the directory's path leads to meanwhile; `path` is
  // whole. No file at all in a forked child. From any thread.
  FileAt At(const std::string& path) const;
  // True when the directory is on the medium as it is now.
  bool Synchronise() const;

  // An error when the path no longer leads to what was locked, or in a forked child. The path is
  // looked at once a second; `isNow` looks in any case.
  Error Check(bool isNow);

 private:
  bool Lock(const std::string& path, int flags);
  bool LeadsToLocked() const;
  // False where the lock file was locked instead.
  bool IsDirectoryLocked() const { return lockedPath_ == directory_; }
  void WriteHolder(const std::string& lockFile) const;

  static void BeforeFork();
  static void AfterForkInParent();
  static void AfterForkInChild();

  std::string directory_;
  std::string lockedPath_;  // the directory, or the lock file
  int fd_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::time_t checkedAt_ = 0;  // seconds since some start, as the system counts them coarsely
  // All locks of the process, so that a fork can let go of them in the child.
  DirectoryLock* next_ = nullptr;
};

}  // namespace ox::internal

#endif
