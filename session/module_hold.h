// The loaded module, for one session or one look at the limits at a time.
//
// A module has one kernel and one manager. So each hold has a module to itself: the shared library
// or, while that is held, a private copy of it.
//
// Kernels are kept for later holds and never destroyed. Where something else keeps the shared
// library loaded, it keeps its first kernel too; and the strings of this program use that one.
#ifndef OX_SESSION_MODULE_HOLD_H_
#define OX_SESSION_MODULE_HOLD_H_

#include <memory>
#include <string>

#include "session/module_copy.h"
#include <oxfilecache/error.h>
#include <oxfilecache/host.h>

namespace ox::internal {

class ModuleHold {
 public:
  // An empty path means the default one. Null and kModule when the library cannot be loaded.
  // Threads: any.
  static std::unique_ptr<ModuleHold> Take(const std::string& wanted, Error* error);
  ~ModuleHold();
  ModuleHold(const ModuleHold&) = delete;
  ModuleHold& operator=(const ModuleHold&) = delete;

  // The file system of the managers to come. It must outlive them.
  void UseFileSystem(IFileSystem& fileSystem);
  host::LoadedModule& Module() { return *module_; }

 private:
  struct KernelSlot;
  class KernelSlots;

  explicit ModuleHold(KernelSlot& slot) : slot_(slot) {}
  bool Load(const std::string& path, std::string* reason);

  KernelSlot& slot_;
  ModuleCopy copy_;
  std::unique_ptr<host::LoadedModule> module_;
};

}  // namespace ox::internal

#endif
