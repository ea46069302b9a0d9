// One URL through the cache, to a file.
#ifndef OX_TOOLS_OXCACHE_FETCH_JOB_H_
#define OX_TOOLS_OXCACHE_FETCH_JOB_H_

#include <cstdint>
#include <string>

#include "tools/oxcache/fetch_target.h"
#include <oxfilecache/http.h>

namespace ox::tools {

struct FetchResult {
  // "HIT", "MISS", "REVALIDATED", "REPLACED", "STALE", "UNCACHED" or "FAILED"
  const char* outcome = "FAILED";
  int status = 0;  // of HTTP; 0 when the server did not answer
  std::uint64_t bytes = 0;
  // Why it failed, is stale or is not in the cache, or why its lifetime was not renewed.
  Error reason;
  // Nothing was delivered or kept.
  bool isFailure = false;
};

FetchResult FetchOne(http::Client& client, const FetchTarget& target,
                     const http::RequestOptions& options);

}  // namespace ox::tools

#endif
