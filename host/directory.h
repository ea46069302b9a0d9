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
  std::uint64_t size;  // bytes, 0 for anything but a regular file
};

// The entries of a directory without "." and "..", oldest modification first, ties by name.
// Symbolic links are not followed; the type comes from the file itself, since some file systems
// leave it out of the directory. False with errno when the directory or one of its files cannot be
// looked at; a file that vanishes meanwhile is left out.
bool ListDirectory(const char* path, std::vector<DirectoryEntry>* entries);

// Makes the directory and its missing parents, each with mode 0700. True when it exists afterwards,
// otherwise false with errno.
bool MakeDirectories(const std::string& path);

}  // namespace ox::internal

#endif
