// Cache-Control, of requests and of answers.
#ifndef OX_HTTP_CACHE_CONTROL_H_
#define OX_HTTP_CACHE_CONTROL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "http/header_list.h"

namespace ox::internal::http {

// Directives that a private cache needs. Times are in seconds.
struct CacheControl {
  bool noStore = false;
  bool noCache = false;                  // without names of headers
  std::vector<std::string> unkeptNames;  // of no-cache="...": headers that may not be kept
  bool isPublic = false;
  bool isPrivate = false;
  bool mustRevalidate = false;
  bool mustUnderstand = false;
  bool onlyIfCached = false;
  bool hasSharedMaxAge = false;
  // 0 when it cannot be read, or stands there twice with different values.
  std::optional<std::int64_t> maxAge;
  std::optional<std::int64_t> minFresh;
  std::optional<std::int64_t> maxStale;  // without a value: the largest
  std::optional<std::int64_t> staleWhileRevalidate;
  std::optional<std::int64_t> staleIfError;
};

CacheControl ParseCacheControl(const HeaderList& headers);

}  // namespace ox::internal::http

#endif
