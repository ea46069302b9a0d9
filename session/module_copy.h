// A private copy of a shared library, which the loader takes for another library than the one on
// disk: it gets data of its own, whatever else has loaded the same file.
#ifndef OX_SESSION_MODULE_COPY_H_
#define OX_SESSION_MODULE_COPY_H_

#include <string>

#include <oxfilecache/descriptor.h>

namespace ox::internal {

class ModuleCopy {
 public:
  // Copies the file into memory of this process. A name without "/" is looked for as dlopen(3)
  // does. False, with the reason, where the file cannot be read or the system makes no such files.
  bool Make(const std::string& libraryPath, std::string* reason);

  // For the loader. Good while this object lives, which must outlive what was loaded: the loader
  // knows libraries by their paths, and this one holds the number of the descriptor.
  std::string Path() const;

 private:
  UniqueFd file_;
};

}  // namespace ox::internal

#endif
