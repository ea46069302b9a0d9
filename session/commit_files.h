// The files of one commit, and the renamings that put them in place. Shared by the commit itself
// and by the recovery, which finishes what a crash interrupted.
//
// Two files cannot be renamed as one. The staged metadata is renamed to the commit file first: from
// then on the new entry is decided, and whoever finds the commit file finishes the rest.
#ifndef OX_SESSION_COMMIT_FILES_H_
#define OX_SESSION_COMMIT_FILES_H_

#include <string>

#include <oxfilecache/error.h>

namespace ox::internal {

struct CommitFiles {
  // Of a staging ID and a content path. Without a log the staged metadata takes the place of the
  // commit file: nothing is decided before both are in place.
  CommitFiles(const std::string& directory, const std::string& id, const std::string& contentPath,
              bool isLogged);

  // A directory under one of the entry's names would keep a decided commit from ever being
  // finished.
  Error CheckTargets() const;

  // Renames the content, unless it is in place already, then the commit file. Once that is gone
  // nothing tells any more where the content belongs; with `synchronise` the content's name is on
  // the medium before. False with errno, and the commit can be finished later.
  bool PutInPlace(bool isContentStaged, bool synchronise) const;

  std::string directory;
  std::string stagedContent;
  std::string stagedMetaData;
  std::string commit;
  std::string content;
  std::string metaData;
};

}  // namespace ox::internal

#endif
