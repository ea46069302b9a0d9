// "fetch": URLs through the cache.
#ifndef OX_TOOLS_OXCACHE_FETCH_H_
#define OX_TOOLS_OXCACHE_FETCH_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/oxcache/context.h"

namespace ox::tools {

struct FetchOptions {
  std::vector<std::string> urls;
  std::string output;  // empty: standard output for one URL, nothing for several
  unsigned jobs = 4;
  bool quiet = false;
  std::vector<std::string> headers;  // "Name: value"
  std::string caFile;
  std::string certificateFile;  // with its key
  std::string keyFile;          // empty: in certificateFile
  std::string proxy;
  double seconds = 0;  // for each URL; 0: no limit
  double connectSeconds = 30;
  unsigned slowSeconds = 60;  // a server that sends less than slowBytes a second is given up
  std::uint32_t slowBytes = 16;
  bool offline = false;
  bool refresh = false;
  bool staleIfError = false;
};

ExitStatus Fetch(Context& context, const FetchOptions& options, bool json);

}  // namespace ox::tools

#endif
