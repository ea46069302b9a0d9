#include "session/allocation_unit.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <limits>

namespace ox::internal {

AllocationUnit AllocationUnit::Of(const std::string& directory) {
  constexpr std::uint64_t kUsual = 4096;
  struct statvfs status {};
  if (statvfs(directory.c_str(), &status) != 0 || status.f_frsize == 0) {
    return AllocationUnit(kUsual);
  }
  return AllocationUnit(status.f_frsize);
}

std::uint64_t AllocationUnit::OfMetadata(std::uint64_t fileBytes, std::uint64_t blocks) const {
  constexpr std::uint64_t kStatusBlock = 512;
  const std::uint64_t text = OnDisk(fileBytes);
  if (bytes_ == 1) return text;
  return std::clamp(blocks * kStatusBlock, text, text + bytes_);
}

std::uint64_t FreeBytes(const std::string& directory) {
  struct statvfs status {};
  if (statvfs(directory.c_str(), &status) != 0) {
    return std::numeric_limits<std::uint64_t>::max();
  }
  return std::uint64_t{status.f_bavail} * status.f_frsize;
}

}  // namespace ox::internal
