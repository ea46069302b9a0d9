// The exported entry points of libox_file_cache.so, and the factory that they hand to the host.
// Beside these functions only IOxKernel::GetKernel is exported.
//
// Order: PutKernel, ModuleLoad, any use of the factory, ModuleUnload. PutKernel and ModuleLoad take
// no lock and belong on one thread before any other use.
#ifndef OXFILECACHE_MODULE_H_
#define OXFILECACHE_MODULE_H_

#include <oxfilecache/kernel.h>

// Every module object of the framework. The destructor is its one virtual operation.
class IOxModule {
 public:
  virtual ~IOxModule() = default;
};

namespace ox::core::cache {

class FileCacheManager;

// The factory of the cache manager, from IOxModule_ICacheManager_ModuleLoad. Give it back with
// IOxModule_ICacheManager_ModuleUnload; never delete it.
//
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

extern "C" {

// Stores the kernel unless one is stored already: the first stays for the life of the process.
__attribute__((visibility("default"))) void IOxModule_OxModule_PutKernel(IOxKernel* kernel);

// A new factory, to be given back with ModuleUnload; null when memory runs out or no kernel is set.
__attribute__((visibility("default"))) ox::core::cache::ICacheManager*
IOxModule_ICacheManager_ModuleLoad();

// Destroys the factory; null is allowed. Every manager reference must have been given back before.
__attribute__((visibility("default"))) void IOxModule_ICacheManager_ModuleUnload(
    ox::core::cache::ICacheManager* module);
}

#endif
