// The entries that a survey has found, put right or deleted while no manager looks after them.
#ifndef OX_SESSION_SURVEYED_ENTRIES_H_
#define OX_SESSION_SURVEYED_ENTRIES_H_

#include <optional>
#include <string>

#include "session/allocation_unit.h"
#include "session/eviction_log.h"
#include "session/survey.h"
#include <oxfilecache/session.h>

namespace ox::internal {

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
