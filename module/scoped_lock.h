// The module's use of a mutex that the host made, in a form whose rules clang checks.
#ifndef OX_MODULE_SCOPED_LOCK_H_
#define OX_MODULE_SCOPED_LOCK_H_

#include "module/thread_annotations.h"
#include <oxfilecache/mutex.h>

namespace ox {

// As large as the pointer and laid out like it: fields of the binary contract stay in their places.
class OX_CAPABILITY("mutex") HostMutex {
 public:
  constexpr HostMutex(IOxMutex* mutex) : mutex_(mutex) {}
  operator IOxMutex*() const { return mutex_; }

  void Lock() OX_ACQUIRE() { mutex_->Lock(); }
  void Unlock() OX_RELEASE() { mutex_->Unlock(); }

 private:
  IOxMutex* mutex_;
};

// Holds the mutex for the length of a scope.
class OX_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(HostMutex& mutex) OX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~ScopedLock() OX_RELEASE() { mutex_.Unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  HostMutex& mutex_;
};

}  // namespace ox

#endif
