#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "host/session/durable_io.h"
#include "host/session/file_names.h"
#include "host/session/session_file_system.h"
#include "host/session/use_clock.h"
#include "string/ox_string.h"

namespace ox::host {
namespace {

// The files that an enumeration shows must be the session's too, since the module deletes them.
struct Enumeration {
  SessionFileSystem& fileSystem;
  os::filesystem::File::EnumerateCallback callback;
  void* context;
};

bool ShowAsSessionFile(os::filesystem::File& entry, bool isDirectory, void* context) {
  const auto& enumeration = *static_cast<const Enumeration*>(context);
  OxString path;
  entry.GetPath(path);
  SessionFile file(enumeration.fileSystem);
  if (file.SetPath(path.UTF8()) == 0) return true;
  return enumeration.callback(file, isDirectory, enumeration.context);
}

}  // namespace

int SessionFile::SetPath(const char* utf8Path) {
  Close();
  path_[0] = '\0';
  if (file_.SetPath(utf8Path) == 0) return 0;
  std::strcpy(path_, utf8Path);
  return 1;
}

int SessionFile::Open(int mode) {
  Close();
  if (fileSystem_.IsConfiguration(path_)) {
    source_ = Source::kConfiguration;
    return mode == kOpenRead && fileSystem_.HasConfiguration();
  }
  if (mode == kOpenWrite) {
    source_ = Source::kNowhere;
    return !fileSystem_.IsProbing();
  }
  return file_.Open(mode);
}

void SessionFile::Close() {
  file_.Close();
  source_ = Source::kFile;
  position_ = 0;
}

bool SessionFile::IsMetaData() const {
  constexpr std::size_t kSuffix = sizeof kMetaDataFileSuffix - 1;
  const std::size_t length = std::strlen(path_);
  return length >= kSuffix && std::strcmp(path_ + length - kSuffix, kMetaDataFileSuffix) == 0;
}

int SessionFile::Delete(int flags) {
  if (fileSystem_.IsProbing()) return 0;
  AnnounceFileOperation();
  struct stat status {};
  lstat(path_, &status);
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
  if (fileSystem_.IsConfiguration(path_)) return fileSystem_.HasConfiguration();
  return file_.Exists();
}

void SessionFile::GetPath(OxString& out) {
  file_.GetPath(out);
}

std::uint64_t SessionFile::GetSize() {
  return file_.GetSize();
}

std::uint64_t SessionFile::Read(std::uint64_t count, void* destination) {
  if (source_ != Source::kConfiguration) return file_.Read(count, destination);
  const std::size_t part = fileSystem_.ReadConfiguration(position_, destination, count);
  position_ += part;
  return part;
}

std::uint64_t SessionFile::Write(std::uint64_t count, const void* /*source*/) {
  return source_ == Source::kNowhere ? count : 0;
}

int SessionFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  if (fileSystem_.IsProbing()) {
    fileSystem_.NoteAskedDirectory(path_);
    return 1;
  }
  Enumeration enumeration{fileSystem_, callback, context};
  return file_.EnumerateDirectory(&ShowAsSessionFile, &enumeration, flags);
}

}  // namespace ox::host
