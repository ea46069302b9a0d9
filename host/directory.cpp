#include "host/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/system_calls.h"

namespace ox::internal {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<DIR, CloseDirectory>;

DirectoryHandle OpenDirectory(const char* path) {
  const int fd = OpenWithoutTrace(AT_FDCWD, path, O_DIRECTORY);
  if (fd < 0) return nullptr;
  DirectoryHandle directory(fdopendir(fd));
  if (directory == nullptr) close(fd);
  return directory;
}

bool IsSelfOrParent(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool IsDirectory(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return false;
  if (S_ISDIR(status.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

bool MakeOne(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return true;
  return errno == EEXIST && IsDirectory(path);
}

}  // namespace

std::string_view NameArena::Add(std::string_view name) {
  constexpr std::size_t kFirstBlock = 4096;
  constexpr std::size_t kBlocksOfOneSize = 16;
  const std::size_t bytes = name.size() + 1;
  if (bytes > left_) {
    // Larger ones for more names, so that the last is a small part of all.
    const std::size_t wanted = kFirstBlock * (1 + blocks_.size() / kBlocksOfOneSize);
    const std::size_t block = std::max(bytes, wanted);
    std::unique_ptr<char[]> made(new char[block]);
    blocks_.push_back(std::move(made));
    next_ = blocks_.back().get();
    left_ = block;
  }
  char* const text = next_;
  text[name.copy(text, name.size())] = '\0';
  next_ += bytes;
  left_ -= bytes;
  return {text, name.size()};
}

bool ListDirectory(const char* path, DirectoryListing* listing) {
  const DirectoryHandle directory = OpenDirectory(path);
  if (directory == nullptr) return false;
  DirectoryListing found;
  for (;;) {
    errno = 0;
    const dirent* file = readdir(directory.get());
    if (file == nullptr) break;
    struct stat status;
    if (IsSelfOrParent(file->d_name)) continue;
    if (fstatat(dirfd(directory.get()), file->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      // Vanished meanwhile. Whatever else it is, the file may be there.
      if (errno == ENOENT) continue;
      return false;
    }
    const bool isRegular = S_ISREG(status.st_mode);
    found.entries.push_back({found.names.Add(file->d_name), status.st_mtim,
                             isRegular ? static_cast<std::uint64_t>(status.st_size) : 0,
                             static_cast<std::uint64_t>(status.st_blocks), S_ISDIR(status.st_mode),
                             isRegular});
  }
  if (errno != 0) return false;
  *listing = std::move(found);
  return true;
}

bool MakeDirectories(const std::string& path) {
  if (IsDirectory(path)) return true;
  const std::size_t lastByteOfName = path.find_last_not_of('/');
  for (std::size_t end = path.find('/', 1); end < lastByteOfName; end = path.find('/', end + 1)) {
    if (!MakeOne(path.substr(0, end), 0777)) return false;
  }
  return MakeOne(path, 0700);
}

}  // namespace ox::internal
