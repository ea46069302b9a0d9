// The mutexes that the module locks with.
//
// The order in the table is the binary contract, as for IOxKernel.
#ifndef OXFILECACHE_MUTEX_H_
#define OXFILECACHE_MUTEX_H_

// A recursive mutex: the thread that holds it may lock it again, and unlocks it as often. Made and
// owned by the host: the module takes it from IOxKernel::CreateMutex and gives it back, unlocked,
// to IOxKernel::DestroyMutex.
class IOxMutex {
 public:
  // Returns when the calling thread holds the mutex; at once when it holds it already. Nonzero on
  // success; the module ignores the results of both operations.
  virtual int Lock() = 0;
  // Takes back one Lock of the calling thread. Other threads can have the mutex once each Lock was
  // taken back.
  virtual int Unlock() = 0;

 protected:
  ~IOxMutex() = default;
};

#endif
