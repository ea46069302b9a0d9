#include "host/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>
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

bool IsOlder(const DirectoryEntry& a, const DirectoryEntry& b) {
  return std::tie(a.modified.tv_sec, a.modified.tv_nsec, a.name) <
         std::tie(b.modified.tv_sec, b.modified.tv_nsec, b.name);
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

bool ListDirectory(const char* path, std::vector<DirectoryEntry>* entries) {
  const DirectoryHandle directory = OpenDirectory(path);
  if (directory == nullptr) return false;
  std::vector<DirectoryEntry> listed;
  for (;;) {
    errno = 0;
    const dirent* found = readdir(directory.get());
    if (found == nullptr) break;
    struct stat status;
    if (IsSelfOrParent(found->d_name)) continue;
    if (fstatat(dirfd(directory.get()), found->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      // Vanished meanwhile. Whatever else it is, the file may be there.
      if (errno == ENOENT) continue;
      return false;
    }
    const bool isRegular = S_ISREG(status.st_mode);
    listed.push_back({found->d_name, status.st_mtim, S_ISDIR(status.st_mode), isRegular,
                      isRegular ? static_cast<std::uint64_t>(status.st_size) : 0,
                      static_cast<std::uint64_t>(status.st_blocks)});
  }
  if (errno != 0) return false;
  std::sort(listed.begin(), listed.end(), IsOlder);
  *entries = std::move(listed);
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
