// Putting a cache directory in order while no manager runs.
#ifndef OX_SESSION_RECOVERY_H_
#define OX_SESSION_RECOVERY_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "session/allocation_unit.h"
#include "session/eviction_log.h"
#include "session/survey.h"
#include <oxfilecache/session.h>

namespace ox::internal {

// Errors for which a start leaves a file as it is and goes on. This user may not change the file,
// as in a directory with the sticky bit; or the file system has turned read-only, or has no room to
// write down a change. What is there can still be fetched.
bool MayGoOnAfter(int error);
// Of these errors, those that may be gone at the next start.
bool MayBeGoneLater(int error);
// The errno of a medium that does not give back what was written.
bool MeansUnreadable(int error);

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

// Deletes the files that belong to no entry: content without metadata, metadata without content,
// and staged files, except those of writers that are still at work and of commits that are blocked.
// Foreign files stay, and so does what this user may not delete. The number of files deleted is
// added to `deleted`.
Error DeleteLeftovers(const std::string& directory, const Survey& survey,
                      const IsBeingWritten& isBeingWritten, std::uint64_t* deleted);

// Deletes the files of an entry, and notes it as evicted where there is a reason.
Error DeleteEntry(const std::string& directory, const SurveyedEntry& entry,
                  std::optional<session::EvictionReason> reason, EvictionLog& evictions);

// Entries whose time of use is impossible become the least recently used ones, on disk too.
void ResetImpossibleTimes(const std::string& directory, Survey* survey);

// Deletes the entries that a scan would not admit, choosing so that the most recently used stay,
// and takes them out of the survey, also those that this user may not delete.
Error TrimToLimits(const std::string& directory, const session::CacheLimits& limits,
                   const AllocationUnit& unit, Survey* survey, EvictionLog& evictions);

}  // namespace ox::internal

#endif
