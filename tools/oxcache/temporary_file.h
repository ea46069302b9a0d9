// A file that is written under a temporary name and then takes its place as a whole.
#ifndef OX_TOOLS_OXCACHE_TEMPORARY_FILE_H_
#define OX_TOOLS_OXCACHE_TEMPORARY_FILE_H_

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "tools/oxcache/signals.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>

namespace ox::tools {

// Deleted when it was not put in place, also when a signal ends the program.
class TemporaryFile {
 public:
  // Makes an empty file in the directory of `path`, which is held open from then on. The name is
  // random and the file is always a new one: nobody can prepare a link or a FIFO under its name.
  // `mode` is that of open(2).
  static std::unique_ptr<TemporaryFile> Create(const std::string& path, mode_t mode, Error* error);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int Get() const { return file_.Get(); }

  // Closes the file and renames it to `path`.
  Error PutInPlace();
  // The same, and a power cut leaves the old or the new file, whole.
  Error PutInPlaceOnMedium();

 private:
  TemporaryFile(std::string path, UniqueFd directory);
  Error Open(mode_t mode);

  const std::string path_;
  const UniqueFd directory_;
  std::string name_;  // empty: no temporary file exists
  std::optional<DeletedOnSignal> deletedOnSignal_;
  UniqueFd file_;
};

// Whether a file name, without its directory, is one that TemporaryFile gives.
bool IsTemporaryName(const std::string& name);

}  // namespace ox::tools

#endif
