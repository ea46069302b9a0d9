#include "tools/oxcache/without_session.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace ox::tools {
namespace {

// As /proc/locks writes it: "08:02:131".
std::string PlaceOf(const struct stat& status) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%02x:%02x:%llu", major(status.st_dev),
                minor(status.st_dev), static_cast<unsigned long long>(status.st_ino));
  return text.data();
}

// The number of the process that has the directory locked, as far as the system tells. To try the
// lock would keep a session from opening at that moment.
std::string LockHolder(const std::string& directory) {
  struct stat status;
  if (stat(directory.c_str(), &status) != 0) return "";
  const std::string place = PlaceOf(status);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number;
    std::string kind;
    std::string strength;
    std::string access;
    std::string process;
    std::string lockedPlace;
    words >> number >> kind >> strength >> access >> process >> lockedPlace;
    if (kind == "FLOCK" && access == "WRITE" && lockedPlace == place) return process;
  }
  return "";
}

}  // namespace

bool LeavesReading(const Error& error) {
  return error.kind == ErrorKind::kInUse || error.systemError == EACCES ||
         error.systemError == EPERM || error.systemError == EROFS;
}

std::unique_ptr<session::CacheReader> OpenReader(const Context& context, Error* error) {
  if ((*error = context.CheckDirectory())) return nullptr;
  session::ReaderOptions options;
  options.directory = context.Options().directory;
  return session::CacheReader::Open(options, error);
}

void TellWhyNoSession(const Context& context, const std::string& cacheDirectory) {
  if (context.HasSession() || access(cacheDirectory.c_str(), F_OK) != 0) return;
  const std::string holder = LockHolder(cacheDirectory);
  if (!holder.empty()) {
    context.Tell("process " + holder + " has the cache; this is how it looks at the moment");
  } else if (faccessat(AT_FDCWD, cacheDirectory.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    context.Tell(SystemError("cannot write in the cache directory", cacheDirectory).Message() +
                 "; it is only read");
  }
}

}  // namespace ox::tools
