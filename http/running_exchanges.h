// The URLs that servers are being asked for. An answer that was asked for before a change of its
// URL is not stored after the change.
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
  // Stands for one request that is under way, as long as this object lives.
  class Mark {
   public:
    Mark(RunningExchanges& running, const std::string& url);
    ~Mark();
    Mark(const Mark&) = delete;
    Mark& operator=(const Mark&) = delete;

    // True when Invalidate was called for the URL since this object was made.
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
