// "fetch": URLs through the cache.
#ifndef OX_TOOLS_OXCACHE_FETCH_H_
#define OX_TOOLS_OXCACHE_FETCH_H_

#include <string>
#include <vector>

#include "tools/oxcache/context.h"

namespace ox::tools {

struct FetchOptions {
  std::vector<std::string> urls;
  std::string output;  // empty: standard output for one URL, nothing for several
  unsigned jobs = 4;
  bool quiet = false;
};

ExitStatus Fetch(Context& context, const FetchOptions& options);

}  // namespace ox::tools

#endif
