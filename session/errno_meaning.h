// What the errno of a failed step says: whether the medium, the file system or this user's rights
// are to blame, and for how long.
#ifndef OX_SESSION_ERRNO_MEANING_H_
#define OX_SESSION_ERRNO_MEANING_H_

namespace ox::internal {

// A disk or a quota is full.
bool MeansNoSpace(int error);
// A refusal that lasts: the file system cannot do this at all, or not for this user.
bool IsLastingRefusal(int error);
// Errors for which a start leaves a file as it is and goes on. This user may not change the file,
// for example in a directory with the sticky bit; or the file system has turned read-only, or has
// no room to write down a change. What is there can still be fetched.
bool MayGoOnAfter(int error);
// Of these errors, those that may be gone at the next start.
bool MayBeGoneLater(int error);
// The medium does not give back what was written.
bool MeansUnreadable(int error);

}  // namespace ox::internal

#endif
