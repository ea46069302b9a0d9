#include "tools/oxcache/temporary_file.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <utility>

#include "session/durable_io.h"

namespace ox::tools {
namespace {

constexpr char kPrefix[] = "oxcache-";
constexpr char kSuffix[] = ".part";
constexpr std::size_t kDigits = 16;
// That many random names are taken only when something makes files as fast as they are tried.
constexpr int kTries = 100;

// Without waiting: where the kernel has no random bytes yet the time must do, since O_EXCL protects
// against a guessed name as well.
std::uint64_t RandomNumber() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  auto number = static_cast<std::uint64_t>(now.tv_nsec);
  [[maybe_unused]] const ssize_t bytes = getrandom(&number, sizeof number, GRND_NONBLOCK);
  return number;
}

std::string RandomName() {
  std::array<char, kDigits + 1> digits;
  std::snprintf(digits.data(), digits.size(), "%016" PRIx64, RandomNumber());
  return kPrefix + std::string(digits.data()) + kSuffix;
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameIn(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool SynchronizeDirectory(int directory) {
  // The held descriptor does not allow it.
  const UniqueFd readable(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return readable.IsOpen() && internal::SyncFile(readable.Get());
}

}  // namespace

std::unique_ptr<TemporaryFile> TemporaryFile::Create(const std::string& path, mode_t mode,
                                                     Error* error) {
  UniqueFd directory(open(DirectoryOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory.IsOpen()) {
    *error = SystemError("cannot open the directory for writing", DirectoryOf(path));
    return nullptr;
  }
  std::unique_ptr<TemporaryFile> file(new TemporaryFile(path, std::move(directory)));
  *error = file->Open(mode);
  return *error ? nullptr : std::move(file);
}

TemporaryFile::TemporaryFile(std::string path, UniqueFd directory)
    : path_(std::move(path)), directory_(std::move(directory)) {}

TemporaryFile::~TemporaryFile() {
  if (!name_.empty()) unlinkat(directory_.Get(), name_.c_str(), 0);
}

Error TemporaryFile::Open(mode_t mode) {
  for (int tries = 0; tries < kTries; ++tries) {
    const std::string name = RandomName();
    // Before the file exists, so that no signal comes between.
    deletedOnSignal_.emplace(directory_.Get(), name);
    file_.Reset(openat(directory_.Get(), name.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (file_.IsOpen()) {
      name_ = name;
      return {};
    }
    if (errno != EEXIST && errno != EINTR) break;
  }
  const int systemError = errno;
  deletedOnSignal_.reset();
  errno = systemError;
  return SystemError("cannot make a temporary file for", path_);
}

Error TemporaryFile::PutInPlace() {
  // Some file systems report only now that there was no room.
  if (close(file_.Release()) != 0 && errno != EINTR) return SystemError("cannot write", path_);
  const std::string target = NameIn(path_);
  if (renameat(directory_.Get(), name_.c_str(), directory_.Get(), target.c_str()) != 0) {
    return SystemError("cannot put the finished file in place", path_);
  }
  name_.clear();
  deletedOnSignal_.reset();
  return {};
}

Error TemporaryFile::PutInPlaceOnMedium() {
  if (!internal::SyncFile(file_.Get())) return SystemError("cannot bring to the medium", path_);
  if (Error error = PutInPlace()) return error;
  return SynchronizeDirectory(directory_.Get())
             ? Error{}
             : SystemError("cannot bring to the medium", DirectoryOf(path_));
}

bool IsTemporaryName(const std::string& name) {
  std::string pattern = kPrefix;
  for (std::size_t digit = 0; digit < kDigits; ++digit)
    pattern += "[0-9a-f]";
  return fnmatch((pattern + kSuffix).c_str(), name.c_str(), 0) == 0;
}

}  // namespace ox::tools
