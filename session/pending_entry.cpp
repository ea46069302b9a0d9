#include "session/pending_entry.h"

#include <utility>

#include "session/running_cache.h"

namespace ox::internal {

PendingEntry::PendingEntry(PendingEntry&& other) noexcept
    : cache_(other.cache_),
      value_(std::exchange(other.value_, nullptr)),
      metaDataLength_(other.metaDataLength_) {}

PendingEntry& PendingEntry::operator=(PendingEntry&& other) noexcept {
  if (this == &other) return *this;
  Abandon();
  cache_ = other.cache_;
  value_ = std::exchange(other.value_, nullptr);
  metaDataLength_ = other.metaDataLength_;
  return *this;
}

bool PendingEntry::Commit() {
  if (!cache_->CommitPending(value_)) return false;
  value_ = nullptr;
  return true;
}

void PendingEntry::LeaveToRestart() {
  cache_->Account().MarkStale();
  value_ = nullptr;
}

void PendingEntry::Abandon() {
  if (value_ != nullptr) cache_->Abandon(std::exchange(value_, nullptr), metaDataLength_);
}

}  // namespace ox::internal
