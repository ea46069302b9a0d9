// Files in a cache directory that belong to no entry.
#ifndef OX_SESSION_LEFTOVERS_H_
#define OX_SESSION_LEFTOVERS_H_

#include <cstdint>
#include <string>

#include "session/survey.h"
#include "session/unfinished_commits.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Deletes them: content without metadata, metadata without content, and staged files, except those
// of writers that are still at work and of commits that are blocked. Foreign files stay, and so
// does what this user may not delete. The number of files deleted is added to `deleted`.
Error DeleteLeftovers(const std::string& directory, const Survey& survey,
                      const IsBeingWritten& isBeingWritten, std::uint64_t* deleted);

}  // namespace ox::internal

#endif
