#include <dlfcn.h>

#include <utility>

#include <oxfilecache/host.h>
#include <oxfilecache/kernel.h>

namespace ox::host {
namespace {

using core::cache::ICacheManager;

using PutKernelFunction = void (*)(IOxKernel*);
using GetKernelFunction = IOxKernel* (*)();
using ModuleLoadFunction = ICacheManager* (*)();
using ModuleUnloadFunction = void (*)(ICacheManager*);

// IOxKernel::GetKernel(), as the C++ ABI writes it.
constexpr char kGetKernelSymbol[] = "_ZN9IOxKernel9GetKernelEv";

template <typename Function>
bool Find(void* library, const char* name, Function* function, std::string* error) {
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) {
    *error = std::string("not a file cache module: no entry point ") + name;
    return false;
  }
  *function = reinterpret_cast<Function>(symbol);
  return true;
}

}  // namespace

void LoadedModule::CloseLibrary::operator()(void* handle) const {
  dlclose(handle);
}

LoadedModule::LoadedModule(LibraryHandle library, Unload unload)
    : library_(std::move(library)), factory_(nullptr), unload_(unload) {}

LoadedModule::~LoadedModule() {
  unload_(factory_);
}

std::unique_ptr<LoadedModule> LoadedModule::Load(const std::string& path, IOxKernel& kernel,
                                                 std::string* error) {
  auto module = LoadFurther(path, kernel, error);
  if (module != nullptr) SetKernel(&kernel);
  return module;
}

std::unique_ptr<LoadedModule> LoadedModule::LoadFurther(const std::string& path, IOxKernel& kernel,
                                                        std::string* error) {
  LibraryHandle library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (library == nullptr) {
    *error = dlerror();
    return nullptr;
  }
  PutKernelFunction putKernel = nullptr;
  GetKernelFunction getKernel = nullptr;
  ModuleLoadFunction load = nullptr;
  ModuleUnloadFunction unload = nullptr;
  if (!Find(library.get(), "IOxModule_OxModule_PutKernel", &putKernel, error) ||
      !Find(library.get(), kGetKernelSymbol, &getKernel, error) ||
      !Find(library.get(), "IOxModule_ICacheManager_ModuleLoad", &load, error) ||
      !Find(library.get(), "IOxModule_ICacheManager_ModuleUnload", &unload, error)) {
    return nullptr;
  }

  putKernel(&kernel);
  if (getKernel() != &kernel) {
    *error = path + " is loaded already, with another kernel";
    return nullptr;
  }
  // Made before the factory, so that nothing can fail between having one and owning it.
  std::unique_ptr<LoadedModule> module(new LoadedModule(std::move(library), unload));
  module->factory_ = load();
  if (module->factory_ != nullptr) return module;
  *error = "out of memory";
  return nullptr;
}

ManagerReference::ManagerReference(LoadedModule& module)
    : factory_(module.Factory()), manager_(factory_.CreateCacheManager()) {}

ManagerReference::~ManagerReference() {
  if (manager_ != nullptr) factory_.DestroyCacheManager(manager_);
}

}  // namespace ox::host
