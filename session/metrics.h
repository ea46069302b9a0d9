// The part of the metrics that needs no session.
#ifndef OX_SESSION_METRICS_H_
#define OX_SESSION_METRICS_H_

#include <string>

#include <oxfilecache/metrics.h>

namespace ox::internal {

// The gauges alone: entries, bytes and limits, without the counters of a session. Throws
// std::bad_alloc.
std::string GaugesText(const std::vector<session::NamedStatistics>& caches);

}  // namespace ox::internal

#endif
