#include "tools/oxcache/default_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace ox::tools {
namespace {

std::string HomeDirectory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const passwd* user = getpwuid(getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

}  // namespace

std::string DefaultDirectory() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  // The convention for this variable says to ignore a relative path.
  if (cache != nullptr && cache[0] == '/') return std::string(cache) + "/oxcache";
  const std::string home = HomeDirectory();
  return home.empty() ? "" : home + "/.cache/oxcache";
}

}  // namespace ox::tools
