// Tells the session's user what was evicted during a call, at its end and without the mutex.
#ifndef OX_SESSION_EVICTION_NEWS_H_
#define OX_SESSION_EVICTION_NEWS_H_

#include "session/session_state.h"

namespace ox::internal {

void TellEvictions(SessionState& state);

// The first thing in every call that may evict, so that it ends after the call's locks.
class EvictionNews {
 public:
  explicit EvictionNews(SessionState& state) : state_(state) {}
  ~EvictionNews() {
    // Not in a forked child: the thread that holds the mutex may not exist there.
    if (state_.hasEvictionNews && state_.directoryLock->IsHeld()) TellEvictions(state_);
  }
  EvictionNews(const EvictionNews&) = delete;
  EvictionNews& operator=(const EvictionNews&) = delete;

 private:
  SessionState& state_;
};

}  // namespace ox::internal

#endif
