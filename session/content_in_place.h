// Whether a commit file without staged content still has something to finish.
//
// The content may be in place already. Or it was lost: somebody deleted it, or a power cut kept the
// commit file and not the name of the content. What lies in its place then belongs to the old
// metadata. The seal of the commit file tells the two apart.
#ifndef OX_SESSION_CONTENT_IN_PLACE_H_
#define OX_SESSION_CONTENT_IN_PLACE_H_

#include <string>

namespace ox::internal {

// Of a commit file and the content file of its entry. Where the commit file has no seal, any
// regular file there counts as its content. False with errno where it cannot be told: nothing may
// be deleted or put in place then.
bool IsContentInPlace(const std::string& commitPath, const std::string& contentPath,
                      bool* isInPlace);
// The same of open files.
bool IsContentInPlace(int commitFile, int contentFile, bool* isInPlace);

// Whether there is more of the staged content than the seal of its commit file says: its writer has
// gone on since it kept what was there (keep_as.cpp). While it does, the older entry serves.
bool IsOfGrowingContent(const std::string& directory, const std::string& commitName);

}  // namespace ox::internal

#endif
