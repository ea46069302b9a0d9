#include "session/pending_entry.h"

#include <utility>

#include "session/running_cache.h"

namespace ox::internal {

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
  if (value_ != nullptr) cache_->Abandon(std::exchange(value_, nullptr), metadataLength_);
}

}  // namespace ox::internal
