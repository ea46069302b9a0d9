#include "host/posix_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "host/directory.h"
#include "host/enumeration_snapshot.h"
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::internal {
namespace {

// O_NONBLOCK, so that a FIFO planted under a file's name cannot hang the device; regular files do
// not know it.
constexpr int kAlways = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
constexpr int kForReading = O_RDONLY | kAlways;
constexpr int kForWriting = O_WRONLY | O_CREAT | kAlways;

// Where the name begins.
std::size_t BehindLastSlash(const char* path, std::size_t length) {
  const void* slash = memrchr(path, '/', length);
  return slash != nullptr ? static_cast<std::size_t>(static_cast<const char*>(slash) - path) + 1
                          : 0;
}

// As much as one read or write may be asked for on every platform.
std::size_t OneCall(std::uint64_t bytes) {
  constexpr std::uint64_t kMost = 1U << 30;
  return static_cast<std::size_t>(bytes < kMost ? bytes : kMost);
}

bool IsFileOfTheCache(const struct stat& status) {
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

std::uint64_t SizeOf(const struct stat& status) {
  return S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

PosixFile::~PosixFile() {
  Close();
}

int PosixFile::SetPath(const char* utf8Path) {
  Close();
  length_ = 0;
  const std::size_t length = utf8Path != nullptr ? std::strlen(utf8Path) : 0;
  if (length == 0 || length >= sizeof path_) {
    // The directory stays for the next path, the name goes.
    path_[nameAt_] = '\0';
    return 0;
  }
  const std::size_t nameAt = BehindLastSlash(utf8Path, length);
  const bool isSame = nameAt == nameAt_ && std::memcmp(path_, utf8Path, nameAt) == 0;
  std::memcpy(path_, utf8Path, length + 1);
  length_ = length;
  nameAt_ = nameAt;
  isInSameDirectory_ = isSame && nameAt > 0 && nameAt < length;
  if (!isInSameDirectory_) directory_.Release();
  return 1;
}

void PosixFile::HoldDirectory() {
  if (!isInSameDirectory_) return;
  const char first = std::exchange(path_[nameAt_], '\0');
  directory_.Hold(path_);
  path_[nameAt_] = first;
}

int PosixFile::OpenFile(int flags) {
  if (length_ == 0) {
    errno = ENOENT;
    return -1;
  }
  HoldDirectory();
  return directory_.OpenFile(path_, nameAt_, flags);
}

bool PosixFile::LookAt(struct stat* status) {
  HoldDirectory();
  return fstatat(directory_.Descriptor(), Name(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

int PosixFile::Open(int mode) {
  if (mode == kOpenRead && isProbed_) {
    Forget();
    return 1;
  }
  Close();
  position_ = 0;
  if (mode == kOpenWrite) {
    EnumerationSnapshot::Forget();
    fd_ = OpenFile(kForWriting | O_EXCL);
    // What was just made is a regular file.
    if (fd_ >= 0) return 1;
  }
  if (mode == kOpenWrite) fd_ = OpenFile(kForWriting | O_TRUNC);
  if (mode == kOpenRead) fd_ = OpenFile(kForReading);
  struct stat status;
  if (fd_ >= 0 && fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) return 1;
  Close();
  return 0;
}

void PosixFile::Close() {
  Forget();
  if (fd_ < 0) return;
  // Not tried again on EINTR: on Linux the descriptor is gone then too.
  close(fd_);
  fd_ = -1;
}

void PosixFile::Forget() {
  isProbed_ = false;
  knowsSize_ = false;
}

void PosixFile::KnowSize(std::uint64_t size) {
  knowsSize_ = true;
  size_ = size;
}

int PosixFile::Delete(int /*flags*/) {
  if (isProbed_) Close();
  Forget();
  EnumerationSnapshot::Forget();
  // By the path: nothing is deleted in a directory that this one no longer leads to.
  return unlink(Path()) == 0;
}

int PosixFile::Exists() {
  if (isProbed_) Close();
  if (fd_ < 0 && format::HasMetaDataSuffix({path_, length_}) && ProbeByOpening()) return 1;
  return ProbeByPath();
}

// What is opened here is not asked for its type: reading at a position fails for FIFOs, sockets and
// terminals, and reading a directory fails anyway.
bool PosixFile::ProbeByOpening() {
  fd_ = OpenFile(kForReading);
  position_ = 0;
  isProbed_ = fd_ >= 0;
  return isProbed_;
}

bool PosixFile::ProbeByPath() {
  if (const DirectoryEntry* seen = EnumerationSnapshot::Find({Path(), length_})) {
    KnowSize(seen->size);
    return true;
  }
  struct stat status;
  if (!LookAt(&status) || !IsFileOfTheCache(status)) return false;
  KnowSize(SizeOf(status));
  return true;
}

void PosixFile::GetPath(OxString& out) {
  out = Path();
}

std::uint64_t PosixFile::GetSize() {
  const bool isKnown = knowsSize_;
  if (isProbed_) Close();
  Forget();
  if (isKnown) return size_;
  if (const DirectoryEntry* seen = EnumerationSnapshot::Find({Path(), length_})) return seen->size;
  struct stat status;
  return LookAt(&status) ? SizeOf(status) : 0;
}

bool PosixFile::GetStatus(struct stat* status) const {
  return fd_ >= 0 && fstat(fd_, status) == 0;
}

std::uint64_t PosixFile::Read(std::uint64_t count, void* destination) {
  Forget();
  if (fd_ < 0) return 0;
  std::uint64_t done = 0;
  while (done < count) {
    const std::size_t wanted = OneCall(count - done);
    const ssize_t part =
        pread(fd_, static_cast<char*>(destination) + done, wanted, static_cast<off_t>(position_));
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) return 0;
    done += static_cast<std::uint64_t>(part);
    position_ += static_cast<std::uint64_t>(part);
    if (static_cast<std::size_t>(part) < wanted) break;
  }
  return done;
}

std::uint64_t PosixFile::Write(std::uint64_t count, const void* source) {
  Forget();
  if (fd_ < 0) return 0;
  std::uint64_t done = 0;
  while (done < count) {
    const ssize_t part = write(fd_, static_cast<const char*>(source) + done, OneCall(count - done));
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) break;
    done += static_cast<std::uint64_t>(part);
  }
  return done;
}

int PosixFile::EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) {
  // Nothing may be thrown through the module, which stands between here and the host's own code.
  try {
    std::vector<DirectoryEntry> entries;
    if (!ListDirectory(Path(), &entries)) return 0;
    std::string path = std::string(Path()) + "/";
    const std::size_t prefixLength = path.size();
    const std::string prefix = path;
    const EnumerationSnapshot snapshot(prefix, entries);
    PosixFile file;
    for (const DirectoryEntry& entry : entries) {
      path.resize(prefixLength);
      path += entry.name;
      if (file.SetPath(path.c_str()) == 0) continue;
      file.KnowSize(entry.size);
      if (!callback(file, entry.isDirectory, context)) break;
    }
    return 1;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

}  // namespace ox::internal
