// Directories as the Linux host uses them.
#ifndef OX_HOST_DIRECTORY_H_
#define OX_HOST_DIRECTORY_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace ox::internal {

struct DirectoryEntry {
  std::string name;
  timespec modified;
  bool isDirectory;
  bool isRegular;
  std::uint64_t size;    // bytes, 0 for anything but a regular file
  std::uint64_t blocks;  // allocated to it, of 512 bytes
};

// The entries of a directory without "." and "..", oldest modification first, ties by name; they
// replace what `entries` held. Symbolic links are not followed. The type is asked of each file,
// since some file systems do not keep it in the directory. A file that is deleted meanwhile is left
// out.
//
// False with errno when the directory or one of its files cannot be looked at; `entries` is
// unchanged then.
bool ListDirectory(const char* path, std::vector<DirectoryEntry>* entries);

// Makes the directory with mode 0700, and its missing parents with 0777 less the umask: only the
// last belongs to the cache. True when the directory exists afterwards, otherwise false with errno.
bool MakeDirectories(const std::string& path);

}  // namespace ox::internal

#endif
