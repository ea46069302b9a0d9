// The file-system service on Linux.
#ifndef OX_HOST_POSIX_FILE_SYSTEM_H_
#define OX_HOST_POSIX_FILE_SYSTEM_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "module/file_system.h"

namespace ox::host {

class PosixFile;

// Threads: all operations from any thread.
class PosixFileSystem final : public IFileSystem {
 public:
  // The directory is taken byte for byte: a "/" at its end stays and shows in every path.
  explicit PosixFileSystem(std::string defaultDirectory);
  ~PosixFileSystem();
  PosixFileSystem(const PosixFileSystem&) = delete;
  PosixFileSystem& operator=(const PosixFileSystem&) = delete;

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  // Makes the directory (mode 0700, parents too) when it is missing. 0, and `out` empty, when that
  // fails.
  int GetDefaultDirectory(OxString& out) override;

  // Lets go of the directories that file objects hold for the next use. For when there will be none
  // soon: a held directory keeps its file system from being unmounted.
  void LeaveDirectories();

  // File objects made and not yet destroyed.
  std::uint64_t LiveFiles() const;

 private:
  // For the next CreateFile, as far as there is room.
  void Keep(PosixFile* file);

  std::string defaultDirectory_;
  // Objects for the next CreateFile. A start needs three at once, and a null there would make it go
  // on without its configuration, so these are made beforehand.
  static constexpr std::size_t kSpares = 3;
  std::atomic<PosixFile*> spares_[kSpares];
  std::atomic<std::uint64_t> objects_{kSpares};
};

}  // namespace ox::host

#endif
