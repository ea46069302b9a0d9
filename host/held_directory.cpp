#include "host/held_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

namespace ox::host {
namespace {

std::atomic<std::uint32_t> currentGeneration{0};

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

void HeldDirectory::DistrustAll() {
  currentGeneration.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace ox::host
