#include "module/icache_manager_impl.h"

#include "module/manager_lifetime.h"
#include "module/scoped_lock.h"
#include <oxfilecache/kernel.h>

namespace ox::core::cache {
namespace {
// Shared by every factory of the process.
FileCacheManager* theManager = nullptr;
}  // namespace

ICacheManagerImpl::ICacheManagerImpl() : mutex_(Kernel()->CreateMutex()), references_(0) {}

ICacheManagerImpl::~ICacheManagerImpl() {
  if (mutex_ != nullptr) Kernel()->DestroyMutex(mutex_);
}

FileCacheManager* ICacheManagerImpl::CreateCacheManager() {
  const ScopedLock lock(mutex_);
  if (theManager == nullptr) theManager = ConstructManager();
  if (theManager == nullptr) return nullptr;
  ++references_;
  return theManager;
}

void ICacheManagerImpl::DestroyCacheManager(FileCacheManager* /*manager*/) {
  const ScopedLock lock(mutex_);
  --references_;
  if (references_ != 0 || theManager == nullptr) return;
  DestroyManager(theManager);
  theManager = nullptr;
}

}  // namespace ox::core::cache
