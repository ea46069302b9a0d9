// A recursive mutex made by the host (IOxKernel::CreateMutex).
#ifndef OXFILECACHE_MUTEX_H_
#define OXFILECACHE_MUTEX_H_

class IOxMutex {
 public:
  // Blocks until the calling thread holds the mutex; at once when it already does. The results are
  // ignored by the module.
  virtual int Lock() = 0;
  // Releases one Lock of the calling thread.
  virtual int Unlock() = 0;

 protected:
  ~IOxMutex() = default;
};

#endif
