// How much of the disk a file takes.
#ifndef OX_SESSION_ALLOCATION_UNIT_H_
#define OX_SESSION_ALLOCATION_UNIT_H_

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace ox::internal {

// File systems give out whole blocks (ext4: mostly 4 KiB) or clusters (vfat: up to 128 KiB).
// Compression and small files inside an inode are left out: what a file takes must be told before
// it is written and be the same when it is deleted.
class AllocationUnit {
 public:
  // Not 0.
  explicit AllocationUnit(std::uint64_t bytes) : bytes_(bytes) {}
  // What the file system of this directory says.
  static AllocationUnit Of(const std::string& directory);

  // On the disk, of a file of that length.
  std::uint64_t OnDisk(std::uint64_t fileBytes) const {
    return (fileBytes + bytes_ - 1) / bytes_ * bytes_;
  }
  // Of a metadata file, whose seal may take a block of its own. `status` may not be that of a file
  // open for writing: some file systems reserve blocks for what may follow.
  std::uint64_t OfMetadata(const struct stat& status) const {
    return OfMetadata(static_cast<std::uint64_t>(status.st_size),
                      static_cast<std::uint64_t>(status.st_blocks));
  }
  // `blocks` of 512 bytes are allocated to the file.
  std::uint64_t OfMetadata(std::uint64_t fileBytes, std::uint64_t blocks) const;
  // How many more bytes on disk when the file grows by `by`.
  std::uint64_t Growth(std::uint64_t fileBytes, std::uint64_t by) const {
    return OnDisk(fileBytes + by) - OnDisk(fileBytes);
  }

 private:
  std::uint64_t bytes_;
};

// What is free to this user on the file system of the directory; the largest number where it does
// not say.
std::uint64_t FreeBytes(const std::string& directory);

}  // namespace ox::internal

#endif
