#include "tools/oxcache/byte_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

namespace ox::tools {
namespace {

constexpr char kStandard[] = "-";

// A descriptor above 2: those below may be closed or reopened by other parts of the program.
int Duplicate(int fd) {
  return fcntl(fd, F_DUPFD_CLOEXEC, 3);
}

// A file that does not exist or a plain one is replaced; a device, a FIFO or what a link leads to
// is written to.
bool IsReplaceable(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return errno == ENOENT;
  return S_ISREG(status.st_mode);
}

// A file that only its owner can read stays so.
mode_t ModeFor(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0666;
}

}  // namespace

Error WriteBytes(int fd, const std::string& name, const void* data, std::size_t bytes) {
  const char* next = static_cast<const char*>(data);
  while (bytes > 0) {
    const ssize_t written = write(fd, next, bytes);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return SystemError("cannot write", name);
    next += written;
    bytes -= static_cast<std::size_t>(written);
  }
  return {};
}

std::unique_ptr<Input> Input::Open(const std::string& path, Error* error) {
  const bool isStandard = path == kStandard;
  UniqueFd fd(isStandard ? Duplicate(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const std::string name = isStandard ? "standard input" : path;
  if (!fd.IsOpen()) {
    *error = SystemError("cannot open for reading", name);
    return nullptr;
  }
  return std::make_unique<Input>(std::move(fd), name);
}

std::unique_ptr<Input> Input::OpenEntryFile(const std::string& path, Error* error) {
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd.IsOpen()) {
    *error = SystemError("cannot open for reading", path);
    return nullptr;
  }
  struct stat status;
  if (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    *error = MakeError(ErrorKind::kInputOutput, "not a regular file: " + path);
    return nullptr;
  }
  return std::make_unique<Input>(std::move(fd), path);
}

Input::Input(UniqueFd fd, std::string name) : fd_(std::move(fd)), name_(std::move(name)) {}

Error Input::Read(void* data, std::size_t capacity, std::size_t* bytes) {
  *bytes = 0;
  for (;;) {
    const ssize_t got = read(fd_.Get(), data, capacity);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return SystemError("cannot read", name_);
    *bytes = static_cast<std::size_t>(got);
    return {};
  }
}

std::uint64_t Input::KnownSize() const {
  struct stat status;
  if (fstat(fd_.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  return static_cast<std::uint64_t>(status.st_size);
}

std::unique_ptr<Output> Output::Open(const std::string& path, Error* error) {
  const bool isStandard = path == kStandard;
  const std::string name = isStandard ? "standard output" : path;
  if (!isStandard && IsReplaceable(path)) {
    auto file = TemporaryFile::Create(path, ModeFor(path), error);
    if (file == nullptr) return nullptr;
    return std::unique_ptr<Output>(new Output(std::move(file), name));
  }
  UniqueFd fd(isStandard ? Duplicate(STDOUT_FILENO)
                         : open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!fd.IsOpen()) {
    *error = SystemError("cannot open for writing", name);
    return nullptr;
  }
  return std::unique_ptr<Output>(new Output(std::move(fd), name));
}

Output::Output(UniqueFd inPlace, std::string name)
    : inPlace_(std::move(inPlace)), name_(std::move(name)) {}

Output::Output(std::unique_ptr<TemporaryFile> file, std::string name)
    : file_(std::move(file)), name_(std::move(name)) {}

Error Output::Write(const void* data, std::size_t bytes) {
  return WriteBytes(file_ != nullptr ? file_->Get() : inPlace_.Get(), name_, data, bytes);
}

Error Output::WriteAllOf(Input& input) {
  std::vector<char> piece(kPieceBytes);
  for (;;) {
    std::size_t bytes = 0;
    if (Error error = input.Read(piece.data(), piece.size(), &bytes)) return error;
    if (bytes == 0) return {};
    if (Error error = Write(piece.data(), bytes)) return error;
  }
}

Error Output::Commit() {
  return file_ != nullptr ? file_->PutInPlace() : Error{};
}

}  // namespace ox::tools
