// The module, for one session or one look at the limits at a time.
//
// Where something else keeps the shared library loaded, it keeps its first kernel too; so the
// sessions of a process, one after the other, all use the same kernel, which is never destroyed.
#ifndef OX_SESSION_MODULE_HOLD_H_
#define OX_SESSION_MODULE_HOLD_H_

#include <memory>
#include <string>

#include "session/session_file_system.h"
#include <oxfilecache/error.h>
#include <oxfilecache/host.h>

namespace ox::session {

class ModuleHold {
 public:
  // Null and kInUse while another hold exists, kModule when the library cannot be loaded. The file
  // system must outlive the hold.
  static std::unique_ptr<ModuleHold> Take(const std::string& modulePath,
                                          SessionFileSystem& fileSystem, Error* error);
  ~ModuleHold();
  ModuleHold(const ModuleHold&) = delete;
  ModuleHold& operator=(const ModuleHold&) = delete;

  host::LoadedModule& Module() { return *module_; }

 private:
  ModuleHold() = default;
  std::unique_ptr<host::LoadedModule> module_;
  bool isHolder_ = false;
};

}  // namespace ox::session

#endif
