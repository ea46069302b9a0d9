#include "host/held_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace ox::internal {
namespace {

std::atomic<std::uint32_t> currentGeneration{0};

int OpenRetrying(int directory, const char* path, int flags) {
  int fd = -1;
  do {
    fd = openat(directory, path, flags, 0600);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

std::time_t CoarseSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

}  // namespace

bool HeldDirectory::IsTrusted() const {
  return generation_ == currentGeneration.load(std::memory_order_relaxed) &&
         openedAt_ == CoarseSeconds();
}

void HeldDirectory::Hold(const char* path) {
  if (IsHeld() && IsTrusted()) return;
  Release();
  if (path[0] != '/') return;
  generation_ = currentGeneration.load(std::memory_order_relaxed);
  openedAt_ = CoarseSeconds();
  fd_ = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

void HeldDirectory::Release() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

int HeldDirectory::Descriptor() const {
  return IsHeld() ? fd_ : AT_FDCWD;
}

int HeldDirectory::OpenFile(const char* path, std::size_t nameAt, int flags) {
  if (!IsHeld()) return OpenRetrying(AT_FDCWD, path, flags);
  const int fd = OpenRetrying(fd_, path + nameAt, flags);
  if (fd >= 0) return fd;
  const bool isElsewhere = errno == ENOENT || errno == ESTALE;
  if (!isElsewhere && errno != EMFILE && errno != ENFILE) return -1;
  Release();
  const int found = OpenRetrying(AT_FDCWD, path, flags);
  if (isElsewhere && (found >= 0 || errno == EEXIST)) {
    currentGeneration.fetch_add(1, std::memory_order_relaxed);
  }
  return found;
}

}  // namespace ox::internal
