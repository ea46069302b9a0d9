#ifndef OX_MODULE_ICACHE_MANAGER_IMPL_H_
#define OX_MODULE_ICACHE_MANAGER_IMPL_H_

#include <cstdint>

#include "module/scoped_lock.h"
#include <oxfilecache/module.h>

namespace ox::core::cache {

class ICacheManagerImpl : public ICacheManager {
 public:
  ICacheManagerImpl();
  // Does not touch the manager: the host gives back every reference before it unloads.
  ~ICacheManagerImpl() override;
  ICacheManagerImpl(const ICacheManagerImpl&) = delete;
  ICacheManagerImpl& operator=(const ICacheManagerImpl&) = delete;

  FileCacheManager* CreateCacheManager() override;
  void DestroyCacheManager(FileCacheManager* manager) override;

  bool HasMutex() const { return mutex_ != nullptr; }

 private:
  HostMutex mutex_;
  std::uint32_t references_ OX_GUARDED_BY(mutex_);
};

}  // namespace ox::core::cache

#endif
