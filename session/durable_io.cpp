#include "session/durable_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "host/system_calls.h"
#include "session/use_clock.h"

namespace ox::internal {
namespace {

std::atomic<FileOperationHook> operationHook{nullptr};

std::array<timespec, 2> BothTimes(std::int64_t time) {
  return {ToTimespec(time), ToTimespec(time)};
}

bool Synchronize(int fd) {
  int result = -1;
  do {
    result = fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

void SetFileOperationHook(FileOperationHook hook) {
  operationHook.store(hook, std::memory_order_relaxed);
}

void AnnounceFileOperation() {
  const FileOperationHook hook = operationHook.load(std::memory_order_relaxed);
  if (hook != nullptr) hook();
}

UniqueFd CreateNewFile(const std::string& path, unsigned int mode) {
  AnnounceFileOperation();
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  return UniqueFd(OpenRetrying(AT_FDCWD, path.c_str(), kFlags, mode));
}

bool WriteAll(int fd, const void* data, std::size_t bytes, std::size_t* written) {
  AnnounceFileOperation();
  const char* next = static_cast<const char*>(data);
  while (bytes > 0) {
    const ssize_t part = write(fd, next, bytes);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) return false;
    next += part;
    bytes -= static_cast<std::size_t>(part);
    if (written != nullptr) *written += static_cast<std::size_t>(part);
  }
  return true;
}

bool SetFileTime(const std::string& path, std::int64_t time) {
  AnnounceFileOperation();
  return utimensat(AT_FDCWD, path.c_str(), BothTimes(time).data(), AT_SYMLINK_NOFOLLOW) == 0;
}

bool SetFileTime(int fd, std::int64_t time) {
  AnnounceFileOperation();
  return futimens(fd, BothTimes(time).data()) == 0;
}

bool ShortenFile(const std::string& path, std::uint64_t bytes) {
  AnnounceFileOperation();
  const UniqueFd file(OpenRetrying(AT_FDCWD, path.c_str(), O_WRONLY | O_NOFOLLOW));
  if (!file.IsOpen() || ftruncate(file.Get(), static_cast<off_t>(bytes)) != 0) return false;
  return Synchronize(file.Get()) || IsLastingRefusal(errno);
}

bool SyncFile(int fd) {
  AnnounceFileOperation();
  return Synchronize(fd);
}

bool SyncDirectory(const std::string& path) {
  AnnounceFileOperation();
  const UniqueFd directory(OpenRetrying(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY));
  return directory.IsOpen() && Synchronize(directory.Get());
}

bool MeansNoSpace(int error) {
  return error == ENOSPC || error == EDQUOT;
}

bool IsLastingRefusal(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
         error == EACCES || error == EBADF || error == ENOTTY;
}

bool RenameFile(const std::string& from, const std::string& to) {
  AnnounceFileOperation();
  return rename(from.c_str(), to.c_str()) == 0;
}

bool LinkFile(const std::string& from, const std::string& to) {
  AnnounceFileOperation();
  return link(from.c_str(), to.c_str()) == 0;
}

bool DeleteFile(const std::string& path) {
  AnnounceFileOperation();
  return unlink(path.c_str()) == 0 || errno == ENOENT;
}

struct stat StatusOfFile(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return status;
}

bool FileExists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

bool IsOwnDirectory(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace ox::internal
