#include "module/icache_manager_impl.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/module.h>

using ox::core::cache::ICacheManager;
using ox::core::cache::ICacheManagerImpl;

IOxKernel* IOxKernel::GetKernel() {
  return ox::Kernel();
}

void IOxModule_OxModule_PutKernel(IOxKernel* kernel) {
  if (ox::Kernel() == nullptr) ox::SetKernel(kernel);
}

ICacheManager* IOxModule_ICacheManager_ModuleLoad() {
  ICacheManagerImpl* factory = ox::NewObject<ICacheManagerImpl>();
  if (factory == nullptr || factory->HasMutex()) return factory;
  ox::DeleteObject(factory);
  return nullptr;
}

void IOxModule_ICacheManager_ModuleUnload(ICacheManager* module) {
  ox::DeleteObject(module);
  // Without effect once a kernel is stored: memory handed out earlier must still find its way back.
  IOxModule_OxModule_PutKernel(nullptr);
}
