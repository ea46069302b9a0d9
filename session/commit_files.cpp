#include "session/commit_files.h"

#include <cerrno>

#include "session/durable_io.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {

CommitFiles::CommitFiles(const std::string& cacheDirectory, const std::string& id,
                         const std::string& contentPath, bool isLogged)
    : directory(cacheDirectory),
      stagedContent(cacheDirectory + "/" + StagedContentName(id)),
      stagedMetaData(cacheDirectory + "/" + StagedMetaDataName(id)),
      commit(isLogged ? CommitFileName(contentPath, id) : stagedMetaData),
      content(contentPath),
      metaData(contentPath + format::kMetaDataSuffix) {}

Error CommitFiles::CheckTargets() const {
  for (const std::string* target : {&content, &metaData}) {
    if (!IsOwnDirectory(*target)) continue;
    errno = EISDIR;
    return SystemError("cannot put the entry in place", *target);
  }
  return {};
}

bool CommitFiles::PutInPlace(bool isContentStaged, bool synchronise) const {
  if (isContentStaged && !RenameFile(stagedContent, content)) return false;
  if (synchronise && !SyncDirectory(directory)) return false;
  return RenameFile(commit, metaData);
}

}  // namespace ox::internal
