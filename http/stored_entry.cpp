#include "http/stored_entry.h"

#include <utility>

namespace ox::internal::http {

std::optional<StoredEntry> FindStored(session::CacheSession& session, const std::string& url,
                                      bool* isThere) {
  Error error;
  std::optional<session::FetchedEntry> entry = session.Fetch(url, &error);
  *isThere = entry.has_value();
  if (!entry) return std::nullopt;
  std::optional<StoredAnswer> answer = FromMetadata(entry->metadata, url);
  if (!answer) return std::nullopt;
  const std::uint64_t bytes = answer->bodyBytes > 0 ? answer->bodyBytes : sizeof kNoBody - 1;
  if (entry->size != bytes) return std::nullopt;
  return StoredEntry{std::move(*entry), std::move(*answer)};
}

std::string PartUrl(const std::string& url) {
  return url + "#part";
}

}  // namespace ox::internal::http
