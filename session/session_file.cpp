#include <sys/stat.h>

#include <cerrno>

#include "session/durable_io.h"
#include "session/session_file_system.h"
#include "session/use_clock.h"
#include <oxfilecache/format.h>
#include <oxfilecache/string.h>

namespace ox::internal {
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
  file.StandFor(static_cast<PosixFile&>(entry));
  return enumeration.callback(file, isDirectory, enumeration.context);
}

}  // namespace

bool SessionFile::IsConfiguration() const {
  return fileSystem_.configuration_.Path() == file_.Path();
}

bool SessionFile::IsMetaData() const {
  return format::HasMetaDataSuffix(file_.Path());
}

int SessionFile::SetPath(const char* utf8Path) {
  configuration_.Close();
  discardsWrites_ = false;
  return file_.SetPath(utf8Path);
}

void SessionFile::StandFor(PosixFile& entry) {
  SetPath(entry.Path());
  file_.RememberSize(entry.GetSize());
}

int SessionFile::Open(int mode) {
  if (IsConfiguration()) return configuration_.Open(mode);
  if (mode == kOpenWrite) {
    file_.Close();
    discardsWrites_ = true;
    return 1;
  }
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
  // After a failure the module may have missed its configuration, and would delete everything.
  if (account.IsStale()) return 0;
  AnnounceFileOperation();
  struct stat status {};
  lstat(file_.Path(), &status);
  const bool isDeleted = file_.Delete(flags) != 0;
  const int error = errno;
  const auto bytes = static_cast<std::uint64_t>(status.st_size);
  if (IsMetaData()) {
    account.NoteMetaDataDeletion(isDeleted, bytes, ToNanoseconds(status.st_mtim), error);
  } else {
    account.NoteContentDeletion(isDeleted, bytes, error);
  }
  return isDeleted;
}

int SessionFile::Exists() {
  if (IsConfiguration()) return fileSystem_.configuration_.Exists();
  const int exists = file_.Exists();
  if (exists == 0) NoteFailedRead(errno);
  return exists;
}

void SessionFile::NoteFailedRead(int error) {
  if (IsMetaData()) fileSystem_.metaDataRead_ = MetaDataRead{error, 0, 0};
}

void SessionFile::GetPath(OxString& out) {
  file_.GetPath(out);
}

std::uint64_t SessionFile::GetSize() {
  return file_.GetSize();
}

std::uint64_t SessionFile::Read(std::uint64_t count, void* destination) {
  if (configuration_.IsOpen()) return configuration_.Read(count, destination);
  // Of all real files the module reads the metadata files alone. Asked while the file is open,
  // which costs less than by its path.
  struct stat status;
  if (!file_.GetStatus(&status)) {
    NoteFailedRead(errno);
    return 0;
  }
  errno = 0;
  const std::uint64_t bytes = file_.Read(count, destination);
  fileSystem_.metaDataRead_ =
      MetaDataRead{bytes == 0 ? errno : 0, static_cast<std::uint64_t>(status.st_size),
                   ToNanoseconds(status.st_mtim)};
  return bytes;
}

std::uint64_t SessionFile::Write(std::uint64_t count, const void* /*source*/) {
  return discardsWrites_ ? count : 0;
}

int SessionFile::EnumerateDirectory(EnumerateCallback callback, void* context, int flags) {
  Enumeration enumeration{fileSystem_, callback, context};
  const int isRead = file_.EnumerateDirectory(&ShowAsSessionFile, &enumeration, flags);
  if (isRead == 0) fileSystem_.account_.MarkStale();
  return isRead;
}

}  // namespace ox::internal
