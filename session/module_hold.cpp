#include "session/module_hold.h"

#include <deque>
#include <utility>

#include "host/mutex.h"
#include "session/module_location.h"

namespace ox::internal {

struct ModuleHold::KernelSlot {
  host::PosixKernel kernel{""};
  bool isFirst = false;  // its kernel is the one of the shared library and of all strings
  bool isTaken = false;
};

class ModuleHold::KernelSlots {
 public:
  static KernelSlots& OfProcess() {
    static KernelSlots& slots = *new KernelSlots;
    return slots;
  }

  KernelSlot& Take() OX_REQUIRES(mutex) {
    for (KernelSlot& slot : slots_) {
      if (std::exchange(slot.isTaken, true)) continue;
      return slot;
    }
    KernelSlot& slot = slots_.emplace_back();
    slot.isFirst = slots_.size() == 1;
    slot.isTaken = true;
    return slot;
  }

  Mutex mutex;

 private:
  std::deque<KernelSlot> slots_ OX_GUARDED_BY(mutex);
};

std::unique_ptr<ModuleHold> ModuleHold::Take(const std::string& wanted, Error* error) {
  const std::string path = wanted.empty() ? DefaultModulePath() : wanted;
  std::string reason;
  // Declared before the lock: its destructor takes the same mutex.
  std::unique_ptr<ModuleHold> hold;
  KernelSlots& slots = KernelSlots::OfProcess();
  const MutexLock lock(slots.mutex);
  hold.reset(new ModuleHold(slots.Take()));
  if (hold->Load(path, &reason)) return hold;
  *error = MakeError(ErrorKind::kModule, "cannot load the module: " + reason);
  error->path = path;
  return nullptr;
}

bool ModuleHold::Load(const std::string& path, std::string* reason) {
  if (slot_.isFirst) {
    module_ = host::LoadedModule::LoadFurther(path, slot_.kernel, reason);
    // Written only where it differs: other sessions read it at the same time.
    if (module_ != nullptr && Kernel() != &slot_.kernel) SetKernel(&slot_.kernel);
  } else if (copy_.Make(path, reason)) {
    module_ = host::LoadedModule::LoadFurther(copy_.Path(), slot_.kernel, reason);
  }
  return module_ != nullptr;
}

ModuleHold::~ModuleHold() {
  const MutexLock lock(KernelSlots::OfProcess().mutex);
  module_.reset();
  slot_.isTaken = false;
}

void ModuleHold::UseFileSystem(IFileSystem& fileSystem) {
  slot_.kernel.UseFileSystem(&fileSystem);
}

}  // namespace ox::internal
