#include "session/module_hold.h"

#include <atomic>

#include "session/module_location.h"

namespace ox::internal {
namespace {

std::atomic<bool> isHeld{false};

host::PosixKernel& ProcessKernel() {
  static host::PosixKernel& kernel = *new host::PosixKernel("");
  return kernel;
}

}  // namespace

std::unique_ptr<ModuleHold> ModuleHold::Take(const std::string& wanted, Error* error) {
  const std::string modulePath = wanted.empty() ? DefaultModulePath() : wanted;
  // Made before the flag is set: were memory to run out after that, the flag would stay set.
  std::unique_ptr<ModuleHold> hold(new ModuleHold);
  if (isHeld.exchange(true)) {
    *error = MakeError(ErrorKind::kInUse, "this process has a session open already");
    return nullptr;
  }
  hold->isHolder_ = true;
  std::string reason;
  hold->module_ = host::LoadedModule::Load(modulePath, ProcessKernel(), &reason);
  if (hold->module_ != nullptr) return hold;
  *error = MakeError(ErrorKind::kModule, "cannot load the module: " + reason);
  error->path = modulePath;
  return nullptr;
}

ModuleHold::~ModuleHold() {
  module_.reset();
  if (isHolder_) isHeld.store(false);
}

void ModuleHold::UseFileSystem(IFileSystem& fileSystem) {
  ProcessKernel().UseFileSystem(&fileSystem);
}

}  // namespace ox::internal
