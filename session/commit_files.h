// The files of one commit, and the renamings that put them in place. Shared by the commit itself
// and by the recovery, which finishes what a crash interrupted.
//
// Two files cannot be renamed as one. To replace an entry, its new metadata is renamed to the
// commit file first: whoever finds the commit file finishes the rest. A new entry needs none:
// content without metadata belongs to no entry, and neither does metadata without content.
#ifndef OX_SESSION_COMMIT_FILES_H_
#define OX_SESSION_COMMIT_FILES_H_

#include <string>

#include "session/directory_lock.h"
#include <oxfilecache/error.h>

namespace ox::internal {

enum class Synchronise {
  kNever,
  kWherePossible,  // a directory that can never be synchronised does not count as a failure
  kAlways,
};

struct CommitFiles {
  // Of a staging ID and a content path. With the lock, which must outlive this, files are looked up
  // from the locked directory, otherwise by their whole paths.
  CommitFiles(const std::string& directory, const std::string& id, const std::string& contentPath,
              const DirectoryLock* lock = nullptr);

  // Both take whole paths; false with errno.
  bool Rename(const std::string& from, const std::string& to) const;
  bool Delete(const std::string& path) const;
  // True when the directory is on the medium as it is now.
  bool SynchroniseDirectory() const;

  // A directory under one of the entry's names would keep a commit from ever being finished.
  Error CheckTargets() const;

  // The two renamings that finish a commit whose commit file is made. The first is left out when
  // the content is in place already. Once the commit file is gone nothing tells any more where the
  // content belongs; with `synchronise` the content's name is on the medium before. False with
  // errno, and the commit can be finished later.
  bool Finish(bool isContentStaged, Synchronise synchronise) const;

  std::string directory;
  std::string stagedContent;
  std::string stagedMetadata;
  std::string commit;
  std::string content;
  std::string metadata;

 private:
  FileAt At(const std::string& path) const;

  const DirectoryLock* lock_;
};

}  // namespace ox::internal

#endif
