#include "session/session_core.h"
#include <oxfilecache/session.h>

namespace ox::session {

CacheSession::CacheSession(std::unique_ptr<SessionCore> core) : core_(std::move(core)) {}

CacheSession::~CacheSession() = default;

std::unique_ptr<CacheSession> CacheSession::Open(const SessionOptions& options, Error* error) {
  std::unique_ptr<CacheSession> session;
  *error = WithoutExceptions([&] {
    Error result;
    auto core = SessionCore::Open(options, &result);
    if (core != nullptr) session.reset(new CacheSession(std::move(core)));
    return result;
  });
  return session;
}

std::unique_ptr<StoreWriter> CacheSession::Store(const std::string& url, Error* error) {
  std::unique_ptr<StoreWriter> writer;
  *error = WithoutExceptions([&] {
    Error result;
    writer = core_->Store(url, &result);
    return result;
  });
  return writer;
}

std::optional<FetchedEntry> CacheSession::Fetch(const std::string& url, Error* error) {
  std::optional<FetchedEntry> entry;
  *error = WithoutExceptions([&] {
    Error result;
    entry = core_->Fetch(url, &result);
    return result;
  });
  return entry;
}

Error CacheSession::Remove(const std::string& url) {
  return WithoutExceptions([&] { return core_->Remove(url); });
}

Error CacheSession::Trim(std::uint64_t* deleted) {
  return WithoutExceptions([&] { return core_->Trim(deleted); });
}

const CacheLimits& CacheSession::Limits() const {
  return core_->Limits();
}

SessionStatistics CacheSession::Statistics() const {
  return core_->Statistics();
}

}  // namespace ox::session
