// How old a stored answer is, how long it is fresh, and whether it may be served.
#ifndef OX_HTTP_FRESHNESS_H_
#define OX_HTTP_FRESHNESS_H_

#include <cstdint>
#include <optional>

#include "http/cache_control.h"
#include "http/stored_answer.h"

namespace ox::internal::http {

// All times are in seconds.
struct Freshness {
  std::int64_t age = 0;
  std::int64_t lifetime = 0;
  // Age is unreadable, or it was stored later than now or long before its Date, since the device's
  // clock was wrong then or is wrong now.
  bool isAgeUnknown = false;
};

// Nothing when it cannot be known.
std::optional<std::int64_t> AgeOf(const StoredAnswer& answer, std::int64_t now);

Freshness FreshnessOf(const StoredAnswer& answer, std::int64_t now, bool heuristic);

// What may be done with a stored answer, apart from Vary.
struct Reuse {
  bool isFresh = false;  // to be served without asking
  // Stale, and to be served without asking: max-stale of the request.
  bool isStaleAccepted = false;
  bool whileRevalidating = false;  // stale-while-revalidate
  bool onError = false;            // stale-if-error
  // Nothing forbids to serve it stale when there is no other way.
  bool mayBeStale = false;
};

Reuse JudgeReuse(const StoredAnswer& answer, const CacheControl& request, std::int64_t now,
                 bool heuristic);

// Whether an answer of that status may be stored without a word about its lifetime.
bool IsHeuristicallyCacheable(int status);

}  // namespace ox::internal::http

#endif
