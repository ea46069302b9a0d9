#include "http/freshness.h"

#include <algorithm>
#include <array>
#include <limits>

#include "http/http_date.h"

namespace ox::internal::http {
namespace {

constexpr std::int64_t kMaxHeuristicLifetime = 86400;
// A hundred years, so that sums fit their type.
constexpr std::int64_t kMaxSeconds = 100LL * 365 * 86400;
constexpr std::int64_t kMaxClockError = 86400;

std::optional<std::int64_t> DateOf(const StoredAnswer& answer, std::string_view name) {
  const auto value = Single(answer.headers, name);
  return value ? ParseHttpDate(*value, answer.responseTime) : std::nullopt;
}

std::int64_t HeuristicLifetime(const StoredAnswer& answer, bool isPublic, std::int64_t date) {
  const auto modified = DateOf(answer, "Last-Modified");
  if (!modified || (!isPublic && !IsHeuristicallyCacheable(answer.status))) return 0;
  return std::clamp<std::int64_t>((date - *modified) / 10, 0, kMaxHeuristicLifetime);
}

std::int64_t LifetimeOf(const StoredAnswer& answer, const CacheControl& control, bool heuristic) {
  if (control.maxAge) return *control.maxAge;
  const std::int64_t date = DateOf(answer, "Date").value_or(answer.responseTime);
  if (Find(answer.headers, "Expires") != nullptr) {
    const auto expires = DateOf(answer, "Expires");
    return expires ? std::max<std::int64_t>(*expires - date, 0) : 0;
  }
  return heuristic ? HeuristicLifetime(answer, control.isPublic, date) : 0;
}

Freshness FreshnessWith(const StoredAnswer& answer, const CacheControl& control, std::int64_t now,
                        bool heuristic) {
  Freshness freshness;
  freshness.lifetime = std::min(LifetimeOf(answer, control, heuristic), kMaxSeconds);
  const std::optional<std::int64_t> age = AgeOf(answer, now);
  freshness.isAgeUnknown = !age;
  freshness.age = age.value_or(0);
  return freshness;
}

}  // namespace

std::optional<std::int64_t> AgeOf(const StoredAnswer& answer, std::int64_t now) {
  const bool hasAge = Find(answer.headers, "Age") != nullptr;
  const auto age = ParseSeconds(Single(answer.headers, "Age").value_or(""));
  if ((hasAge && !age) || answer.responseTime > now) return std::nullopt;
  const std::int64_t date = DateOf(answer, "Date").value_or(answer.responseTime);
  // The clock stood wrong then. Where each boot sets it back, it would seem just stored at each.
  if (date - answer.responseTime > kMaxClockError) return std::nullopt;
  const std::int64_t apparentAge = std::max<std::int64_t>(0, answer.responseTime - date);
  const std::int64_t delay = std::max<std::int64_t>(0, answer.responseTime - answer.requestTime);
  const std::int64_t initialAge =
      std::max(apparentAge, std::min(age.value_or(0), kMaxSeconds) + delay);
  return initialAge + now - answer.responseTime;
}

bool IsHeuristicallyCacheable(int status) {
  constexpr std::array<int, 12> kStatuses = {200, 203, 204, 206, 300, 301,
                                             308, 404, 405, 410, 414, 501};
  return std::find(kStatuses.begin(), kStatuses.end(), status) != kStatuses.end();
}

Freshness FreshnessOf(const StoredAnswer& answer, std::int64_t now, bool heuristic) {
  return FreshnessWith(answer, ParseCacheControl(answer.headers), now, heuristic);
}

Reuse JudgeReuse(const StoredAnswer& answer, const CacheControl& request, std::int64_t now,
                 bool heuristic) {
  const CacheControl control = ParseCacheControl(answer.headers);
  const Freshness freshness = FreshnessWith(answer, control, now, heuristic);
  const std::int64_t left = freshness.lifetime - freshness.age;
  Reuse reuse;
  reuse.mayBeStale = !control.noCache && !control.mustRevalidate;
  if (control.noCache || freshness.isAgeUnknown) return reuse;
  const auto isWithin = [left](std::optional<std::int64_t> limit) {
    return limit && -left <= *limit;
  };
  reuse.onError = reuse.mayBeStale && isWithin(control.staleIfError);
  const bool isTooOld = request.maxAge && freshness.age > *request.maxAge;
  if (request.noCache || isTooOld || (request.minFresh && left < *request.minFresh)) return reuse;
  reuse.isFresh = left > 0;
  reuse.isStaleAccepted = !reuse.isFresh && reuse.mayBeStale && isWithin(request.maxStale);
  reuse.whileRevalidating = reuse.mayBeStale && isWithin(control.staleWhileRevalidate);
  return reuse;
}

}  // namespace ox::internal::http
