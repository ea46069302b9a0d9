// Which URLs servers are being asked for, so that no answer from before a change is stored after
// it.
#ifndef OX_HTTP_RUNNING_EXCHANGES_H_
#define OX_HTTP_RUNNING_EXCHANGES_H_

#include <atomic>
#include <map>
#include <string>

#include "host/mutex.h"

namespace ox::internal::http {

// Threads: any.
class RunningExchanges {
 public:
  // One that is under way, while this object is there.
  class Mark {
   public:
    Mark(RunningExchanges& running, const std::string& url);
    ~Mark();
    Mark(const Mark&) = delete;
    Mark& operator=(const Mark&) = delete;

    // Whether the URL was invalidated since.
    bool IsOutdated() const { return isOutdated_; }

   private:
    friend class RunningExchanges;
    RunningExchanges& running_;
    std::atomic<bool> isOutdated_{false};
    std::multimap<std::string, Mark*>::iterator place_;
  };

  void Invalidate(const std::string& url);

 private:
  Mutex mutex_;
  std::multimap<std::string, Mark*> marks_ OX_GUARDED_BY(mutex_);
};

}  // namespace ox::internal::http

#endif
