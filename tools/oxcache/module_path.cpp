#include "tools/oxcache/module_path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace ox::tools {
namespace {

bool IsReadable(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

std::string HomeDirectory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const passwd* user = getpwuid(getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

}  // namespace

std::string TypedModulePath(const std::string& typed) {
  if (typed.find('/') != std::string::npos || !IsReadable(typed)) return typed;
  return "./" + typed;
}

std::string DefaultDirectory() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  // The convention for this variable says to ignore a relative path.
  if (cache != nullptr && cache[0] == '/') return std::string(cache) + "/oxcache";
  const std::string home = HomeDirectory();
  return home.empty() ? "" : home + "/.cache/oxcache";
}

}  // namespace ox::tools
