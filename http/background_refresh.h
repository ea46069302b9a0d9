// The thread that refreshes what was served stale.
#ifndef OX_HTTP_BACKGROUND_REFRESH_H_
#define OX_HTTP_BACKGROUND_REFRESH_H_

#include <atomic>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "host/mutex.h"
#include "http/url.h"
#include <oxfilecache/http.h>

namespace ox::internal::http {

// Threads: any.
class BackgroundRefresh {
 public:
  // Called on the thread. The options' onProgress cancels it when this object is destroyed.
  using Refresh = std::function<void(const Url&, const ox::http::RequestOptions&)>;

  explicit BackgroundRefresh(Refresh refresh);
  ~BackgroundRefresh();
  BackgroundRefresh(const BackgroundRefresh&) = delete;
  BackgroundRefresh& operator=(const BackgroundRefresh&) = delete;

  // Does nothing when the URL is waiting or being refreshed already, when the queue is full, or
  // when the system gives no thread: the next request for the URL tries again.
  void Add(const Url& url, const ox::http::RequestOptions& options);

 private:
  struct Job {
    Url url;
    ox::http::RequestOptions options;
  };

  bool EnsureThread() OX_REQUIRES(mutex_);
  void Run();

  const Refresh refresh_;
  std::atomic<bool> isEnding_{false};
  Mutex mutex_;
  Condition changed_;
  std::deque<Job> jobs_ OX_GUARDED_BY(mutex_);
  const std::string* running_ OX_GUARDED_BY(mutex_) = nullptr;  // the URL that is being refreshed
  std::thread thread_ OX_GUARDED_BY(mutex_);
};

}  // namespace ox::internal::http

#endif
