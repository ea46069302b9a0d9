// A mutex, the guard that holds it, and a condition to wait for: those of the standard library,
// made known to the compiler's check of locks (thread_annotations.h).
#ifndef OX_HOST_MUTEX_H_
#define OX_HOST_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "module/thread_annotations.h"

namespace ox::internal {

// A short time in which this thread keeps the memory and the processor's units to others.
inline void LetOthersWork() {
  for (int i = 0; i < 8; ++i) {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
    asm volatile("yield");
#endif
  }
}

// Taken by a MutexLock alone. Not recursive.
class OX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Whether a thread had it a moment ago.
  bool IsTaken() {
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    return !lock.owns_lock();
  }

 private:
  friend class MutexLock;

  // Looks a few times before it sleeps: most of what is done under a mutex here takes less time
  // than to fall asleep and be woken up. Not on one processor, where the owner could not go on
  // meanwhile.
  std::unique_lock<std::mutex> Take() {
    static const int kLooks = std::thread::hardware_concurrency() > 1 ? 400 : 0;
    std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    for (int looks = 0; looks < kLooks && !lock.owns_lock(); ++looks) {
      LetOthersWork();
      static_cast<void>(lock.try_lock());
    }
    if (!lock.owns_lock()) lock.lock();
    return lock;
  }

  std::mutex mutex_;
};

// Holds the mutex while it lives.
class OX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) OX_ACQUIRE(mutex) : lock_(mutex.Take()) {}
  ~MutexLock() OX_RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  friend class Condition;

  std::unique_lock<std::mutex> lock_;
};

class Condition {
 public:
  Condition() = default;
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  // Releases the lock while it waits and holds it again when it returns: when `isMet` gives true or
  // the time is over. Gives what `isMet` gave last.
  //
  // `isMet` is asked with the lock held. The compiler does not see that, so a lambda that reads
  // guarded data says it:
  //
  //   condition.WaitFor(lock, time, [this]() OX_REQUIRES(mutex_) { return count_ == 0; });
  template <typename Predicate>
  bool WaitFor(MutexLock& lock, std::chrono::steady_clock::duration time,
               Predicate isMet) OX_NO_THREAD_SAFETY_ANALYSIS {
    return condition_.wait_for(lock.lock_, time, std::move(isMet));
  }

  // The same for as long as it takes.
  template <typename Predicate>
  void Wait(MutexLock& lock, Predicate isMet) OX_NO_THREAD_SAFETY_ANALYSIS {
    condition_.wait(lock.lock_, std::move(isMet));
  }

  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace ox::internal

#endif
