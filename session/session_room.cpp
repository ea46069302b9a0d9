// The bytes on disk, and what has to go for new ones.
#include <algorithm>
#include <chrono>

#include "session/session_core.h"

namespace ox::session {
namespace {

// A writer that stands still for so long has been forgotten or waits for the one that waits here.
constexpr std::chrono::seconds kPatience{30};

}  // namespace

Error SessionCore::Charge(Lock& lock, Staging& staging, std::uint64_t bytes) {
  staging.user = std::this_thread::get_id();
  for (;;) {
    if (Error error = Ready()) return error;
    if (firstWriter_ == nullptr) firstWriter_ = &staging;
    const bool isFirst = firstWriter_ == &staging;
    if (MakeRoom(isFirst ? 0 : bytes)) {
      staging.chargedBytes += bytes;
      state_.bytes += bytes;
      return {};
    }
    if (isFirst || state_.needsRestart) return DeletionFailed();
    if (!WaitForOtherWriters(lock)) {
      return MakeError(ErrorKind::kRefused,
                       "the entries being written at the same time exceed MAX_CACHE_SIZE");
    }
  }
}

bool SessionCore::MakeRoom(std::uint64_t bytes) {
  while (CountedBytes() + bytes > limits_.maxSize) {
    if (state_.entries == 0 || !EvictOne()) return false;
  }
  return true;
}

// The first writer never waits, so unless it is this thread's own, one will end.
bool SessionCore::WaitForOtherWriters(Lock& lock) {
  if (firstWriter_->user == std::this_thread::get_id()) return false;
  const std::uint64_t ended = endedWriters_;
  return writerEnded_.wait_for(lock, kPatience, [&] { return endedWriters_ != ended; });
}

Error SessionCore::DeletionFailed() const {
  Error error = MakeError(ErrorKind::kInputOutput, "cannot delete old entries");
  error.path = limits_.cacheDirectory;
  error.systemError = state_.deletionError;
  return error;
}

std::uint64_t SessionCore::CountedBytes() const {
  return state_.bytes - (firstWriter_ != nullptr ? firstWriter_->chargedBytes : 0);
}

// The manager itself chooses: lowering its limit by one entry makes it evict the one that was used
// longest ago. False when nothing went.
bool SessionCore::EvictOne() {
  const std::uint64_t bytes = state_.bytes;
  const unsigned long oneLess = static_cast<unsigned long>(state_.entries - 1);
  const unsigned long limit = limits_.maxEntries;
  (*manager_)->SetMaxEntries(oneLess);
  (*manager_)->SetMaxEntries(limit);
  if (state_.bytes == bytes) state_.needsRestart = true;
  if (state_.needsRestart) return false;
  ++trimmed_;
  return true;
}

void SessionCore::Discharge(Staging& staging, std::uint64_t bytes) {
  staging.chargedBytes -= bytes;
  state_.bytes -= bytes;
}

// From here on the staging's bytes are an entry's.
void SessionCore::Detach(Staging& staging) {
  staging.chargedBytes = 0;
  writers_.erase(std::remove(writers_.begin(), writers_.end(), &staging), writers_.end());
  if (firstWriter_ == &staging) firstWriter_ = nullptr;
  ++endedWriters_;
  writerEnded_.notify_all();
}

Error SessionCore::Trim(std::uint64_t* deleted) {
  const Lock lock(mutex_);
  const std::uint64_t trimmedBefore = trimmed_;
  Error error = Ready();
  const std::uint64_t maxSize = std::uint64_t{limits_.maxSize} * 9 / 10;
  const std::uint64_t maxEntries = (std::uint64_t{limits_.maxEntries} * 9 + 9) / 10;
  while (!error && state_.entries > 0 &&
         (CountedBytes() > maxSize || state_.entries > maxEntries)) {
    if (!EvictOne()) error = DeletionFailed();
  }
  if (!error) error = Restart();
  if (deleted != nullptr) *deleted = trimmed_ - trimmedBefore;
  return error;
}

}  // namespace ox::session
