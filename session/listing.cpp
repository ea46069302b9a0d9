// Looking at the entries of a session without using them.
#include "session/durable_io.h"
#include "session/entry_listing.h"
#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include <oxfilecache/format.h>

namespace ox::session {

using internal::MutexLock;

std::vector<ListedEntry> CacheSession::List(Error* error) {
  std::vector<ListedEntry> list;
  *error = internal::Perform(*state_, [&]() -> Error {
    const std::string& directory = state_->cacheDirectory;
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    if (Error failed = state_->cache.EnsureCurrent()) return failed;
    internal::Survey survey;
    if (Error failed = internal::SurveyDirectory(directory, &survey)) return failed;
    std::vector<ListedEntry> found;
    found.reserve(survey.entries.size());
    for (const internal::SurveyedEntry& entry : survey.entries)
      found.push_back(internal::ToListed(directory, entry));
    list = std::move(found);
    return {};
  });
  return list;
}

// The manager cannot be asked: finding an entry makes it the one used last.
bool CacheSession::Contains(const std::string& url, Error* error) {
  *error = internal::Perform(*state_, [&]() -> Error {
    if (Error invalid = internal::CheckUrl(url)) return invalid;
    const std::string path = state_->cacheDirectory + "/" + internal::ContentName(url);
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    if (Error failed = state_->cache.EnsureCurrent()) return failed;
    const bool isThere = internal::FileSize(path) > 0 &&
                         internal::FileSize(path + format::kMetadataSuffix) > 0 &&
                         !internal::IsOfOtherUrl(path, url);
    return isThere ? Error{} : internal::NoEntry();
  });
  const bool isThere = !*error;
  if (error->kind == ErrorKind::kNotFound) *error = {};
  return isThere;
}

}  // namespace ox::session
