#include "tools/oxcache/module_path.h"

#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace ox::tools {
namespace {

constexpr char kModuleName[] = "libox_file_cache.so";

bool IsReadable(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

// With a "/" at its end; empty when /proc is not mounted.
std::string ExecutableDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return "";
  const std::string text(path, static_cast<std::size_t>(length));
  return text.substr(0, text.rfind('/') + 1);
}

std::string HomeDirectory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const passwd* user = getpwuid(getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

}  // namespace

std::string DefaultModulePath() {
  const std::string here = ExecutableDirectory();
  if (!here.empty()) {
    for (const char* directory :
         {"", "../" OX_LIBRARY_DIRECTORY "/oxfilecache/", "../lib/oxfilecache/", "../lib/"}) {
      std::string path = here + directory + kModuleName;
      if (IsReadable(path)) return path;
    }
  }
  return kModuleName;
}

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
