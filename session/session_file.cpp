#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "session/durable_io.h"
#include "session/session_file_system.h"
#include "session/use_clock.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::internal {
bool SessionFile::IsConfiguration() const {
  return fileSystem_.configuration_.Path() == file_.Path();
}

bool SessionFile::IsMetadata() const {
  return format::HasMetadataSuffix(file_.Path());
}

int SessionFile::SetPath(const char* utf8Path) {
  configuration_.Close();
  discardsWrites_ = false;
  shownBytes_.reset();
  const int isBound = file_.SetPath(utf8Path);
  // The module does not look at the result, and would take a file for missing.
  if (isBound == 0 && utf8Path != nullptr) fileSystem_.account_.MarkStale();
  return isBound;
}

bool SessionFile::IsShownContent() const {
  return !fileSystem_.shownContent_.empty() && fileSystem_.shownContent_ == file_.Path();
}

int SessionFile::Open(int mode) {
  if (IsConfiguration()) return configuration_.Open(mode);
  if (mode == kOpenWrite) {
    file_.Close();
    discardsWrites_ = true;
    return 1;
  }
  if (ShowsMetadata()) return 1;
  // Not closed before: the descriptor that Exists has opened serves.
  const int isOpen = file_.Open(mode);
  if (isOpen == 0) NoteFailedRead(errno);
  return isOpen;
}

void SessionFile::Close() {
  configuration_.Close();
  discardsWrites_ = false;
  file_.Close();
}

int SessionFile::Delete(int flags) {
  DiskAccount& account = fileSystem_.account_;
  // While the account is stale the module may have missed its configuration, and would delete
  // everything. A forked child has no lock.
  if (account.IsStale() || !fileSystem_.lock_.IsHeld()) return 0;
  AnnounceFileOperation();
  struct stat status {};
  lstat(file_.Path(), &status);
  const bool isDeleted = file_.Delete(flags) != 0;
  const int error = errno;
  if (IsMetadata()) {
    account.NoteMetadataDeletion(status, isDeleted, error);
  } else {
    fileSystem_.deletions_.Note(file_.Path());
    account.NoteContentDeletion(status, isDeleted, error);
    if (isDeleted) {
      fileSystem_.evictions_.NoteDeletion(file_.Path(), static_cast<std::uint64_t>(status.st_size));
    }
  }
  return isDeleted;
}

int SessionFile::Exists() {
  if (IsConfiguration()) return fileSystem_.configuration_.Exists();
  if (IsShownContent() || ShowsMetadata()) return 1;
  const int exists = file_.Exists();
  if (exists == 0) NoteFailedRead(errno);
  return exists;
}

void SessionFile::NoteFailedRead(int error) {
  if (IsMetadata()) fileSystem_.metadataRead_ = MetadataRead{error, 0, 0};
}

// The module's own watch for a lack of memory does not see what this side of the border lacks.
void SessionFile::GetPath(OxString& out) {
  const AllocationWatch watch;
  file_.GetPath(out);
  if (watch.Tripped()) fileSystem_.account_.MarkStale();
}

std::uint64_t SessionFile::GetSize() {
  if (shownBytes_) return *shownBytes_;
  return IsShownContent() ? fileSystem_.shownContentBytes_ : file_.GetSize();
}

std::uint64_t SessionFile::Read(std::uint64_t count, void* destination) {
  if (configuration_.IsOpen()) return configuration_.Read(count, destination);
  if (ShowsMetadata()) {
    const std::string_view text(fileSystem_.shownMetadata_);
    return text.copy(static_cast<char*>(destination), static_cast<std::size_t>(count));
  }
  // The module reads no other real files than metadata files. The status is asked of the open file,
  // which costs less than by its path.
  struct stat status;
  if (!file_.GetStatus(&status)) {
    NoteFailedRead(errno);
    return 0;
  }
  errno = 0;
  const std::uint64_t bytes = file_.Read(count, destination);
  fileSystem_.metadataRead_ =
      MetadataRead{bytes == 0 ? errno : 0, static_cast<std::uint64_t>(status.st_size),
                   ToNanoseconds(status.st_mtim)};
  return bytes;
}

std::uint64_t SessionFile::Write(std::uint64_t count, const void* /*source*/) {
  return discardsWrites_ ? count : 0;
}

// Shows the metadata files of entries alone: what else lies in the directory is none of the
// manager's business, and the survey has just looked at the sizes.
int SessionFile::EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) {
  if (fileSystem_.shownEntries_ == nullptr) return 0;
  try {
    const std::string prefix = std::string(file_.Path()) + "/";
    SessionFile file(fileSystem_);
    std::string path;
    for (const SurveyedEntry& entry : *fileSystem_.shownEntries_) {
      fileSystem_.shownContent_.assign(prefix).append(entry.name);
      fileSystem_.shownContentBytes_ = entry.contentBytes;
      path.assign(fileSystem_.shownContent_).append(format::kMetadataSuffix);
      if (file.SetPath(path.c_str()) == 0) break;
      file.shownBytes_ = entry.metadataBytes;
      if (!callback(file, false, context)) break;
    }
    fileSystem_.shownContent_.clear();
    return 1;
  } catch (const std::bad_alloc&) {
    fileSystem_.shownContent_.clear();
    fileSystem_.account_.MarkStale();
    return 0;
  }
}

}  // namespace ox::internal
