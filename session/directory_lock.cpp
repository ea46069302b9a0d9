#include "session/directory_lock.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "host/system_calls.h"
#include "session/durable_io.h"
#include "session/session_names.h"
#include <oxfilecache/descriptor.h>

namespace ox::internal {
namespace {

std::mutex locksMutex;
DirectoryLock* firstLock = nullptr;

// Regular and under one name alone: what is written through another name of a file would reach that
// file.
bool IsLockFile(int fd, off_t* bytes) {
  struct stat status;
  if (fstat(fd, &status) != 0) return false;
  *bytes = status.st_size;
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

constexpr int kLockFileFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;

// The number in the lock file; empty where it names no living process.
std::string HolderOf(const std::string& lockFile) {
  const UniqueFd file(OpenRetrying(AT_FDCWD, lockFile.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  char text[32];
  const ssize_t count = file.IsOpen() ? pread(file.Get(), text, sizeof text, 0) : 0;
  std::string holder(text, count > 0 ? static_cast<std::size_t>(count) : 0);
  holder = holder.substr(0, holder.find_first_not_of("0123456789"));
  const pid_t process = std::atoi(holder.c_str());
  const bool isAlive = process > 0 && (kill(process, 0) == 0 || errno == EPERM);
  return isAlive ? holder : std::string();
}

Error InUse(const std::string& lockFile) {
  const std::string holder = HolderOf(lockFile);
  Error error =
      MakeError(ErrorKind::kInUse, holder.empty() ? "another process has the cache"
                                                  : "process " + holder + " has the cache");
  error.path = lockFile;
  return error;
}

// What file systems say that cannot lock a directory.
bool CannotLock(int error) {
  return error == EBADF || error == EINVAL || error == ENOLCK || error == EOPNOTSUPP ||
         error == ENOSYS;
}

}  // namespace

Error DirectoryLock::Take(const std::string& directory) {
  static const int isRegistered =
      pthread_atfork(&BeforeFork, &AfterForkInParent, &AfterForkInChild);
  static_cast<void>(isRegistered);
  directory_ = directory;
  // Who may only read could still lock it.
  if (faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    return SystemError("cannot write in the cache directory", directory);
  }
  const std::string lockFile = directory + "/" + kLockFileName;
  bool isLocked = Lock(directory, O_RDONLY | O_DIRECTORY);
  if (!isLocked && CannotLock(errno)) isLocked = Lock(lockFile, kLockFileFlags);
  if (!isLocked) {
    return errno == EWOULDBLOCK ? InUse(lockFile) : SystemError("cannot lock the cache", directory);
  }
  WriteHolder(lockFile);
  return {};
}

bool DirectoryLock::Lock(const std::string& path, int flags) {
  // Of a lock that is not listed yet a forked child would keep its copy.
  const std::lock_guard<std::mutex> guard(locksMutex);
  UniqueFd file(OpenRetrying(AT_FDCWD, path.c_str(), flags));
  struct stat status;
  if (!file.IsOpen() || flock(file.Get(), LOCK_EX | LOCK_NB) != 0 ||
      fstat(file.Get(), &status) != 0) {
    return false;
  }
  lockedPath_ = path;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  fd_ = file.Release();
  next_ = firstLock;
  firstLock = this;
  return true;
}

// Best effort: the number is for people, and the directory is locked without it.
void DirectoryLock::WriteHolder(const std::string& lockFile) const {
  const UniqueFd file(OpenRetrying(AT_FDCWD, lockFile.c_str(), kLockFileFlags));
  off_t oldBytes = 0;
  if (!file.IsOpen() || !IsLockFile(file.Get(), &oldBytes)) return;
  const std::string holder = std::to_string(getpid()) + "\n";
  const auto bytes = static_cast<off_t>(holder.size());
  // Not emptied first: ext4 writes a file that was emptied to the medium when it is closed.
  const bool isWritten = WriteAll(file.Get(), holder.data(), holder.size()) &&
                         (oldBytes <= bytes || ftruncate(file.Get(), bytes) == 0);
  static_cast<void>(isWritten);
}

DirectoryLock::~DirectoryLock() {
  const std::lock_guard<std::mutex> guard(locksMutex);
  if (fd_ < 0) return;
  for (DirectoryLock** lock = &firstLock; *lock != nullptr; lock = &(*lock)->next_) {
    if (*lock != this) continue;
    *lock = next_;
    break;
  }
  // A child that is being forked at this moment may still have its copy open.
  flock(fd_, LOCK_UN);
  close(fd_);
}

bool DirectoryLock::LeadsToLocked() const {
  struct stat status;
  return stat(lockedPath_.c_str(), &status) == 0 && status.st_dev == device_ &&
         status.st_ino == inode_;
}

Error DirectoryLock::CheckHeld() const {
  if (IsHeld()) return {};
  return MakeError(ErrorKind::kInUse, "the session belongs to the process that opened it");
}

FileAt DirectoryLock::At(const std::string& path) const {
  const bool isByPath = IsHeld() && !IsDirectoryLocked();
  return isByPath ? FileAt(path) : FileAt(fd_, path.c_str() + directory_.size() + 1);
}

bool DirectoryLock::Synchronise() const {
  return IsDirectoryLocked() ? SyncFile(fd_) : SyncDirectory(directory_);
}

Error DirectoryLock::Check(bool isNow) {
  if (Error error = CheckHeld()) return error;
  const std::time_t now = CoarseSeconds();
  if (!isNow && now == checkedAt_) return {};
  if (!LeadsToLocked()) {
    Error error = MakeError(ErrorKind::kInputOutput,
                            "the cache directory was deleted, moved or replaced; close the session "
                            "and open it again");
    error.path = directory_;
    return error;
  }
  checkedAt_ = now;
  return {};
}

void DirectoryLock::BeforeFork() {
  locksMutex.lock();
}

void DirectoryLock::AfterForkInParent() {
  locksMutex.unlock();
}

void DirectoryLock::AfterForkInChild() {
  for (DirectoryLock* lock = firstLock; lock != nullptr; lock = lock->next_) {
    close(lock->fd_);
    lock->fd_ = -1;
  }
  firstLock = nullptr;
  locksMutex.unlock();
}

}  // namespace ox::internal
