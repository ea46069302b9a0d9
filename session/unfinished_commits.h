// Commits that a crash, a power cut or a full disk has interrupted: decided, and not in place.
#ifndef OX_SESSION_UNFINISHED_COMMITS_H_
#define OX_SESSION_UNFINISHED_COMMITS_H_

#include <functional>
#include <string>

#include "session/eviction_log.h"
#include "session/survey.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Whether the staged files of that ID are those of a writer that is still at work.
using IsBeingWritten = std::function<bool(const std::string& id)>;

// Finishes every commit that was decided and not put in place, and those of what writers that are
// gone have kept (StoreWriter::KeepAs), then surveys the directory. Where the disk is full, a few
// old entries are evicted for it; without a log none are.
//
// A commit counts as blocked that this user may not finish, that a disk which stays full or has
// turned read-only keeps from being finished, or whose content cannot be read to tell whether it is
// the new one. Where the old metadata may be beside the new content, the survey leaves that entry
// out.
Error FinishCommits(const std::string& directory, const IsBeingWritten& isBeingWritten,
                    EvictionLog* evictions, Survey* survey);

// Whether a blocked commit waits for the staged content of that ID.
bool IsOfBlockedCommit(const Survey& survey, const std::string& id);

// Deletes a blocked commit, so that its entry can be changed; where the survey has left that out,
// its metadata too.
Error GiveUpCommit(const std::string& directory, const std::string& commitName);

}  // namespace ox::internal

#endif
