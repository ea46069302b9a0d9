#include "session/cache_location.h"

#include <unistd.h>

#include <climits>
#include <optional>
#include <string_view>

#include "session/configuration_snapshot.h"
#include "session/utf8.h"

namespace ox::internal {
namespace {

constexpr std::string_view kKey = "CACHE_DIRECTORY";

// None where the text leaves the directory as it is.
std::optional<std::string_view> CacheDirectoryIn(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  const std::size_t key = text.find(kKey);
  if (key == std::string_view::npos) return std::nullopt;
  const std::size_t sign = text.find_first_of("=\n", key + kKey.size());
  if (sign == std::string_view::npos || text[sign] == '\n') return std::nullopt;
  const std::size_t value = text.find_first_not_of(" \t", sign + 1);
  if (value == std::string_view::npos) return std::string_view();
  if (text[value] == '\n') return std::nullopt;
  return text.substr(value, text.find_first_of("\r\n", value) - value);
}

}  // namespace

Error MakeAbsolute(std::string* path) {
  if (path->empty() || path->front() == '/') return {};
  char working[PATH_MAX];
  if (getcwd(working, sizeof working) == nullptr) {
    return SystemError("cannot tell the working directory", *path);
  }
  *path = std::string(working) + "/" + *path;
  return {};
}

Error FindCacheDirectory(const std::string& directory, std::string* cacheDirectory) {
  ConfigurationSnapshot configuration;
  if (Error error = ConfigurationSnapshot::Read(directory, &configuration)) return error;
  const auto named = CacheDirectoryIn(configuration.Text());
  *cacheDirectory = named ? std::string(*named) : directory;
  if (named && (named->empty() || !IsAsciiText(*cacheDirectory))) {
    Error error = MakeError(ErrorKind::kConfiguration,
                            "CACHE_DIRECTORY is empty or has a character beyond ASCII");
    error.path = configuration.Path();
    return error;
  }
  return MakeAbsolute(cacheDirectory);
}

}  // namespace ox::internal
