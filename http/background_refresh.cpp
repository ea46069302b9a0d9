#include "http/background_refresh.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

namespace ox::internal::http {
namespace {

constexpr std::size_t kMaxJobs = 64;
constexpr std::chrono::hours kForEver{24};

}  // namespace

BackgroundRefresh::BackgroundRefresh(Refresh refresh) : refresh_(std::move(refresh)) {}

BackgroundRefresh::~BackgroundRefresh() {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    isEnding_ = true;
    thread.swap(thread_);
    changed_.NotifyAll();
  }
  if (thread.joinable()) thread.join();
}

void BackgroundRefresh::Add(const Url& url, const ox::http::RequestOptions& options) {
  const MutexLock lock(mutex_);
  const bool isWaiting = std::any_of(jobs_.begin(), jobs_.end(),
                                     [&url](const Job& job) { return job.url.text == url.text; });
  if (isWaiting || jobs_.size() >= kMaxJobs || !EnsureThread()) return;
  Job job{url, options};
  job.options.refresh = true;
  job.options.receiver = nullptr;
  job.options.onProgress = [this](const ox::http::Progress&) { return !isEnding_; };
  jobs_.push_back(std::move(job));
  changed_.NotifyAll();
}

bool BackgroundRefresh::EnsureThread() {
  if (thread_.joinable()) return true;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

void BackgroundRefresh::Run() {
  for (;;) {
    Job job;
    {
      MutexLock lock(mutex_);
      const auto hasWork = [this]() OX_REQUIRES(mutex_) { return isEnding_ || !jobs_.empty(); };
      while (!changed_.WaitFor(lock, kForEver, hasWork)) {
      }
      if (isEnding_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    try {
      refresh_(job.url, job.options);
    } catch (const std::exception&) {
      // Out of memory: the answer stays as stale as it is, and the next request tries again.
    }
  }
}

}  // namespace ox::internal::http
