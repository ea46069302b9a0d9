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
  // Blocks of so many bytes, not 0.
  explicit AllocationUnit(std::uint64_t bytes) : bytes_(bytes) {}
  // The blocks that the file system of this directory says it has.
  static AllocationUnit Of(const std::string& directory);

  // Bytes that a file of that length takes on the disk.
  std::uint64_t OnDisk(std::uint64_t fileBytes) const {
    return (fileBytes + bytes_ - 1) / bytes_ * bytes_;
  }
  // Bytes that a metadata file takes, whose seal may take a block of its own. `status` may not be
  // that of a file open for writing: some file systems reserve blocks for what may follow.
  std::uint64_t OfMetadata(const struct stat& status) const {
    return OfMetadata(static_cast<std::uint64_t>(status.st_size),
                      static_cast<std::uint64_t>(status.st_blocks));
  }
  // The same of a file to which `blocks` of 512 bytes are allocated.
  std::uint64_t OfMetadata(std::uint64_t fileBytes, std::uint64_t blocks) const;
  // How many more bytes on disk when the file grows by `by`.
  std::uint64_t Growth(std::uint64_t fileBytes, std::uint64_t by) const {
    return OnDisk(fileBytes + by) - OnDisk(fileBytes);
  }

 private:
  std::uint64_t bytes_;
};

// Bytes that this user may still write to the file system of the directory; the largest number
// where it does not say.
std::uint64_t FreeBytes(const std::string& directory);

}  // namespace ox::internal

#endif
