#include "host/posix_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "host/directory.h"
#include "host/enumeration_snapshot.h"
#include "host/held_directories.h"
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::internal {
namespace {

// O_NONBLOCK, so that a FIFO planted under a file's name cannot hang the device; for regular files
// it means nothing.
constexpr int kAlways = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
constexpr int kForReading = O_RDONLY | kAlways;
constexpr int kForWriting = O_WRONLY | O_CREAT | kAlways;

// How many bytes to ask one system call for: as many as every platform allows.
std::size_t BytesForOneCall(std::uint64_t bytes) {
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
  return path_.Assign(utf8Path);
}

int PosixFile::OpenFile(int flags) {
  return directories_.OpenFile(Path(), path_.NameStart(), flags);
}

bool PosixFile::GetStatusByPath(struct stat* status) {
  return directories_.GetStatus(Path(), path_.NameStart(), status);
}

int PosixFile::Open(int mode) {
  if (mode == kOpenRead && isOpenedByExists_) {
    DropFindings();
    return 1;
  }
  Close();
  position_ = 0;
  if (mode == kOpenWrite) {
    EnumerationSnapshot::DropAll();
    fd_ = OpenFile(kForWriting | O_EXCL);
    // What was just made is a regular file.
    if (fd_ >= 0) return 1;
  }
  if (mode == kOpenWrite) fd_ = OpenFile(kForWriting | O_TRUNC);
  if (mode == kOpenRead) fd_ = OpenFile(kForReading);
  struct stat status;
  if (GetStatus(&status) && S_ISREG(status.st_mode)) return 1;
  Close();
  return 0;
}

void PosixFile::Close() {
  DropFindings();
  openSize_.reset();
  if (fd_ < 0) return;
  // Not tried again on EINTR: on Linux the descriptor is gone then too.
  close(fd_);
  fd_ = -1;
}

void PosixFile::DropFindings() {
  isOpenedByExists_ = false;
  foundSize_.reset();
}

void PosixFile::RememberSize(std::uint64_t size) {
  foundSize_ = size;
}

int PosixFile::Delete(int /*flags*/) {
  if (isOpenedByExists_) Close();
  DropFindings();
  EnumerationSnapshot::DropAll();
  // By the whole path: in a held directory that the path no longer leads to nothing may be deleted.
  return unlink(Path()) == 0;
}

int PosixFile::Exists() {
  if (isOpenedByExists_) Close();
  if (fd_ < 0 && format::HasMetadataSuffix(path_.View()) && ExistsByOpening()) return 1;
  return ExistsByStatus();
}

// The type of what is opened here is not asked for: Read fails for anything but a regular file,
// since FIFOs, sockets and terminals have no positions and directories cannot be read.
bool PosixFile::ExistsByOpening() {
  fd_ = OpenFile(kForReading);
  position_ = 0;
  isOpenedByExists_ = fd_ >= 0;
  return isOpenedByExists_;
}

bool PosixFile::ExistsByStatus() {
  if (const DirectoryEntry* seen = EnumerationSnapshot::Find(path_.View())) {
    RememberSize(seen->size);
    return true;
  }
  struct stat status;
  if (!GetStatusByPath(&status) || !IsFileOfTheCache(status)) return false;
  RememberSize(SizeOf(status));
  return true;
}

void PosixFile::GetPath(OxString& out) {
  out = Path();
}

std::uint64_t PosixFile::GetSize() {
  const std::optional<std::uint64_t> found = foundSize_;
  if (isOpenedByExists_) Close();
  DropFindings();
  if (found) return *found;
  if (const DirectoryEntry* seen = EnumerationSnapshot::Find(path_.View())) return seen->size;
  struct stat status;
  return GetStatusByPath(&status) ? SizeOf(status) : 0;
}

bool PosixFile::GetStatus(struct stat* status) {
  if (fd_ < 0 || fstat(fd_, status) != 0) return false;
  openSize_ = SizeOf(*status);
  return true;
}

// For a read that gave less than it was asked for. That is the end for most file systems, but one
// that another machine or program serves may give a part and then more. Where the size is not known
// yet, lseek asks for it at the lowest cost; Read does not use the position that it changes.
bool PosixFile::IsAtEnd() {
  if (openSize_) return position_ >= *openSize_;
  return position_ >= static_cast<std::uint64_t>(lseek(fd_, 0, SEEK_END));
}

std::uint64_t PosixFile::Read(std::uint64_t count, void* destination) {
  DropFindings();
  if (fd_ < 0) return 0;
  std::uint64_t done = 0;
  while (done < count) {
    const std::size_t wanted = BytesForOneCall(count - done);
    const ssize_t part =
        pread(fd_, static_cast<char*>(destination) + done, wanted, static_cast<off_t>(position_));
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) return 0;
    const auto bytes = static_cast<std::size_t>(part);
    done += bytes;
    position_ += bytes;
    if (bytes == 0 || (bytes < wanted && IsAtEnd())) break;
  }
  return done;
}

std::uint64_t PosixFile::Write(std::uint64_t count, const void* source) {
  DropFindings();
  if (fd_ < 0) return 0;
  std::uint64_t done = 0;
  while (done < count) {
    const ssize_t part =
        write(fd_, static_cast<const char*>(source) + done, BytesForOneCall(count - done));
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) break;
    done += static_cast<std::uint64_t>(part);
  }
  return done;
}

int PosixFile::EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) {
  // Nothing may be thrown through the module, which stands between here and the host's own code.
  try {
    DirectoryListing listing;
    if (!ListDirectory(Path(), &listing)) return 0;
    std::vector<DirectoryEntry>& entries = listing.entries;
    std::sort(entries.begin(), entries.end(), [](const DirectoryEntry& a, const DirectoryEntry& b) {
      return IsOlder(a.modified, a.name, b.modified, b.name);
    });
    std::string path = std::string(Path()) + "/";
    const std::size_t prefixLength = path.size();
    const std::string prefix = path;
    const EnumerationSnapshot snapshot(prefix, entries);
    PosixFile file(directories_);
    for (const DirectoryEntry& entry : entries) {
      path.resize(prefixLength);
      path += entry.name;
      if (file.SetPath(path.c_str()) == 0) continue;
      file.RememberSize(entry.size);
      if (!callback(file, entry.isDirectory, context)) break;
    }
    return 1;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

}  // namespace ox::internal
