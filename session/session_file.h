// A file as a session's manager sees it: that on the disk, unless another is shown in its place.
// What the manager writes is dropped: the session puts metadata files in place itself, whole, by
// renaming.
#ifndef OX_SESSION_SESSION_FILE_H_
#define OX_SESSION_SESSION_FILE_H_

#include <cstdint>

#include "host/held_directories.h"
#include "host/posix_file.h"
#include "session/configuration_snapshot.h"
#include "session/manager_listener.h"
#include "session/shown_files.h"
#include <oxfilecache/file_system.h>

namespace ox::internal {

class SessionFile final : public os::filesystem::File {
 public:
  // What all files of a manager have in common.
  struct Surroundings {
    HeldDirectories& directories;
    ShownFiles& shown;
    ManagerListener& listener;
  };

  // The surroundings must outlive this.
  explicit SessionFile(const Surroundings& surroundings)
      : surroundings_(surroundings),
        shown_(surroundings.shown),
        listener_(surroundings.listener),
        configuration_(shown_.Configuration()),
        file_(surroundings.directories) {}
  ~SessionFile() = default;
  SessionFile(const SessionFile&) = delete;
  SessionFile& operator=(const SessionFile&) = delete;

  int SetPath(const char* utf8Path) override;
  int Open(int mode) override;
  void Close() override;
  int Delete(int flags) override;
  int Exists() override;
  void GetPath(OxString& out) override;
  std::uint64_t GetSize() override;
  std::uint64_t Read(std::uint64_t count, void* destination) override;
  std::uint64_t Write(std::uint64_t count, const void* source) override;
  int EnumerateDirectory(EnumerateCallback callback, void* context, int flags) override;

 private:
  bool IsConfiguration() const;
  bool IsMetadata() const;
  bool IsShownMetadata() const { return shown_.Metadata() != nullptr && IsMetadata(); }
  void NoteFailedRead(int error);

  const Surroundings& surroundings_;
  ShownFiles& shown_;
  ManagerListener& listener_;
  ConfigurationReader configuration_;
  PosixFile file_;
  bool discardsWrites_ = false;  // opened for writing
};

}  // namespace ox::internal

#endif
