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
#include "session/errno_meaning.h"
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

bool GetStatus(const FileAt& file, struct stat* status) {
  return fstatat(file.directory, file.path, status, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

void SetFileOperationHook(FileOperationHook hook) {
  operationHook.store(hook, std::memory_order_relaxed);
}

void AnnounceFileOperation() {
  const FileOperationHook hook = operationHook.load(std::memory_order_relaxed);
  if (hook != nullptr) hook();
}

UniqueFd CreateNewFile(const FileAt& file, unsigned int mode) {
  AnnounceFileOperation();
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  return UniqueFd(OpenRetrying(file.directory, file.path, kFlags, mode));
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

bool SetFileTime(const FileAt& file, std::int64_t time) {
  AnnounceFileOperation();
  const auto times = BothTimes(time);
  return utimensat(file.directory, file.path, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
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

void BeginToWrite(int fd) {
  sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

bool SyncFile(int fd) {
  AnnounceFileOperation();
  return Synchronize(fd);
}

bool MakeCertain(int fd, FileSync sync) {
  if (sync == FileSync::kNone) return true;
  if (sync == FileSync::kSynchronised) return SyncFile(fd);
  AnnounceFileOperation();
  constexpr unsigned int kWritten =
      SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
  if (sync_file_range(fd, 0, 0, kWritten) == 0) return true;
  // After any other error a synchronisation might succeed although bytes are lost.
  return errno == ENOSYS && Synchronize(fd);
}

bool SyncDirectory(const std::string& path) {
  AnnounceFileOperation();
  const UniqueFd directory(OpenRetrying(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY));
  return directory.IsOpen() && Synchronize(directory.Get());
}

bool RenameFile(const FileAt& from, const FileAt& to) {
  AnnounceFileOperation();
  return renameat(from.directory, from.path, to.directory, to.path) == 0;
}

bool LinkFile(const std::string& from, const std::string& to) {
  AnnounceFileOperation();
  return link(from.c_str(), to.c_str()) == 0;
}

bool DeleteFile(const FileAt& file) {
  AnnounceFileOperation();
  return unlinkat(file.directory, file.path, 0) == 0 || errno == ENOENT;
}

struct stat StatusOfFile(const FileAt& file) {
  struct stat status;
  if (!GetStatus(file, &status) || !S_ISREG(status.st_mode)) return {};
  return status;
}

bool FileExists(const FileAt& file) {
  struct stat status;
  return GetStatus(file, &status) || errno != ENOENT;
}

bool IsOwnDirectory(const FileAt& file) {
  struct stat status;
  return GetStatus(file, &status) && S_ISDIR(status.st_mode);
}

}  // namespace ox::internal
