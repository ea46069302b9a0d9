#include "http/background_refresh.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "http/header_list.h"
#include "http/signal_mask.h"
#include "http/validation.h"

namespace ox::internal::http {
namespace {

constexpr std::size_t kMaxJobs = 64;
// One slow server may not keep the others waiting for ever.
constexpr std::chrono::milliseconds kMaxTime = std::chrono::minutes(5);
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
  const bool isRunning = running_ != nullptr && *running_ == url.text;
  if (isWaiting || isRunning || jobs_.size() >= kMaxJobs || !EnsureThread()) return;
  Job job{url, options};
  job.options.refresh = true;
  job.options.receiver = nullptr;
  // Conditions and ranges are about the copy that the caller has.
  RemoveConditions(&job.options.headers);
  Remove(&job.options.headers, "Range");
  const bool isLimited = options.totalTimeout.count() > 0;
  job.options.totalTimeout = isLimited ? std::min(options.totalTimeout, kMaxTime) : kMaxTime;
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
  BlockSignals();
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
      running_ = &job.url.text;
    }
    try {
      refresh_(job.url, job.options);
    } catch (const std::exception&) {
      // Out of memory: the answer stays as stale as it is, and the next request tries again.
    }
    const MutexLock lock(mutex_);
    running_ = nullptr;
  }
}

}  // namespace ox::internal::http
