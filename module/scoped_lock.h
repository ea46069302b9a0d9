// Holds a host mutex for the length of a scope.
#ifndef OX_MODULE_SCOPED_LOCK_H_
#define OX_MODULE_SCOPED_LOCK_H_

#include <oxfilecache/mutex.h>

namespace ox {

class ScopedLock {
 public:
  explicit ScopedLock(IOxMutex* mutex) : mutex_(mutex) { mutex_->Lock(); }
  ~ScopedLock() { mutex_->Unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  IOxMutex* mutex_;
};

}  // namespace ox

#endif
