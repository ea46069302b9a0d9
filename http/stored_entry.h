// An answer as it is found in the cache.
#ifndef OX_HTTP_STORED_ENTRY_H_
#define OX_HTTP_STORED_ENTRY_H_

#include <optional>
#include <string>

#include "http/stored_answer.h"
#include <oxfilecache/session.h>

namespace ox::internal::http {

struct StoredEntry {
  session::FetchedEntry entry;
  StoredAnswer answer;

  bool IsPart() const { return answer.wholeBytes > 0; }
};

// Empty when there is no entry, or it is not an answer. `isThere`: whether there is an entry of any
// kind.
std::optional<StoredEntry> FindStored(session::CacheSession& session, const std::string& url,
                                      bool* isThere);

// The part of a body that broke off is the entry of a URL that nobody requests, since a fragment is
// cut off: nobody takes it for the whole.
std::string PartUrl(const std::string& url);

// What to write as the content of an entry without a body: the cache does not keep empty ones.
inline constexpr char kNoBody[] = "\n";

}  // namespace ox::internal::http

#endif
