#include "session/module_location.h"

#include <unistd.h>

#include <climits>

namespace ox::internal {
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

}  // namespace

// What is installed or built together belongs together, so that comes before the configured path,
// under which another version may stand.
std::string DefaultModulePath() {
  const std::string here = ExecutableDirectory();
  if (!here.empty()) {
    for (const char* directory :
         {"", "../" OX_LIBRARY_DIRECTORY "/oxfilecache/", "../lib/oxfilecache/", "../lib/"}) {
      std::string path = here + directory + kModuleName;
      if (IsReadable(path)) return path;
    }
  }
  return IsReadable(OX_CONFIGURED_MODULE) ? OX_CONFIGURED_MODULE : kModuleName;
}

}  // namespace ox::internal
