// The limits of a cache that is in use, and changing them.
#include <utility>

#include "session/configuration_file.h"
#include "session/eviction_news.h"

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;

namespace {

Error Change(SessionState& state, const CacheLimits& limits) OX_REQUIRES(state.mutex) {
  if (Error error = internal::CheckLimits(limits)) return error;
  if (limits.cacheDirectory != state.cacheDirectory) {
    return MakeError(ErrorKind::kInvalidArgument,
                     "the cache directory cannot be changed while the cache is in use");
  }
  if (Error error = state.cache.EnsureCurrent()) return error;
  const std::string& directory = state.options.directory;
  CacheLimits written = limits;
  if (written.cacheDirectory == directory) written.cacheDirectory.clear();
  const std::string temporary = internal::StagedConfigurationName(state.ids.Next());
  // All that takes memory comes first: the module and the session must have the same limits.
  CacheLimits next = limits;
  internal::ConfigurationSnapshot configuration;
  internal::ConfigurationSnapshot::Write(directory, next, &configuration);
  Error error = internal::ReplaceConfigurationFile(directory, temporary, written);
  if (error) return error;
  std::swap(state.limits, next);
  state.cache.UseConfiguration(std::move(configuration));
  return state.cache.Restart();
}

}  // namespace

CacheLimits CacheSession::Limits() const {
  if (!state_->directoryLock->IsHeld()) return {};
  const MutexLock lock(state_->mutex);
  return state_->limits;
}

Error CacheSession::SetLimits(const CacheLimits& limits) {
  return internal::Perform(*state_, [&]() -> Error {
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    CacheLimits whole = limits;
    internal::FillIn(&whole);
    if (whole.cacheDirectory.empty()) whole.cacheDirectory = state_->cacheDirectory;
    return Change(*state_, whole);
  });
}

}  // namespace ox::session
