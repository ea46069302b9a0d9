#include "tests/support/disk_capacity.h"

#include <dlfcn.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/support/session_rig.h"

namespace ox::testing {
namespace {

const DiskCapacity* active = nullptr;

}  // namespace

DiskCapacity::DiskCapacity(std::string directory, std::uint64_t bytes)
    : directory_(std::move(directory)), bytes_(bytes) {
  active = this;
}

DiskCapacity::~DiskCapacity() {
  active = nullptr;
}

std::uint64_t DiskCapacity::Free() const {
  return bytes_ - std::min(bytes_, DiskUse(directory_));
}

}  // namespace ox::testing

extern "C" {

ssize_t write(int fd, const void* buffer, size_t count) {
  static auto* const real = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
  const ox::testing::DiskCapacity* disk = ox::testing::active;
  if (disk == nullptr || count == 0) return real(fd, buffer, count);
  const auto part = static_cast<size_t>(std::min<std::uint64_t>(count, disk->Free()));
  if (part > 0) return real(fd, buffer, part);
  errno = ENOSPC;
  return -1;
}

int statvfs(const char* path, struct statvfs* status) noexcept {
  // Programs of 32 bits call the variant for large disks.
  constexpr const char* kName = sizeof(long) == 4 ? "statvfs64" : "statvfs";
  static auto* const real =
      reinterpret_cast<int (*)(const char*, struct statvfs*)>(dlsym(RTLD_NEXT, kName));
  const int result = real(path, status);
  if (result != 0 || ox::testing::active == nullptr) return result;
  status->f_frsize = 1;
  status->f_bavail = ox::testing::active->Free();
  return 0;
}

}  // extern "C"
