// Gives a session's manager its file objects (session_file.h) and the directory of its
// configuration.
//
// Threads: used under the session's mutex alone. Nothing is thrown: the module, which stands
// between this and the session, has no unwind tables.
#ifndef OX_SESSION_SESSION_FILE_SYSTEM_H_
#define OX_SESSION_SESSION_FILE_SYSTEM_H_

#include <memory>
#include <string>
#include <utility>

#include "host/held_directories.h"
#include "session/manager_listener.h"
#include "session/session_file.h"
#include "session/shown_files.h"
#include <oxfilecache/file_system.h>

namespace ox::internal {

class SessionFileSystem final : public IFileSystem {
 public:
  // The references must outlive the module's use of this.
  SessionFileSystem(std::string directory, ShownFiles& shown, ManagerListener& listener)
      : directory_(std::move(directory)), surroundings_{directories_, shown, listener} {}
  SessionFileSystem(const SessionFileSystem&) = delete;
  SessionFileSystem& operator=(const SessionFileSystem&) = delete;

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  int GetDefaultDirectory(OxString& out) override;

 private:
  const std::string directory_;
  HeldDirectories directories_;
  const SessionFile::Surroundings surroundings_;
  // The object destroyed last, kept for the next CreateFile.
  std::unique_ptr<SessionFile> spare_;
};

}  // namespace ox::internal

#endif
