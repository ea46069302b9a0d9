// System calls in the form that host and session share.
#ifndef OX_HOST_SYSTEM_CALLS_H_
#define OX_HOST_SYSTEM_CALLS_H_

#include <fcntl.h>

#include <cerrno>
#include <ctime>

namespace ox::internal {

// openat(2), again when a signal interrupts it. Never inherited by another program; only
// this user may read new files unless `mode` says more.
inline int OpenRetrying(int directory, const char* path, int flags, mode_t mode = 0600) {
  int fd = -1;
  do {
    fd = openat(directory, path, flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Opens for reading without changing the time of access, where this user may ask for that.
inline int OpenWithoutTrace(int directory, const char* path, int flags) {
  const int fd = OpenRetrying(directory, path, O_RDONLY | O_NOATIME | flags);
  if (fd >= 0 || errno != EPERM) return fd;
  return OpenRetrying(directory, path, O_RDONLY | flags);
}

// Seconds since some start. Costs no system call.
inline std::time_t CoarseSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

}  // namespace ox::internal

#endif
