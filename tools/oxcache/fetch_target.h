// Which URL goes to which file.
#ifndef OX_TOOLS_OXCACHE_FETCH_TARGET_H_
#define OX_TOOLS_OXCACHE_FETCH_TARGET_H_

#include <string>
#include <vector>

#include "tools/oxcache/fetch.h"

namespace ox::tools {

struct FetchTarget {
  std::string url;
  std::string output;  // "-": standard output; empty: the cache only
};

// With `json`, standard output is for the report.
std::vector<FetchTarget> TargetsOf(const FetchOptions& options, bool json);

}  // namespace ox::tools

#endif
