// The factory that the module hands to the host (IOxModule_ICacheManager_ModuleLoad).
#ifndef OX_MODULE_ICACHE_MANAGER_H_
#define OX_MODULE_ICACHE_MANAGER_H_

// Every module object of the framework. The destructor is its one virtual operation.
class IOxModule {
 public:
  virtual ~IOxModule() = default;
};

namespace ox::core::cache {

class FileCacheManager;

// Threads: both operations may be called from any thread; the factory's own mutex serialises them.
class ICacheManager : public IOxModule {
 public:
  // The one cache manager of the process, made by the first call; each call takes a reference. The
  // first call reads "file-cache.conf" and scans the cache directory before it returns. Null, and
  // no reference taken, when memory or the host's file objects run out on the way.
  virtual FileCacheManager* CreateCacheManager() = 0;

  // Gives one reference back, whatever `manager` is; the last one destroys the manager. More calls
  // than CreateCacheManager made wrap the count: nothing is destroyed until it is 0 again.
  virtual void DestroyCacheManager(FileCacheManager* manager) = 0;
};

}  // namespace ox::core::cache

#endif
