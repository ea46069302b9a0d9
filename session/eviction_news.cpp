#include "session/eviction_news.h"

#include <vector>

namespace ox::internal {
namespace {

std::vector<session::Eviction> TakeNews(SessionState& state) {
  const MutexLock lock(state.mutex);
  return state.cache.Evictions().TakeNews();
}

}  // namespace

void TellEvictions(SessionState& state) {
  for (const session::Eviction& eviction : TakeNews(state))
    state.options.onEviction(eviction);
}

}  // namespace ox::internal
