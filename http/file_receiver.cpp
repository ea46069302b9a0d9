#include "http/file_receiver.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <utility>

#include "session/durable_io.h"

namespace ox::internal::http {
namespace {

constexpr int kTries = 100;

// In the directory of the path, and not given a second time by this process.
std::string NextName(const std::string& path) {
  static std::atomic<unsigned> number{0};
  return path + "." + std::to_string(getpid()) + "-" + std::to_string(++number) + ".part";
}

// A private file that is replaced stays private.
bool TakeMode(int file, const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) != 0 || fchmod(file, status.st_mode & 0777U) == 0;
}

}  // namespace

FileReceiver::FileReceiver(std::string path) : path_(std::move(path)) {}

FileReceiver::~FileReceiver() {
  if (!temporaryPath_.empty()) unlink(temporaryPath_.c_str());
}

Error FileReceiver::OnBegin() {
  if (file_.IsOpen()) {
    const bool isEmpty = ftruncate(file_.Get(), 0) == 0 && lseek(file_.Get(), 0, SEEK_SET) == 0;
    return isEmpty ? Error{} : SystemError("cannot write", path_);
  }
  // Another process that was killed may have left a file of such a name.
  for (int tries = 0; tries < kTries && !file_.IsOpen(); ++tries) {
    temporaryPath_ = NextName(path_);
    file_.Reset(open(temporaryPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file_.IsOpen() && errno != EEXIST) break;
  }
  if (file_.IsOpen()) return {};
  temporaryPath_.clear();
  return SystemError("cannot make a temporary file for", path_);
}

Error FileReceiver::OnData(const void* data, std::size_t bytes) {
  return WriteAll(file_.Get(), data, bytes) ? Error{} : SystemError("cannot write", path_);
}

Error FileReceiver::PutInPlace() {
  if (temporaryPath_.empty()) return {};
  if (!TakeMode(file_.Get(), path_)) return SystemError("cannot write", path_);
  // Some file systems report only now that there was no room.
  if (close(file_.Release()) != 0 && errno != EINTR) return SystemError("cannot write", path_);
  if (!RenameFile(temporaryPath_, path_)) {
    return SystemError("cannot put the finished file in place", path_);
  }
  temporaryPath_.clear();
  return {};
}

}  // namespace ox::internal::http
