// The loaded module, for one session or one look at the limits at a time.
//
// Where something else keeps the shared library loaded, it keeps its first kernel too; so the
// sessions of a process, one after the other, all use the same kernel, which is never destroyed.
#ifndef OX_SESSION_MODULE_HOLD_H_
#define OX_SESSION_MODULE_HOLD_H_

#include <memory>
#include <string>

#include <oxfilecache/error.h>
#include <oxfilecache/host.h>

namespace ox::internal {

class ModuleHold {
 public:
  // An empty path means the default one. Null and kInUse while another hold exists, kModule when
  // the library cannot be loaded.
  static std::unique_ptr<ModuleHold> Take(const std::string& wanted, Error* error);
  ~ModuleHold();
  ModuleHold(const ModuleHold&) = delete;
  ModuleHold& operator=(const ModuleHold&) = delete;

  // The file system of the managers to come. It must outlive them.
  void UseFileSystem(IFileSystem& fileSystem);
  host::LoadedModule& Module() { return *module_; }

 private:
  ModuleHold() = default;
  std::unique_ptr<host::LoadedModule> module_;
  bool isHolder_ = false;
};

}  // namespace ox::internal

#endif
