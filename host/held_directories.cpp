#include "host/held_directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/system_calls.h"

namespace ox::internal {
namespace {

bool CanBeHeld(const char* path, std::size_t nameStart) {
  return path[0] == '/' && path[nameStart] != '\0' && nameStart <= HeldDirectory::kMaxPathBytes;
}

// Reading writes nothing to the medium.
int Open(int directory, const char* path, int flags) {
  const bool isForReading = (flags & O_ACCMODE) == O_RDONLY;
  return isForReading ? OpenWithoutTrace(directory, path, flags)
                      : OpenRetrying(directory, path, flags);
}

}  // namespace

void HeldDirectory::MoveTo(std::string_view path) {
  Close();
  length_ = path.copy(path_, kMaxPathBytes);
  path_[length_] = '\0';
}

void HeldDirectory::Refresh(std::uint32_t generation) {
  lastUse_ = CoarseSeconds();
  if (fd_ >= 0 && generation_ == generation && openedAt_ == lastUse_) return;
  Close();
  fd_ = open(path_, O_PATH | O_DIRECTORY | O_CLOEXEC);
  openedAt_ = lastUse_;
  generation_ = generation;
}

void HeldDirectory::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

// Names a file for one call: relative to a borrowed directory, or by its whole path.
class HeldDirectories::Loan {
 public:
  Loan(HeldDirectories& all, const char* path, std::size_t nameStart)
      : slot_(CanBeHeld(path, nameStart) ? all.Borrow({path, nameStart}) : nullptr) {
    if (slot_ != nullptr) slot_->directory.Refresh(all.generation_.load());
    name_ = IsHeld() ? path + nameStart : path;
  }
  ~Loan() { GiveBack(slot_); }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  bool IsHeld() const { return slot_ != nullptr && slot_->directory.Descriptor() >= 0; }
  int Descriptor() const { return IsHeld() ? slot_->directory.Descriptor() : AT_FDCWD; }
  const char* Name() const { return name_; }
  void CloseDirectory() { slot_->directory.Close(); }

 private:
  Slot* slot_;
  const char* name_;
};

// The slot of that directory; else the one that was not used for the longest time, moved there;
// null when all are borrowed.
HeldDirectories::Slot* HeldDirectories::Borrow(std::string_view directory) {
  Slot* oldest = nullptr;
  for (Slot& slot : slots_) {
    if (slot.isBorrowed.exchange(true, std::memory_order_acquire)) continue;
    if (slot.directory.IsAt(directory)) {
      GiveBack(oldest);
      return &slot;
    }
    if (oldest != nullptr && oldest->directory.LastUse() <= slot.directory.LastUse()) {
      GiveBack(&slot);
      continue;
    }
    GiveBack(oldest);
    oldest = &slot;
  }
  if (oldest != nullptr) oldest->directory.MoveTo(directory);
  return oldest;
}

void HeldDirectories::GiveBack(Slot* slot) {
  if (slot != nullptr) slot->isBorrowed.store(false, std::memory_order_release);
}

int HeldDirectories::OpenFile(const char* path, std::size_t nameStart, int flags) {
  Loan loan(*this, path, nameStart);
  const int fd = Open(loan.Descriptor(), loan.Name(), flags);
  if (fd >= 0 || !loan.IsHeld()) return fd;
  switch (errno) {
    case ENOENT:
    case ESTALE:
      return OpenByWholePath(path, flags);
    case EMFILE:
    case ENFILE:
      loan.CloseDirectory();
      return Open(AT_FDCWD, path, flags);
    default:
      return -1;
  }
}

// For a file that is not in its held directory. If its path leads to one, the held directory is no
// longer where its own path leads.
int HeldDirectories::OpenByWholePath(const char* path, int flags) {
  const int fd = Open(AT_FDCWD, path, flags);
  if (fd >= 0) generation_.fetch_add(1);
  return fd;
}

bool HeldDirectories::GetStatus(const char* path, std::size_t nameStart, struct stat* status) {
  const Loan loan(*this, path, nameStart);
  return fstatat(loan.Descriptor(), loan.Name(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

void HeldDirectories::CloseAll() {
  for (Slot& slot : slots_) {
    if (slot.isBorrowed.exchange(true, std::memory_order_acquire)) continue;
    slot.directory.Close();
    GiveBack(&slot);
  }
}

}  // namespace ox::internal
