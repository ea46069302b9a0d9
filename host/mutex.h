// A mutex whose use clang checks, the lock of a scope, and a condition to wait for.
#ifndef OX_HOST_MUTEX_H_
#define OX_HOST_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "host/thread_annotations.h"

namespace ox::internal {

class OX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() OX_ACQUIRE() { mutex_.lock(); }
  void Unlock() OX_RELEASE() { mutex_.unlock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

class OX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) OX_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() OX_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

class Condition {
 public:
  void NotifyAll() { condition_.notify_all(); }

  // Lets the lock go while it waits. False when the time was over before isMet() held.
  template <typename Duration, typename IsMet>
  bool WaitFor(MutexLock& lock, Duration time, IsMet isMet) {
    return condition_.wait_for(lock.lock_, time, isMet);
  }

 private:
  std::condition_variable condition_;
};

}  // namespace ox::internal

#endif
