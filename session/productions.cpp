#include "session/productions.h"

#include <utility>

namespace ox::internal {

bool Productions::Begin(const std::string& url, Error* error) {
  MutexLock lock(mutex_);
  const auto self = std::this_thread::get_id();
  const auto found = running_.find(url);
  if (found == running_.end()) {
    auto production = std::make_shared<Production>();
    production->producer = self;
    running_.emplace(url, std::move(production));
    return true;
  }
  const std::shared_ptr<const Production> production = found->second;
  if (WouldWaitForItself(*production)) {
    *error = MakeError(ErrorKind::kInvalidArgument,
                       "the producer of this URL waits for the same URL itself");
    return false;
  }
  waiting_[self] = production;
  finished_.Wait(lock, [&] { return production->isOver; });
  waiting_.erase(self);
  *error = production->error;
  return false;
}

// Each thread waits for at most one production, so there is one chain to follow.
bool Productions::WouldWaitForItself(const Production& production) const {
  const Production* next = &production;
  for (;;) {
    if (next->producer == std::this_thread::get_id()) return true;
    const auto found = waiting_.find(next->producer);
    if (found == waiting_.end()) return false;
    next = found->second.get();
  }
}

void Productions::Finish(const std::string& url, Error error) {
  const MutexLock lock(mutex_);
  const auto found = running_.find(url);
  found->second->isOver = true;
  found->second->error = std::move(error);
  running_.erase(found);
  finished_.NotifyAll();
}

}  // namespace ox::internal
