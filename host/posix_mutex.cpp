#include "host/posix_mutex.h"

namespace ox::internal {

PosixMutex::PosixMutex() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

PosixMutex::~PosixMutex() {
  pthread_mutex_destroy(&mutex_);
}

int PosixMutex::Lock() {
  return pthread_mutex_lock(&mutex_) == 0;
}

int PosixMutex::Unlock() {
  return pthread_mutex_unlock(&mutex_) == 0;
}

}  // namespace ox::internal
