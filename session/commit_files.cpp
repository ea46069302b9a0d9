#include "session/commit_files.h"

#include <cerrno>

#include "session/durable_io.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {

CommitFiles::CommitFiles(const std::string& cacheDirectory, const std::string& id,
                         const std::string& contentPath)
    : directory(cacheDirectory),
      stagedContent(cacheDirectory + "/" + StagedContentName(id)),
      stagedMetadata(cacheDirectory + "/" + StagedMetadataName(id)),
      commit(CommitFileName(contentPath, id)),
      content(contentPath),
      metadata(contentPath + format::kMetadataSuffix) {}

Error CommitFiles::CheckTargets() const {
  for (const std::string* target : {&content, &metadata}) {
    if (!IsOwnDirectory(*target)) continue;
    errno = EISDIR;
    return SystemError("cannot put the entry in place", *target);
  }
  return {};
}

bool CommitFiles::Finish(bool isContentStaged, Synchronise synchronise) const {
  if (isContentStaged && !RenameFile(stagedContent, content)) return false;
  if (synchronise != Synchronise::kNever && !SyncDirectory(directory)) {
    if (synchronise == Synchronise::kAlways || !IsLastingRefusal(errno)) return false;
  }
  if (RenameFile(commit, metadata)) return true;
  const int error = errno;
  // Somebody deleted the commit file. The old metadata would pass for that of the new content.
  if (error == ENOENT) DeleteFile(metadata);
  errno = error;
  return false;
}

}  // namespace ox::internal
