#include "http/unnamed_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace ox::internal::http {
namespace {

constexpr std::size_t kPieceBytes = 65536;

}  // namespace

std::string DirectoryOrDefault(const std::string& directory) {
  if (!directory.empty()) return directory;
  const char* fromEnvironment = std::getenv("TMPDIR");
  return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : "/tmp";
}

UniqueFd MakeUnnamedFile(const std::string& directory, Error* error) {
  const std::string place = DirectoryOrDefault(directory);
  UniqueFd file(open(place.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file.IsOpen()) return file;
  // Not every file system has files without names.
  std::string name = place + "/oxfilecache-XXXXXX";
  file.Reset(mkostemp(name.data(), O_CLOEXEC));
  if (file.IsOpen()) {
    unlink(name.c_str());
  } else {
    *error = SystemError("cannot make a temporary file in", place);
  }
  return file;
}

Error ReadAll(int file, std::uint64_t bytes,
              const std::function<Error(const char*, std::size_t)>& take) {
  std::vector<char> piece(static_cast<std::size_t>(
      std::min<std::uint64_t>(kPieceBytes, std::max<std::uint64_t>(bytes, 1))));
  const off_t start = lseek(file, 0, SEEK_CUR);
  for (std::uint64_t offset = 0; offset < bytes;) {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), bytes - offset));
    const ssize_t got = pread(file, piece.data(), wanted, start + static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return SystemError("cannot read a stored body", {});
    if (got == 0) return MakeError(ErrorKind::kInputOutput, "a stored body is shorter than it was");
    if (Error error = take(piece.data(), static_cast<std::size_t>(got))) return error;
    offset += static_cast<std::uint64_t>(got);
  }
  return {};
}

}  // namespace ox::internal::http
