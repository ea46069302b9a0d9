// The downloads that are under way, so that several callers of one URL share one download.
#ifndef OX_HTTP_SHARED_DOWNLOADS_H_
#define OX_HTTP_SHARED_DOWNLOADS_H_

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "host/mutex.h"
#include <oxfilecache/error.h>

namespace ox::internal::http {

// How a download ended, for those who waited for it.
struct DownloadEnd {
  enum class Kind {
    kStored,   // the answer is in the cache
    kNotUsed,  // the answer was for its caller alone
    kFailed,   // the server gave none; `error` says why
    kGivenUp,  // for a reason of the caller: another one has to try
  } kind = Kind::kGivenUp;
  Error error;
  // When the server's answer arrived; the oldest time where no server was asked.
  std::chrono::steady_clock::time_point answered;
};

class SharedDownloads {
 public:
  struct Download {
    const std::thread::id leader = std::this_thread::get_id();
    bool isDone = false;
    DownloadEnd end;
  };

  // The download of that URL that is under way. Where there is none, a new one begins and
  // `isLeader` is true: the caller does the download and must call End.
  std::shared_ptr<Download> Join(const std::string& url, bool* isLeader);
  void End(const std::string& url, Download& download, DownloadEnd end);
  // From now on nobody joins the present download of that URL; callers that wait for it try again.
  void Invalidate(const std::string& url);
  // Waits for the end of the download. False when the time was over before.
  bool WaitFor(Download& download, std::chrono::milliseconds time, DownloadEnd* end);

 private:
  Mutex mutex_;
  Condition ended_;
  std::map<std::string, std::shared_ptr<Download>> downloads_ OX_GUARDED_BY(mutex_);
};

}  // namespace ox::internal::http

#endif
