// A session's life, and what it does to the cache as a whole.
#include <cerrno>

#include "session/entry_seal.h"
#include "session/module_text.h"
#include "session/open_session.h"
#include "session/without_exceptions.h"
#include <oxfilecache/format.h>

namespace ox::internal {

bool IsOfOtherUrl(const std::string& contentPath, const std::string& url) {
  const auto seal = ReadSeal(contentPath + format::kMetadataSuffix);
  return seal && !seal->IsOf(url);
}

}  // namespace ox::internal

namespace ox::session {

using internal::MutexLock;

CacheSession::CacheSession() = default;
CacheSession::~CacheSession() {
  // In a forked child the manager is the parent's: its locks may be held by threads that are not
  // there, and it would delete files.
  if (state_ != nullptr && !state_->directoryLock->IsHeld()) static_cast<void>(state_.release());
}

std::unique_ptr<CacheSession> CacheSession::Open(const SessionOptions& options, Error* error) {
  std::unique_ptr<CacheSession> opened;
  *error = internal::WithoutExceptions([&] {
    std::unique_ptr<CacheSession> session(new CacheSession);
    Error result = internal::OpenSessionState(options, &session->state_);
    if (!result) opened = std::move(session);
    return result;
  });
  return opened;
}

Error CacheSession::Remove(const std::string& url) {
  return internal::WithoutExceptions([&]() -> Error {
    if (Error error = internal::CheckUrl(url)) return error;
    const OxString text = internal::ToOxString(url);
    const MutexLock lock(state_->mutex);
    internal::RunningCache& cache = state_->cache;
    if (Error error = cache.EnsureCurrent()) return error;
    core::cache::CacheValue* value = cache.Find(text);
    if (value == nullptr) return internal::NoEntry();
    const std::string path = internal::ContentPath(*value);
    if (internal::IsOfOtherUrl(path, url)) return internal::NoEntry();
    cache.Remove(value);
    const bool isGone = !cache.Account().IsStale() || cache.Account().DeletionError() == ENOENT;
    return isGone ? Error{} : cache.DeletionFailed("cannot delete", path);
  });
}

Error CacheSession::Trim(std::uint64_t* deleted) {
  return internal::WithoutExceptions([&] {
    const MutexLock lock(state_->mutex);
    internal::RunningCache& cache = state_->cache;
    const std::uint64_t before = cache.Trimmed();
    Error error = cache.EnsureCurrent();
    if (!error) error = state_->room.MakeReserve();
    if (!error) error = cache.Restart();
    if (deleted != nullptr) *deleted = cache.Trimmed() - before;
    return error;
  });
}

SessionStatistics CacheSession::Statistics() const {
  const MutexLock lock(state_->mutex);
  internal::RunningCache& cache = state_->cache;
  return {cache.Account().Entries(), cache.Account().Bytes(), cache.Restarts(),
          cache.Trimmed(),           cache.Leftovers(),       state_->damaged};
}

}  // namespace ox::session
