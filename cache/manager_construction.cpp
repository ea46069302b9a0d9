// The life of the manager.
#include "cache/file_cache_manager_impl.h"
#include "cache/module_services.h"
#include "module/manager_lifetime.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/format.h>
#include <oxfilecache/kernel.h>

namespace ox::core::cache {

FileCacheManagerImpl::FileCacheManagerImpl(bool& started)
    : maxEntries(0),
      maxEntrySize(0),
      maxSize(0),
      kernel(Kernel()),
      head(nullptr),
      tail(nullptr),
      entryCount(0),
      mutex(nullptr),
      currentSize(0) {
  started = false;
  if (services.fileSystem == nullptr) {
    services.fileSystem = static_cast<IFileSystem*>(kernel->GetInterface("IFileSystem"));
  }
  if (services.entryMutex == nullptr) services.entryMutex = kernel->CreateMutex();
  if (services.fileSystem == nullptr || services.entryMutex == nullptr) return;

  const AllocationWatch watch;
  services.hasStartFailed = false;
  OxString directory;
  const bool isKnown = services.fileSystem->GetDefaultDirectory(directory) != 0;
  cacheDirectory = directory;
  if (isKnown) {
    configFilePath = cacheDirectory;
    configFilePath.Append("/");
    configFilePath.Append(format::kConfigurationFileName);
  }
  mutex = kernel->CreateMutex();
  if (mutex == nullptr || watch.Tripped()) return;

  Configure();
  cacheDirectory.UTF8();
  if (watch.Tripped() || services.hasStartFailed) return;
  InitializeCacheEntries();
  started = !watch.Tripped() && !services.hasStartFailed;
}

FileCacheManagerImpl::~FileCacheManagerImpl() {
  while (tail != nullptr) {
    CacheValueImpl* value = tail->value;
    RemoveNodeOf(value);
    // The second search would look at every entry that is left.
    if (mayListTwice_) RemoveNodeOf(value);
    if (value->IsPending()) value->RemoveLocal();
    DeleteObject(value);
  }
  if (mutex != nullptr) kernel->DestroyMutex(mutex);
  if (services.fileSystem != nullptr) {
    kernel->ReleaseInterface(services.fileSystem);
    services.fileSystem = nullptr;
  }
  if (services.entryMutex != nullptr) {
    kernel->DestroyMutex(services.entryMutex);
    services.entryMutex = nullptr;
  }
}

void FileCacheManagerImpl::operator delete(void* p) {
  ::operator delete(p, nullptr, 0, static_cast<OxMem_Selector_OX_NEW_DELETE*>(nullptr));
}

OxString FileCacheManagerImpl::GetDataDir() {
  return dataDir;
}

void FileCacheManagerImpl::SetDataDir(const OxString& dir) {
  dataDir = dir;
}

FileCacheManager* ConstructManager() {
  bool started = false;
  auto* manager = NewObject<FileCacheManagerImpl>(started);
  if (manager == nullptr || started) return manager;
  DestroyManager(manager);
  return nullptr;
}

void DestroyManager(FileCacheManager* manager) {
  DeleteObject(manager);
}

}  // namespace ox::core::cache
