// A session's life, removing one entry, and what the session has counted.
#include <cerrno>

#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include "session/module_text.h"
#include "session/open_session.h"
#include "session/without_exceptions.h"

namespace ox::session {

using internal::MutexLock;

CacheSession::CacheSession() = default;
CacheSession::~CacheSession() {
  // In a forked child the manager is the parent's: its locks may be held by threads that are not
  // there, and it would delete files. So it is never destroyed.
  if (state_ != nullptr && !state_->directoryLock->IsHeld()) {
    state_->itself = state_;
  }
}

std::unique_ptr<CacheSession> CacheSession::Open(const SessionOptions& options, Error* error) {
  std::unique_ptr<CacheSession> opened;
  *error = internal::WithoutExceptions([&] {
    std::unique_ptr<CacheSession> session(new CacheSession);
    Error result = internal::OpenSessionState(options, &session->state_);
    if (result) return result;
    const internal::EvictionNews news(*session->state_);
    opened = std::move(session);
    return result;
  });
  return opened;
}

Error CacheSession::Remove(const std::string& url) {
  return internal::Perform(*state_, [&]() -> Error {
    if (Error error = internal::CheckUrl(url)) return error;
    const OxString text = internal::ToOxString(url);
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    internal::RunningCache& cache = state_->cache;
    if (Error error = cache.EnsureCurrent()) return error;
    if (Error error = cache.GiveUpCommitsOf(text)) return error;
    core::cache::CacheValue* value = cache.Find(text);
    if (value == nullptr) return internal::NoEntry();
    const std::string path = internal::ContentPath(*value);
    if (internal::IsOfOtherUrl(path, url)) return internal::NoEntry();
    cache.Remove(value);
    const bool isGone = !cache.Account().IsStale() || cache.Account().DeletionError() == ENOENT;
    if (!isGone) return cache.DeletionFailed("cannot delete", path);
    ++state_->counts.removed;
    return {};
  });
}

SessionStatistics CacheSession::Statistics() const {
  if (!state_->directoryLock->IsHeld()) return {};
  const internal::SessionCounts& counts = state_->counts;
  SessionStatistics statistics;
  statistics.hits = counts.hits;
  statistics.misses = counts.misses;
  statistics.stores = counts.stores;
  statistics.renewals = counts.renewals;
  statistics.removed = counts.removed;
  const MutexLock lock(state_->mutex);
  internal::RunningCache& cache = state_->cache;
  statistics.entries = cache.Account().Entries();
  statistics.bytes = cache.Account().Bytes();
  statistics.restarts = cache.Restarts();
  statistics.leftovers = cache.Leftovers();
  const internal::EvictionLog& evictions = cache.Evictions();
  statistics.trimmed = evictions.Trimmed();
  for (std::size_t reason = 0; reason < kEvictionReasons; ++reason)
    statistics.evictions[reason] = evictions.Count(static_cast<EvictionReason>(reason));
  statistics.damaged = evictions.Count(EvictionReason::kDamaged);
  return statistics;
}

}  // namespace ox::session
