// A line on the terminal that shows how far the downloads are.
#ifndef OX_TOOLS_OXCACHE_FETCH_PROGRESS_H_
#define OX_TOOLS_OXCACHE_FETCH_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "host/mutex.h"

namespace ox::tools {

// Threads: every operation from any thread.
class FetchProgress {
 public:
  FetchProgress(std::size_t files, bool isShown);
  ~FetchProgress();
  FetchProgress(const FetchProgress&) = delete;
  FetchProgress& operator=(const FetchProgress&) = delete;

  // Bytes of one file; `total` is 0 while unknown.
  void Update(std::size_t file, std::uint64_t received, std::uint64_t total);
  // With the bytes that it had in the end.
  void Finish(std::size_t file, std::uint64_t bytes);
  // Removes the line and calls `write`, which prints something. The next update draws it again.
  template <typename Write>
  void Interrupt(Write write) {
    const internal::MutexLock lock(mutex_);
    Erase();
    write();
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct File {
    std::uint64_t received = 0;
    std::uint64_t total = 0;
    bool isFinished = false;
  };

  void Erase() OX_REQUIRES(mutex_);
  void Draw() OX_REQUIRES(mutex_);
  std::string Line() const OX_REQUIRES(mutex_);

  const bool isShown_;
  const Clock::time_point start_ = Clock::now();
  internal::Mutex mutex_;
  std::vector<File> files_ OX_GUARDED_BY(mutex_);
  Clock::time_point drawn_ OX_GUARDED_BY(mutex_);
  bool isOnScreen_ OX_GUARDED_BY(mutex_) = false;
};

}  // namespace ox::tools

#endif
