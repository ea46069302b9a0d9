#include "hostcheck/library_source.h"

#include <dlfcn.h>

#include <stdexcept>
#include <utility>

#include "hostcheck/isolation.h"

namespace ox::hostcheck::internal {
namespace {

using GetKernelFunction = IOxKernel* (*)(const char*);
using ReleaseKernelFunction = void (*)(IOxKernel*);

// Never closed: it stays as long as the child process.
void* LoadLibrary(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  return library;
}

// Null when the library has none of that name.
template <typename Function>
Function Find(const std::string& path, const char* name) {
  return reinterpret_cast<Function>(dlsym(LoadLibrary(path), name));
}

GetKernelFunction FindGetKernel(const std::string& path) {
  const auto getKernel = Find<GetKernelFunction>(path, "OxHostCheck_GetKernel");
  if (getKernel == nullptr) {
    throw std::runtime_error(path + " does not export OxHostCheck_GetKernel");
  }
  return getKernel;
}

}  // namespace

LibrarySource::LibrarySource(std::string path) : path_(std::move(path)) {}

IOxKernel* LibrarySource::Get(const char* directory) {
  return FindGetKernel(path_)(directory);
}

bool LibrarySource::Release(IOxKernel* kernel) {
  const auto release = Find<ReleaseKernelFunction>(path_, "OxHostCheck_ReleaseKernel");
  if (release != nullptr) release(kernel);
  return release != nullptr;
}

std::string LibrarySource::WhyNotLoadable(std::chrono::milliseconds timeout) const {
  return RunIsolated([&] { FindGetKernel(path_); }, timeout).detail;
}

}  // namespace ox::hostcheck::internal
