#include "session/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "session/durable_io.h"
#include "session/session_names.h"

namespace ox::internal {
namespace {

std::string HolderOf(int fd) {
  char text[32];
  const ssize_t count = pread(fd, text, sizeof text, 0);
  const std::string holder(text, count > 0 ? static_cast<std::size_t>(count) : 0);
  return holder.substr(0, holder.find_first_not_of("0123456789"));
}

Error InUse(int fd, const std::string& path) {
  const std::string holder = HolderOf(fd);
  Error error =
      MakeError(ErrorKind::kInUse, holder.empty() ? "another process has the cache"
                                                  : "process " + holder + " has the cache");
  error.path = path;
  return error;
}

}  // namespace

Error LockDirectory(const std::string& directory, UniqueFd* lock) {
  const std::string path = directory + "/" + kLockFileName;
  int fd = -1;
  do {
    fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  } while (fd < 0 && errno == EINTR);
  UniqueFd file(fd);
  if (!file.IsOpen()) return SystemError("cannot open the lock file", path);
  if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? InUse(file.Get(), path)
                                : SystemError("cannot lock the cache", path);
  }
  const std::string holder = std::to_string(getpid()) + "\n";
  if (ftruncate(file.Get(), 0) != 0 || !WriteAll(file.Get(), holder.data(), holder.size())) {
    return SystemError("cannot write the lock file", path);
  }
  *lock = std::move(file);
  return {};
}

}  // namespace ox::internal
