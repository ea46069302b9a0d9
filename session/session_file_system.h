// The file system that a session gives its module.
//
// It serves the configuration from memory: were the file changed while a session runs, a restart of
// the manager would delete what no longer fits. It writes nothing, since the session puts metadata
// files in place itself, whole, by renaming. It counts what the module deletes.
#ifndef OX_SESSION_SESSION_FILE_SYSTEM_H_
#define OX_SESSION_SESSION_FILE_SYSTEM_H_

#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/posix_file.h"
#include "session/cache_state.h"
#include <oxfilecache/file_system.h>

namespace ox::session {

class SessionFile;

struct MetaDataStamp {
  std::uint64_t bytes;
  std::int64_t modified;  // nanoseconds since 1970
};

// Threads: used under the session's mutex alone.

class SessionFileSystem final : public IFileSystem {
 public:
  // Shows the configuration and an empty directory, and deletes nothing, until ServeFiles.
  explicit SessionFileSystem(std::string directory);
  ~SessionFileSystem();
  SessionFileSystem(const SessionFileSystem&) = delete;
  SessionFileSystem& operator=(const SessionFileSystem&) = delete;

  // From now on the real directory; `state` must outlive the module's use of this.
  void ServeFiles(CacheState* state) { state_ = state; }
  // The module could not see all that is there.
  void NoteIncomplete() {
    if (state_ != nullptr) state_->needsRestart = true;
  }
  bool IsProbing() const { return state_ == nullptr; }
  CacheState& State() { return *state_; }

  // The directory that the module asked for while probing.
  const std::string& AskedDirectory() const { return askedDirectory_; }
  void NoteAskedDirectory(const char* path) noexcept;

  bool IsConfiguration(const char* path) const { return configurationPath_ == path; }
  bool HasConfiguration() const { return hasConfiguration_; }
  std::size_t ReadConfiguration(std::size_t position, void* destination, std::uint64_t bytes) const;

  // Of the metadata file that the module has read last, as it was then; forgotten once taken.
  std::optional<MetaDataStamp> TakeStamp() { return std::exchange(stamp_, std::nullopt); }
  void NoteStamp(const MetaDataStamp& stamp) { stamp_ = stamp; }

  os::filesystem::File* CreateFile() override;
  void DestroyFile(os::filesystem::File* file) override;
  int GetDefaultDirectory(OxString& out) override;

 private:
  void CaptureConfiguration();

  // The object destroyed last, kept for the next CreateFile.
  std::unique_ptr<SessionFile> spare_;
  std::string directory_;
  std::string configurationPath_;
  std::string configuration_;
  bool hasConfiguration_ = false;
  std::string askedDirectory_;
  CacheState* state_ = nullptr;
  std::optional<MetaDataStamp> stamp_;
};

// Nothing is thrown: the module, which stands between this and the session, has no unwind tables.
class SessionFile final : public os::filesystem::File {
 public:
  explicit SessionFile(SessionFileSystem& fileSystem) : fileSystem_(fileSystem) {}
  ~SessionFile() = default;
  SessionFile(const SessionFile&) = delete;
  SessionFile& operator=(const SessionFile&) = delete;

  // Bound to the same path as an enumerated entry, whose size is known already.
  void StandFor(internal::PosixFile& entry);

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
  enum class Source { kFile, kConfiguration, kNowhere };

  bool IsMetaData() const;
  void Rewind();
  void NoteStamp() const;
  void NoteContentDeletion(bool isDeleted, std::uint64_t bytes, int error);
  void NoteMetaDataDeletion(bool isDeleted, std::uint64_t bytes, std::int64_t modified, int error);

  SessionFileSystem& fileSystem_;
  internal::PosixFile file_;
  Source source_ = Source::kFile;
  std::size_t position_ = 0;
};

}  // namespace ox::session

#endif
