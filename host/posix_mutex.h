// A recursive mutex on POSIX threads.
#ifndef OX_HOST_POSIX_MUTEX_H_
#define OX_HOST_POSIX_MUTEX_H_

#include <pthread.h>

#include <oxfilecache/mutex.h>

namespace ox::internal {

class PosixMutex final : public IOxMutex {
 public:
  PosixMutex();
  ~PosixMutex();
  PosixMutex(const PosixMutex&) = delete;
  PosixMutex& operator=(const PosixMutex&) = delete;

  // Nonzero on success.
  int Lock() override;
  int Unlock() override;

 private:
  pthread_mutex_t mutex_;
};

}  // namespace ox::internal

#endif
