// Putting a cache directory in order while no manager runs.
#ifndef OX_SESSION_RECOVERY_H_
#define OX_SESSION_RECOVERY_H_

#include <cstdint>
#include <functional>
#include <string>

#include "session/survey.h"
#include <oxfilecache/error.h>
#include <oxfilecache/session.h>

namespace ox::session {

// Surveys the directory after finishing every commit that was decided but not carried out.
// Synchronises the directory before a commit file goes, since after that nothing tells any more
// that the content belongs there.
Error RollForward(const std::string& directory, Survey* survey);

// Deletes what belongs to nobody: content without metadata, metadata without content, files being
// written unless `isLive` knows their ID. Strangers stay.
Error DeleteLeftovers(const std::string& directory, const Survey& survey,
                      const std::function<bool(const std::string& id)>& isLive);

// Deletes the entries that a scan would not admit, choosing so that the most recently used stay,
// and takes them out of the survey. Returns how many through `deleted`.
Error TrimToLimits(const std::string& directory, const CacheLimits& limits, Survey* survey,
                   std::uint64_t* deleted);

}  // namespace ox::session

#endif
