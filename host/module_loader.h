// Loads the module, hands it the kernel, and undoes both in the right order.
//
//   ox::host::PosixKernel kernel("/var/cache/example");
//   std::string error;
//   auto module = ox::host::LoadedModule::Load("libox_file_cache.so", kernel, &error);
//   ox::host::ManagerReference manager(*module);
//   if (manager) manager->Get("http://example/");
//
// Declared in this order they are destroyed in the order that the module needs: the reference, the
// module, the kernel.
#ifndef OX_HOST_MODULE_LOADER_H_
#define OX_HOST_MODULE_LOADER_H_

#include <memory>
#include <string>

#include "cache/file_cache_manager.h"
#include "module/icache_manager.h"
#include "module/ox_kernel.h"

namespace ox::host {

class LoadedModule {
 public:
  // Opens the shared library, sets the kernel of this program's own strings, hands the kernel over
  // and makes the factory. Null, with the reason in `error`, when the library cannot be opened,
  // lacks an entry point, or is held by another kernel already: a loaded module keeps its first.
  static std::unique_ptr<LoadedModule> Load(const std::string& path, IOxKernel& kernel,
                                            std::string* error);
  // Destroys the factory and closes the library. Every manager reference must be gone.
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  core::cache::ICacheManager& Factory() { return *factory_; }

 private:
  struct CloseLibrary {
    void operator()(void* handle) const;
  };
  using LibraryHandle = std::unique_ptr<void, CloseLibrary>;
  using Unload = void (*)(core::cache::ICacheManager*);

  LoadedModule(LibraryHandle library, Unload unload);

  LibraryHandle library_;
  core::cache::ICacheManager* factory_;
  Unload unload_;
};

// One reference to the cache manager.
class ManagerReference {
 public:
  // Starts the manager when it is the first reference: reads the configuration and scans the cache.
  explicit ManagerReference(LoadedModule& module);
  ~ManagerReference();
  ManagerReference(const ManagerReference&) = delete;
  ManagerReference& operator=(const ManagerReference&) = delete;

  // False when memory ran out.
  explicit operator bool() const { return manager_ != nullptr; }
  core::cache::FileCacheManager* operator->() const { return manager_; }
  core::cache::FileCacheManager& operator*() const { return *manager_; }

 private:
  core::cache::ICacheManager& factory_;
  core::cache::FileCacheManager* manager_;
};

}  // namespace ox::host

#endif
