#include "session/session_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <string_view>

#include "session/durable_io.h"
#include "session/use_clock.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::internal {

bool SessionFile::IsConfiguration() const {
  return shown_.Configuration().Path() == file_.Path();
}

bool SessionFile::IsMetadata() const {
  return format::HasMetadataSuffix(file_.Path());
}

int SessionFile::SetPath(const char* utf8Path) {
  configuration_.Close();
  discardsWrites_ = false;
  const int isBound = file_.SetPath(utf8Path);
  // The module does not look at the result, and would take a file for missing.
  if (isBound == 0 && utf8Path != nullptr) listener_.NoteOversight();
  return isBound;
}

int SessionFile::Open(int mode) {
  if (IsConfiguration()) return configuration_.Open(mode);
  if (mode == kOpenWrite) {
    file_.Close();
    discardsWrites_ = true;
    return 1;
  }
  if (IsShownMetadata()) return 1;
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
  if (!listener_.MayDelete()) return 0;
  AnnounceFileOperation();
  struct stat status {};
  lstat(file_.Path(), &status);
  const bool isDeleted = file_.Delete(flags) != 0;
  const int error = errno;
  if (IsMetadata()) {
    listener_.NoteMetadataDeletion(status, isDeleted, error);
  } else {
    listener_.NoteContentDeletion(file_.Path(), status, isDeleted, error);
  }
  return isDeleted;
}

int SessionFile::Exists() {
  if (IsConfiguration()) return shown_.Configuration().Exists();
  if (shown_.IsVisitedContent(file_.Path()) || IsShownMetadata()) return 1;
  const int exists = file_.Exists();
  if (exists == 0) NoteFailedRead(errno);
  return exists;
}

void SessionFile::NoteFailedRead(int error) {
  if (IsMetadata()) listener_.NoteMetadataRead({error, 0, 0});
}

// The module's own watch for a lack of memory does not see what this side of the border lacks.
void SessionFile::GetPath(OxString& out) {
  const AllocationWatch watch;
  file_.GetPath(out);
  if (watch.Tripped()) listener_.NoteOversight();
}

std::uint64_t SessionFile::GetSize() {
  if (shown_.HasNoContent() && !IsMetadata()) return 0;
  const auto visited = shown_.VisitedSize(file_.Path());
  return visited ? *visited : file_.GetSize();
}

std::uint64_t SessionFile::Read(std::uint64_t count, void* destination) {
  if (configuration_.IsOpen()) return configuration_.Read(count, destination);
  if (IsShownMetadata()) {
    const std::string_view text(shown_.Metadata());
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
  listener_.NoteMetadataRead({bytes == 0 ? errno : 0, static_cast<std::uint64_t>(status.st_size),
                              ToNanoseconds(status.st_mtim)});
  return bytes;
}

std::uint64_t SessionFile::Write(std::uint64_t count, const void* /*source*/) {
  return discardsWrites_ ? count : 0;
}

int SessionFile::EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) {
  try {
    SessionFile file(surroundings_);
    return shown_.VisitEntries(file_.Path(), [&](const char* metadata) {
      return file.SetPath(metadata) != 0 && callback(file, false, context);
    });
  } catch (const std::bad_alloc&) {
    listener_.NoteOversight();
    return 0;
  }
}

}  // namespace ox::internal
