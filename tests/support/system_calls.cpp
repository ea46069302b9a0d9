#include "tests/support/system_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "session/use_clock.h"

namespace ox::testing {

FaultDriver callFaults;
FaultDriver callInterrupts;
Refusal refusal;
bool areTransfersShort = false;
bool hasOrderedJournal = false;
int commonOpenFlags = ~0;

namespace {

Journal* journal = nullptr;

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool Fails(const char* call, int error, const char* path = "") {
  const bool isRefused = refusal.calls.count(call) != 0 && EndsWith(path, refusal.name);
  if (!isRefused && !callFaults.Next()) return false;
  errno = isRefused ? refusal.error : error;
  return true;
}

const char* KindOfOpening(int flags) {
  if ((flags & O_CREAT) != 0) return "create";
  return (flags & O_DIRECTORY) != 0 ? "list" : "open";
}

bool IsInterrupted() {
  if (!callInterrupts.Next()) return false;
  errno = EINTR;
  return true;
}

std::size_t UntilInterrupted(std::size_t count) {
  if (areTransfersShort) return std::min<std::size_t>(count, 7);
  return count > 1 && callInterrupts.Next() ? count / 2 : count;
}

// The C library's function of that name. On 32-bit machines the headers rename some.
template <typename Function>
Function* Next(const char* name, const char* largeFile, const char* longTime) {
  constexpr bool isLargeFile = sizeof(long) == 4 && sizeof(off_t) == 8;
  constexpr bool isLongTime = sizeof(long) == 4 && sizeof(time_t) == 8;
  void* found = dlsym(RTLD_NEXT, isLongTime ? longTime : isLargeFile ? largeFile : name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function*>(found);
}

std::string PathOf(int fd) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
}

std::string FullPath(int directory, const char* path) {
  if (directory == AT_FDCWD || path[0] == '/') return path;
  return PathOf(directory) + "/" + path;
}

bool IsMissing(int directory, const char* path) {
  const FaultPause pause;
  return faccessat(directory, path, F_OK, 0) != 0;
}

// Passed only when a file may be made.
mode_t TakeMode(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

}  // namespace

Journal::Journal(std::string directory)
    : directory_(std::move(directory)), resolved_(std::filesystem::canonical(directory_)) {
  for (const auto& entry : std::filesystem::directory_iterator(directory_))
    names_[entry.path().filename()] = 0;
  for (auto& name : names_)
    name.second = files_++;
  journal = this;
}

Journal::~Journal() {
  journal = nullptr;
}

std::string Journal::NameOf(const std::string& path) const {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path.substr(0, slash) != directory_) return {};
  return path.substr(slash + 1);
}

FileOperation& Journal::Add(FileOperation::Kind kind, int file) {
  operations_.emplace_back();
  operations_.back().kind = kind;
  operations_.back().file = file;
  return operations_.back();
}

void Journal::Created(const std::string& path, int fd, bool isNew, bool isEmptied) {
  const std::string name = NameOf(path);
  if (name.empty()) return;
  if (isNew) {
    names_[name] = files_++;
    Add(FileOperation::Kind::kCreate, names_[name]).name = name;
  } else if (isEmptied) {
    Add(FileOperation::Kind::kEmpty, names_[name]);
  }
  open_[fd] = {names_[name], 0};
}

void Journal::Written(int fd, const void* bytes, std::size_t count) {
  const auto open = open_.find(fd);
  if (open == open_.end()) return;
  FileOperation& write = Add(FileOperation::Kind::kWrite, open->second.file);
  write.offset = open->second.position;
  write.bytes.assign(static_cast<const char*>(bytes), count);
  open->second.position += count;
}

void Journal::Emptied(int fd) {
  if (open_.count(fd) != 0) Add(FileOperation::Kind::kEmpty, open_[fd].file);
}

void Journal::Renamed(const std::string& from, const std::string& to) {
  const std::string name = NameOf(from);
  if (name.empty()) return;
  names_[NameOf(to)] = names_[name];
  FileOperation& rename = Add(FileOperation::Kind::kRename, names_[name]);
  rename.name = name;
  rename.newName = NameOf(to);
  names_.erase(name);
}

void Journal::Linked(const std::string& from, const std::string& to) {
  const std::string name = NameOf(to);
  if (name.empty()) return;
  names_[name] = names_[NameOf(from)];
  Add(FileOperation::Kind::kCreate, names_[name]).name = name;
}

void Journal::Deleted(const std::string& path) {
  const std::string name = NameOf(path);
  if (name.empty()) return;
  Add(FileOperation::Kind::kDelete, names_[name]).name = name;
  names_.erase(name);
}

void Journal::TimeSet(const std::string& path, std::int64_t time) {
  const auto name = names_.find(NameOf(path));
  if (name != names_.end()) Add(FileOperation::Kind::kSetTime, name->second).time = time;
}

void Journal::TimeSet(int fd, std::int64_t time) {
  const auto open = open_.find(fd);
  if (open != open_.end()) Add(FileOperation::Kind::kSetTime, open->second.file).time = time;
}

void Journal::SealSet(int fd, const void* bytes, std::size_t count) {
  const auto open = open_.find(fd);
  if (open == open_.end()) return;
  Add(FileOperation::Kind::kSetSeal, open->second.file)
      .bytes.assign(static_cast<const char*>(bytes), count);
}

void Journal::WrittenOut(int fd) {
  if (open_.count(fd) != 0) Add(FileOperation::Kind::kWriteOut, open_[fd].file);
}

void Journal::Synchronised(int fd) {
  if (open_.count(fd) != 0) {
    Add(FileOperation::Kind::kSyncFile, open_[fd].file);
    return;
  }
  const std::string path = PathOf(fd);
  synchronised_.insert(path);
  if (path == resolved_) Add(FileOperation::Kind::kSyncDirectory, -1);
}

}  // namespace ox::testing

