// What the errno of a failed step says: whether the medium, the file system or this user's rights
// are to blame, and for how long.
#ifndef OX_SESSION_ERRNO_MEANING_H_
#define OX_SESSION_ERRNO_MEANING_H_

namespace ox::internal {

// A disk or a quota is full.
bool MeansNoSpace(int error);
// A refusal that lasts: the file system cannot do this at all, or not for this user.
bool IsLastingRefusal(int error);
// What this user may not change, for example in a directory with the sticky bit, stays. So does all
// on a file system that has turned read-only or has no room to write down a change: what is there
// can still be fetched.
bool MeansItStays(int error);
// Of these, what may be over before the next start.
bool MayPass(int error);
// The medium does not give back what was written.
bool MeansUnreadable(int error);

}  // namespace ox::internal

#endif
