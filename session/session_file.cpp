#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "session/durable_io.h"
#include "session/file_names.h"
#include "session/session_file_system.h"
#include "session/use_clock.h"
#include <oxfilecache/string.h>

namespace ox::session {
namespace {

// The files that an enumeration shows must be the session's too, since the module deletes them.
struct Enumeration {
  SessionFileSystem& fileSystem;
  os::filesystem::File::EnumerateCallback callback;
  void* context;
};

bool ShowAsSessionFile(os::filesystem::File& entry, bool isDirectory, void* context) {
  const auto& enumeration = *static_cast<const Enumeration*>(context);
  SessionFile file(enumeration.fileSystem);
  file.StandFor(static_cast<internal::PosixFile&>(entry));
  return enumeration.callback(file, isDirectory, enumeration.context);
}

}  // namespace

int SessionFile::SetPath(const char* utf8Path) {
  Rewind();
  return file_.SetPath(utf8Path);
}

void SessionFile::StandFor(internal::PosixFile& entry) {
  SetPath(entry.Path());
  file_.KnowSize(entry.GetSize());
}

int SessionFile::Open(int mode) {
  Rewind();
  if (fileSystem_.IsConfiguration(file_.Path())) {
    source_ = Source::kConfiguration;
    return mode == kOpenRead && fileSystem_.HasConfiguration();
  }
  if (mode == kOpenWrite) {
    file_.Close();
    source_ = Source::kNowhere;
    return !fileSystem_.IsProbing();
  }
  // Not closed before: what Exists has opened serves.
  return file_.Open(mode);
}

void SessionFile::Rewind() {
  source_ = Source::kFile;
  position_ = 0;
}

void SessionFile::Close() {
  file_.Close();
  Rewind();
}

bool SessionFile::IsMetaData() const {
  return format::HasMetaDataSuffix(file_.Path());
}

int SessionFile::Delete(int flags) {
  // After a failure the module may have missed its configuration, and would delete everything.
  if (fileSystem_.IsProbing() || fileSystem_.State().needsRestart) return 0;
  AnnounceFileOperation();
  struct stat status {};
  lstat(file_.Path(), &status);
  const bool isDeleted = file_.Delete(flags) != 0;
  const int error = errno;
  const auto bytes = static_cast<std::uint64_t>(status.st_size);
  if (IsMetaData()) {
    NoteMetaDataDeletion(isDeleted, bytes, ToNanoseconds(status.st_mtim), error);
  } else {
    NoteContentDeletion(isDeleted, bytes, error);
  }
  return isDeleted;
}

// The module deletes the content of every entry that leaves its list, and nothing else. Where that
// fails, a missing file included, it leaves the metadata file behind and takes an unknown number of
// bytes off its total.
void SessionFile::NoteContentDeletion(bool isDeleted, std::uint64_t bytes, int error) {
  CacheState& state = fileSystem_.State();
  if (state.entries > 0) --state.entries;
  state.NoteDeletion(isDeleted, bytes, error);
}

void SessionFile::NoteMetaDataDeletion(bool isDeleted, std::uint64_t bytes, std::int64_t modified,
                                       int error) {
  CacheState& state = fileSystem_.State();
  state.total.Take(bytes, isDeleted && modified > state.managerStart);
  state.NoteDeletion(isDeleted, bytes, error);
}

int SessionFile::Exists() {
  if (fileSystem_.IsConfiguration(file_.Path())) return fileSystem_.HasConfiguration();
  return file_.Exists();
}

void SessionFile::GetPath(OxString& out) {
  file_.GetPath(out);
}

std::uint64_t SessionFile::GetSize() {
  return file_.GetSize();
}

std::uint64_t SessionFile::Read(std::uint64_t count, void* destination) {
  if (source_ != Source::kConfiguration) {
    NoteStamp();
    return file_.Read(count, destination);
  }
  const std::size_t part = fileSystem_.ReadConfiguration(position_, destination, count);
  position_ += part;
  return part;
}

// Of all real files the module reads the metadata files alone. Here they are open, which makes the
// question cheaper than by their path.
void SessionFile::NoteStamp() const {
  struct stat status;
  if (!file_.GetStatus(&status)) return;
  fileSystem_.NoteStamp(
      {static_cast<std::uint64_t>(status.st_size), ToNanoseconds(status.st_mtim)});
}

std::uint64_t SessionFile::Write(std::uint64_t count, const void* /*source*/) {
  return source_ == Source::kNowhere ? count : 0;
}

int SessionFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  if (fileSystem_.IsProbing()) {
    fileSystem_.NoteAskedDirectory(file_.Path());
    return 1;
  }
  Enumeration enumeration{fileSystem_, callback, context};
  const int isRead = file_.EnumerateDirectory(&ShowAsSessionFile, &enumeration, flags);
  if (isRead == 0) fileSystem_.NoteIncomplete();
  return isRead;
}

}  // namespace ox::session
