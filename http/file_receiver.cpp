#include "http/file_receiver.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "session/durable_io.h"

namespace ox::internal::http {
namespace {

// That of the file that is replaced; otherwise what others may read, as of any new file. umask(2)
// can only be asked by changing it, which other threads would notice.
mode_t ModeFor(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0644U;
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
  std::string name = path_ + ".XXXXXX";
  file_.Reset(mkostemp(name.data(), O_CLOEXEC));
  if (!file_.IsOpen()) return SystemError("cannot make a temporary file for", path_);
  temporaryPath_ = std::move(name);
  return {};
}

Error FileReceiver::OnData(const void* data, std::size_t bytes) {
  return WriteAll(file_.Get(), data, bytes) ? Error{} : SystemError("cannot write", path_);
}

Error FileReceiver::PutInPlace() {
  if (temporaryPath_.empty()) return {};
  if (fchmod(file_.Get(), ModeFor(path_)) != 0) return SystemError("cannot write", path_);
  // Some file systems report only now that there was no room.
  if (close(file_.Release()) != 0 && errno != EINTR) return SystemError("cannot write", path_);
  if (!RenameFile(temporaryPath_, path_)) {
    return SystemError("cannot put the finished file in place", path_);
  }
  temporaryPath_.clear();
  return {};
}

}  // namespace ox::internal::http
