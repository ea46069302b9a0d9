// Directories as the Linux host uses them.
#ifndef OX_HOST_DIRECTORY_H_
#define OX_HOST_DIRECTORY_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace ox::internal {

// Texts side by side in few blocks of memory: a directory may hold a million names. They stay where
// they are until the arena is gone, also when it is moved. Each ends with a NUL. Throws
// std::bad_alloc.
class NameArena {
 public:
  std::string_view Add(std::string_view name);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  std::size_t left_ = 0;
};

struct DirectoryEntry {
  std::string_view name;  // in the listing's arena
  timespec modified;
  std::uint64_t size;    // bytes, 0 for anything but a regular file
  std::uint64_t blocks;  // allocated to it, of 512 bytes
  bool isDirectory;
  bool isRegular;
};

// The order of use of files with these times and names: the older first, of one time by name.
inline bool IsOlder(const timespec& time, std::string_view name, const timespec& otherTime,
                    std::string_view otherName) {
  return std::tie(time.tv_sec, time.tv_nsec, name) <
         std::tie(otherTime.tv_sec, otherTime.tv_nsec, otherName);
}

struct DirectoryListing {
  std::vector<DirectoryEntry> entries;
  NameArena names;
};

// The entries of a directory without "." and "..", in no particular order; they replace what was in
// the listing. Symbolic links are not followed. The type is asked of each file, since some file
// systems do not keep it in the directory. A file that is deleted meanwhile is left out.
//
// False with errno when the directory or one of its files cannot be looked at; the listing is
// unchanged then.
bool ListDirectory(const char* path, DirectoryListing* listing);

// Makes the directory with mode 0700, and its missing parents with 0777 less the umask: only the
// last belongs to the cache. True when the directory exists afterwards, otherwise false with errno.
bool MakeDirectories(const std::string& path);

}  // namespace ox::internal

#endif
