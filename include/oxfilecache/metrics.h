// The statistics of sessions as text for a monitoring system, in the form of OpenMetrics 1.0.
//
//   ox::session::MetricsText({{"pages", session->Limits(), session->Statistics()}}) + "# EOF\n"
//
// gives, among others:
//
//   # TYPE oxfilecache_evictions counter
//   # HELP oxfilecache_evictions Entries that the cache deleted by itself
//   oxfilecache_evictions_total{cache="pages",reason="room"} 12
#ifndef OXFILECACHE_METRICS_H_
#define OXFILECACHE_METRICS_H_

#include <string>
#include <vector>

#include <oxfilecache/session.h>

namespace ox::session {

// What MetricsText tells of one cache. A plain value.
struct NamedStatistics {
  std::string cache;   // the label of that name, in UTF-8; tells the caches of a program apart
  CacheLimits limits;  // as CacheSession::Limits gives them
  SessionStatistics statistics;  // as CacheSession::Statistics gives them
};

// All metrics of all caches, without the line "# EOF" that ends an exposition: a program may have
// metrics of its own. The counts start with the session, as the form allows. Empty when memory ran
// out.
std::string MetricsText(const std::vector<NamedStatistics>& caches);

}  // namespace ox::session

#endif
