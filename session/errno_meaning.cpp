#include "session/errno_meaning.h"

#include <cerrno>

namespace ox::internal {

bool MeansNoSpace(int error) {
  return error == ENOSPC || error == EDQUOT;
}

bool IsLastingRefusal(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
         error == EACCES || error == EBADF || error == ENOTTY;
}

bool MayGoOnAfter(int error) {
  return IsLastingRefusal(error) || MayBeGoneLater(error);
}

bool MayBeGoneLater(int error) {
  return error == EROFS || MeansNoSpace(error);
}

bool MeansUnreadable(int error) {
  return error == EIO || error == EBADMSG || error == EUCLEAN;
}

}  // namespace ox::internal
