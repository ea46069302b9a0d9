#include "session/commit_files.h"

#include <cerrno>

#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {

CommitFiles::CommitFiles(const std::string& cacheDirectory, const std::string& id,
                         const std::string& contentPath, const DirectoryLock* lock)
    : directory(cacheDirectory),
      stagedContent(StagedContentPath(cacheDirectory, id)),
      stagedMetadata(StagedMetadataPath(cacheDirectory, id)),
      commit(CommitFileName(contentPath, id)),
      content(contentPath),
      metadata(Joined({contentPath, format::kMetadataSuffix})),
      lock_(lock) {}

FileAt CommitFiles::At(const std::string& path) const {
  return lock_ != nullptr ? lock_->At(path) : FileAt(path);
}

bool CommitFiles::Rename(const std::string& from, const std::string& to) const {
  return RenameFile(At(from), At(to));
}

bool CommitFiles::Delete(const std::string& path) const {
  return DeleteFile(At(path));
}

bool CommitFiles::SynchroniseDirectory() const {
  return lock_ != nullptr ? lock_->Synchronise() : SyncDirectory(directory);
}

Error CommitFiles::CheckTargets() const {
  for (const std::string* target : {&content, &metadata}) {
    if (!IsOwnDirectory(At(*target))) continue;
    errno = EISDIR;
    return SystemError("cannot put the entry in place", *target);
  }
  return {};
}

bool CommitFiles::Finish(bool isContentStaged, Synchronise synchronise) const {
  if (isContentStaged && !Rename(stagedContent, content)) return false;
  if (synchronise != Synchronise::kNever && !SynchroniseDirectory()) {
    if (synchronise == Synchronise::kAlways || !IsLastingRefusal(errno)) return false;
  }
  if (Rename(commit, metadata)) return true;
  const int error = errno;
  // Somebody deleted the commit file. The old metadata would pass for that of the new content.
  if (error == ENOENT) Delete(metadata);
  errno = error;
  return false;
}

}  // namespace ox::internal
