#include "http/running_exchanges.h"

namespace ox::internal::http {

RunningExchanges::Mark::Mark(RunningExchanges& running, const std::string& url)
    : running_(running) {
  const MutexLock lock(running_.mutex_);
  place_ = running_.marks_.emplace(url, this);
}

RunningExchanges::Mark::~Mark() {
  const MutexLock lock(running_.mutex_);
  running_.marks_.erase(place_);
}

void RunningExchanges::Invalidate(const std::string& url) {
  const MutexLock lock(mutex_);
  const auto [first, last] = marks_.equal_range(url);
  for (auto place = first; place != last; ++place)
    place->second->isOutdated_ = true;
}

}  // namespace ox::internal::http
