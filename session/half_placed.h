// Replacements of which a power cut has kept the metadata's renaming and not the content's.
//
// A commit synchronises the directory when its commit file is made, and no more: of the two
// renamings after that the medium may have kept either, none or both. Where it kept the second one
// alone, the new metadata stands beside the old content, and nothing but the staged content's own
// name tells where that belongs. The seal of the metadata does: it holds the length and the sum of
// the content that was committed with it.
#ifndef OX_SESSION_HALF_PLACED_H_
#define OX_SESSION_HALF_PLACED_H_

#include <string>

#include "session/survey.h"
#include "session/unfinished_commits.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Renames each such staged content to the content file of its entry, in the survey too, which is
// that of the directory after FinishCommits. Looks at the entries only where content was left
// staged that no writer is still at work on. What may not be renamed or cannot be read now stays
// for a later start, and an entry that lacks it is left out of the survey. An error where no
// descriptor or no memory is left to find that out.
Error PlaceContents(const std::string& directory, const IsBeingWritten& isBeingWritten,
                    Survey* survey);

}  // namespace ox::internal

#endif
