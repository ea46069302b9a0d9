#include "session/writer_list.h"

#include <algorithm>

namespace ox::internal {
namespace {

// A writer that stands still for so long is abandoned, or deadlocked with the one that waits.
constexpr std::chrono::seconds kPatience{30};

}  // namespace

void WriterList::Add(WriterShare& share) {
  shares_.push_back(&share);
}

void WriterList::Remove(WriterShare& share) {
  shares_.erase(std::remove(shares_.begin(), shares_.end(), &share), shares_.end());
  if (first_ == &share) first_ = nullptr;
  ++ended_;
  writerEnded_.NotifyAll();
}

bool WriterList::Contains(const std::string& id) const {
  return std::any_of(shares_.begin(), shares_.end(),
                     [&](const WriterShare* share) { return share->id == id; });
}

bool WriterList::HaveKept() const {
  return std::any_of(shares_.begin(), shares_.end(),
                     [](const WriterShare* share) { return !share->keptPath.empty(); });
}

std::uint64_t WriterList::GrantedBytes() const {
  std::uint64_t bytes = 0;
  for (const WriterShare* share : shares_)
    bytes += share->bytes;
  return bytes;
}

bool WriterList::ClaimFirst(const WriterShare& share) {
  if (first_ == nullptr) first_ = &share;
  return first_ == &share;
}

bool WriterList::WaitForEnd(MutexLock& lock) {
  if (first_->user == std::this_thread::get_id()) return false;
  const std::uint64_t ended = ended_;
  return writerEnded_.WaitFor(lock, kPatience, [&] { return ended_ != ended; });
}

}  // namespace ox::internal
