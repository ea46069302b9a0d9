// The file system that a session's manager works through. It passes everything on to the disk and
// tells the session what was deleted and read, with three exceptions: the configuration comes from
// a snapshot, and writes are taken and dropped, since the session puts metadata files in place
// itself, whole, by renaming.
//
// Threads: used under the session's mutex alone. Nothing is thrown: the module, which stands
// between this and the session, has no unwind tables.
#ifndef OX_SESSION_SESSION_FILE_SYSTEM_H_
#define OX_SESSION_SESSION_FILE_SYSTEM_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/held_directories.h"
#include "host/posix_file.h"
#include "session/configuration_snapshot.h"
#include "session/directory_lock.h"
#include "session/disk_account.h"
#include "session/eviction_log.h"
#include "session/recent_deletions.h"
#include "session/survey.h"
#include <oxfilecache/file_system.h>

namespace ox::internal {

// How the module's last attempt to read a metadata file went.
struct MetadataRead {
  int error = 0;              // errno when the file could not be opened or read
  std::uint64_t bytes = 0;    // size of the file when it was read
  std::int64_t modified = 0;  // nanoseconds since 1970
};

class SessionFile;

class SessionFileSystem final : public IFileSystem {
 public:
  // Deletions are counted in `account`; without the lock nothing is deleted. Both must outlive the
  // module's use of this.
  SessionFileSystem(std::string directory, ConfigurationSnapshot configuration,
                    DiskAccount& account, const DirectoryLock& lock);
  ~SessionFileSystem();
  SessionFileSystem(const SessionFileSystem&) = delete;
  SessionFileSystem& operator=(const SessionFileSystem&) = delete;

  // Of the metadata file that the module asked for last; forgotten once taken.
  std::optional<MetadataRead> TakeMetadataRead() {
    return std::exchange(metadataRead_, std::nullopt);
  }

  // What the module reads from now on.
  void UseConfiguration(ConfigurationSnapshot configuration) {
    configuration_ = std::move(configuration);
  }

  RecentDeletions& Deletions() { return deletions_; }
  EvictionLog& Evictions() { return evictions_; }

  // The entries that the manager finds when it starts, in the order of its list; null for none.
  // They must outlive the start.
  void ShowEntries(const std::vector<SurveyedEntry>* entries) { shownEntries_ = entries; }

  // The text that every metadata file holds for the module; null for what is on the disk.
  void ShowMetadata(const char* text) { shownMetadata_ = text; }

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  int GetDefaultDirectory(OxString& out) override;

 private:
  friend class SessionFile;

  HeldDirectories directories_;
  // The object destroyed last, kept for the next CreateFile.
  std::unique_ptr<SessionFile> spare_;
  std::string directory_;
  ConfigurationSnapshot configuration_;
  DiskAccount& account_;
  const DirectoryLock& lock_;
  std::optional<MetadataRead> metadataRead_;
  RecentDeletions deletions_;
  EvictionLog evictions_;
  const std::vector<SurveyedEntry>* shownEntries_ = nullptr;
  // Of the shown entry that the module is looking at.
  std::string shownContent_;
  std::uint64_t shownContentBytes_ = 0;
  const char* shownMetadata_ = nullptr;
};

class SessionFile final : public os::filesystem::File {
 public:
  explicit SessionFile(SessionFileSystem& fileSystem)
      : fileSystem_(fileSystem),
        configuration_(fileSystem.configuration_),
        file_(fileSystem.directories_) {}
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
  // The content of the entry that is being shown, whose size is known.
  bool IsShownContent() const;
  bool ShowsMetadata() const { return fileSystem_.shownMetadata_ != nullptr && IsMetadata(); }
  void NoteFailedRead(int error);

  SessionFileSystem& fileSystem_;
  ConfigurationReader configuration_;
  PosixFile file_;
  bool discardsWrites_ = false;              // opened for writing
  std::optional<std::uint64_t> shownBytes_;  // of a metadata file that is being shown
};

}  // namespace ox::internal

#endif