// Defined here, these stand before the C library's.

using ox::internal::ToNanoseconds;
using ox::testing::callFaults;
using ox::testing::commonOpenFlags;
using ox::testing::Fails;
using ox::testing::FullPath;
using ox::testing::hasOrderedJournal;
using ox::testing::IsInterrupted;
using ox::testing::IsMissing;
using ox::testing::journal;
using ox::testing::KindOfOpening;
using ox::testing::Next;
using ox::testing::TakeMode;
using ox::testing::UntilInterrupted;

extern "C" {

int openat(int directory, const char* path, int flags, ...) {
  static auto* const real = Next<int(int, const char*, int, ...)>("openat", "openat64", "openat64");
  if (Fails(KindOfOpening(flags), EMFILE, path) || IsInterrupted()) return -1;
  commonOpenFlags &= flags;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = TakeMode(flags, arguments);
  va_end(arguments);
  const bool isNew = (flags & O_CREAT) != 0 && IsMissing(directory, path);
  const int fd = real(directory, path, flags, mode);
  if (fd >= 0 && journal != nullptr && (flags & O_ACCMODE) != O_RDONLY) {
    journal->Created(FullPath(directory, path), fd, isNew, (flags & O_TRUNC) != 0);
  }
  return fd;
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = TakeMode(flags, arguments);
  va_end(arguments);
  return openat(AT_FDCWD, path, flags, mode);
}

int close(int fd) {
  static auto* const real = Next<int(int)>("close", "close", "close");
  if (journal != nullptr) journal->Closed(fd);
  return real(fd);
}

ssize_t read(int fd, void* buffer, size_t count) {
  static auto* const real = Next<ssize_t(int, void*, size_t)>("read", "read", "read");
  if (Fails("read", EIO) || IsInterrupted()) return -1;
  return real(fd, buffer, UntilInterrupted(count));
}

ssize_t pread(int fd, void* buffer, size_t count, off_t offset) {
  static auto* const real = Next<ssize_t(int, void*, size_t, off_t)>("pread", "pread64", "pread64");
  return Fails("pread", EIO) || IsInterrupted() ? -1
                                                : real(fd, buffer, UntilInterrupted(count), offset);
}

ssize_t write(int fd, const void* buffer, size_t count) {
  static auto* const real = Next<ssize_t(int, const void*, size_t)>("write", "write", "write");
  if (IsInterrupted()) return -1;
  const bool fails = Fails("write", EIO);
  const int failure = errno;
  const ssize_t written = real(fd, buffer, fails ? count / 2 : UntilInterrupted(count));
  if (journal != nullptr && written > 0) {
    journal->Written(fd, buffer, static_cast<size_t>(written));
  }
  if (!fails) return written;
  errno = failure;
  return -1;
}

int ftruncate(int fd, off_t length) noexcept {
  static auto* const real = Next<int(int, off_t)>("ftruncate", "ftruncate64", "ftruncate64");
  if (Fails("ftruncate", EIO)) return -1;
  if (journal != nullptr) journal->Emptied(fd);
  return real(fd, length);
}

int fsync(int fd) {
  if (Fails("fsync", EIO) || IsInterrupted()) return -1;
  if (journal != nullptr) journal->Synchronised(fd);
  return 0;  // power is cut in simulation only: thousands of cases need not wait for the disk
}

int sync_file_range(int fd, off_t /*from*/, off_t /*count*/, unsigned flags) {
  if ((flags & SYNC_FILE_RANGE_WAIT_AFTER) == 0) return 0;  // a hint that promises nothing
  if (Fails("sync_file_range", EIO)) return -1;
  if (journal != nullptr) journal->WrittenOut(fd);
  return 0;
}

int statfs(const char* path, struct statfs* fileSystem) noexcept {
  static auto* const real =
      Next<int(const char*, struct statfs*)>("statfs", "statfs64", "statfs64");
  if (Fails("statfs", EIO)) return -1;
  const int result = real(path, fileSystem);
  if (result == 0 && hasOrderedJournal) {
    fileSystem->f_type = static_cast<decltype(fileSystem->f_type)>(0xF2F52010);  // f2fs
  }
  return result;
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  static auto* const real =
      Next<int(int, const char*, int, const char*)>("renameat", "renameat", "renameat");
  if (Fails("rename", EIO)) return -1;
  const int result = real(fromDirectory, from, toDirectory, to);
  if (result == 0 && journal != nullptr) {
    journal->Renamed(FullPath(fromDirectory, from), FullPath(toDirectory, to));
  }
  return result;
}

int link(const char* from, const char* to) noexcept {
  static auto* const real = Next<int(const char*, const char*)>("link", "link", "link");
  if (Fails("link", EIO)) return -1;
  const int result = real(from, to);
  if (result == 0 && journal != nullptr) journal->Linked(from, to);
  return result;
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  static auto* const real = Next<int(int, const char*, int)>("unlinkat", "unlinkat", "unlinkat");
  if (Fails("unlinkat", EIO)) return -1;
  const int result = real(directory, path, flags);
  if (result == 0 && journal != nullptr) journal->Deleted(FullPath(directory, path));
  return result;
}

int unlink(const char* path) noexcept {
  return unlinkat(AT_FDCWD, path, 0);
}

int utimensat(int directory, const char* path, const timespec times[2], int flags) noexcept {
  static auto* const real =
      Next<int(int, const char*, const timespec*, int)>("utimensat", "utimensat", "__utimensat64");
  if (Fails("utimensat", EIO)) return -1;
  if (journal != nullptr) journal->TimeSet(path, ToNanoseconds(times[1]));
  return real(directory, path, times, flags);
}

int futimens(int fd, const timespec times[2]) noexcept {
  static auto* const real = Next<int(int, const timespec*)>("futimens", "futimens", "__futimens64");
  if (Fails("futimens", EIO)) return -1;
  if (journal != nullptr) journal->TimeSet(fd, ToNanoseconds(times[1]));
  return real(fd, times);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
  static auto* const real =
      Next<int(int, const char*, struct stat*, int)>("fstatat", "fstatat64", "__fstatat64_time64");
  return Fails("fstatat", EIO) ? -1 : real(directory, path, status, flags);
}

int stat(const char* path, struct stat* status) noexcept {
  return fstatat(AT_FDCWD, path, status, 0);
}

int lstat(const char* path, struct stat* status) noexcept {
  return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstat(int fd, struct stat* status) noexcept {
  return fstatat(fd, "", status, AT_EMPTY_PATH);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static auto* const real = Next<int(const char*, mode_t)>("mkdir", "mkdir", "mkdir");
  return Fails("mkdir", ENOSPC) ? -1 : real(path, mode);
}

DIR* fdopendir(int fd) {
  static auto* const real = Next<DIR*(int)>("fdopendir", "fdopendir", "fdopendir");
  return Fails("fdopendir", ENOMEM) ? nullptr : real(fd);
}

dirent* readdir(DIR* directory) {
  static auto* const real = Next<dirent*(DIR*)>("readdir", "readdir64", "readdir64");
  return Fails("readdir", EIO) ? nullptr : real(directory);
}

int flock(int fd, int operation) noexcept {
  static auto* const real = Next<int(int, int)>("flock", "flock", "flock");
  return Fails("flock", ENOLCK) ? -1 : real(fd, operation);
}

int fsetxattr(int fd, const char* name, const void* value, size_t bytes, int flags) noexcept {
  static auto* const real =
      Next<int(int, const char*, const void*, size_t, int)>("fsetxattr", "fsetxattr", "fsetxattr");
  if (Fails("fsetxattr", EIO)) return -1;
  const int result = real(fd, name, value, bytes, flags);
  if (result == 0 && journal != nullptr) journal->SealSet(fd, value, bytes);
  return result;
}

ssize_t fgetxattr(int fd, const char* name, void* value, size_t bytes) noexcept {
  static auto* const real =
      Next<ssize_t(int, const char*, void*, size_t)>("fgetxattr", "fgetxattr", "fgetxattr");
  return Fails("fgetxattr", EIO) ? -1 : real(fd, name, value, bytes);
}

ssize_t lgetxattr(const char* path, const char* name, void* value, size_t bytes) noexcept {
  static auto* const real =
      Next<ssize_t(const char*, const char*, void*, size_t)>("lgetxattr", "lgetxattr", "lgetxattr");
  return Fails("lgetxattr", EIO) ? -1 : real(path, name, value, bytes);
}

off_t lseek(int fd, off_t offset, int origin) noexcept {
  static auto* const real = Next<off_t(int, off_t, int)>("lseek", "lseek64", "lseek64");
  return Fails("lseek", EIO) ? -1 : real(fd, offset, origin);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept {
  static auto* const real =
      Next<int(int, const char*, int, int)>("faccessat", "faccessat", "faccessat");
  return Fails("faccessat", EIO) ? -1 : real(directory, path, mode, flags);
}

ssize_t getrandom(void* buffer, size_t bytes, unsigned flags) {
  static auto* const real =
      Next<ssize_t(void*, size_t, unsigned)>("getrandom", "getrandom", "getrandom");
  return Fails("getrandom", EAGAIN) ? -1 : real(buffer, bytes, flags);
}

}  // extern "C"
