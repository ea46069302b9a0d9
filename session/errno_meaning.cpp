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

bool MeansItStays(int error) {
  return IsLastingRefusal(error) || MayPass(error);
}

bool MayPass(int error) {
  return error == EROFS || MeansNoSpace(error);
}

bool MeansUnreadable(int error) {
  return error == EIO || error == EBADMSG || error == EUCLEAN;
}

}  // namespace ox::internal
