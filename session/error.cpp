#include <cerrno>
#include <system_error>
#include <utility>

#include <oxfilecache/error.h>

namespace ox {

std::string Error::Message() const {
  std::string line = detail;
  if (!path.empty()) line += ": " + path;
  if (systemError != 0) line += ": " + std::generic_category().message(systemError);
  return line;
}

Error MakeError(ErrorKind kind, std::string detail) {
  return {kind, std::move(detail), {}, 0};
}

Error SystemError(std::string detail, std::string path) {
  return {ErrorKind::kInputOutput, std::move(detail), std::move(path), errno};
}

}  // namespace ox
