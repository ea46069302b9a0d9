// The Linux file system, but nothing on the disk changes: reading is real, a deletion is only
// recorded, the file then seems to be gone, and nothing can be written. A module that runs over it
// does what it would do over the real one.
#ifndef OX_TOOLS_OXCACHE_DRY_RUN_FILE_SYSTEM_H_
#define OX_TOOLS_OXCACHE_DRY_RUN_FILE_SYSTEM_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/held_directories.h"
#include <oxfilecache/file_system.h>

namespace ox::tools {

struct DryDeletion {
  std::string path;
  std::uint64_t bytes;
};

// One file of an enumerated directory and what the module did about it.
struct DryVisit {
  std::string path;
  std::optional<std::uint64_t> ownBytes;      // asked for the size of the file itself
  std::optional<std::uint64_t> partnerBytes;  // asked for the size of another file
  std::vector<DryDeletion> deletions;
};

// Threads: one at a time.
class DryRunFileSystem final : public IFileSystem {
 public:
  explicit DryRunFileSystem(std::string defaultDirectory);

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  // Makes nothing.
  int GetDefaultDirectory(OxString& out) override;

  const std::string& EnumeratedDirectory() const { return enumeratedDirectory_; }
  const std::vector<DryVisit>& Visits() const { return visits_; }

 private:
  friend class DryRunFile;

  // No exception may pass through the module, so running out of memory here ends the program.
  void NoteDirectory(const std::string& path) noexcept { enumeratedDirectory_ = path; }
  void NoteVisit(const std::string& path) noexcept;
  void NoteSize(const std::string& path, std::uint64_t bytes) noexcept;
  void NoteDeletion(const std::string& path, std::uint64_t bytes) noexcept;
  bool IsDeleted(const std::string& path) const { return deleted_.count(path) > 0; }

  internal::HeldDirectories directories_;
  std::string defaultDirectory_;
  std::string enumeratedDirectory_;
  std::vector<DryVisit> visits_;
  std::set<std::string> deleted_;
};

}  // namespace ox::tools

#endif
