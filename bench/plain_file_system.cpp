#include "bench/plain_file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ox::bench {
namespace {

using os::filesystem::File;

// More than the module ever holds at once.
constexpr std::size_t kFiles = 8;

std::uint64_t CountOf(ssize_t result) {
  return result < 0 ? 0 : static_cast<std::uint64_t>(result);
}

}  // namespace

int PlainFile::SetPath(const char* utf8Path) {
  path_ = utf8Path;
  return path_ != nullptr;
}

int PlainFile::Open(int mode) {
  const int flags = mode == kOpenRead ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
  fd_ = open(path_, flags | O_CLOEXEC, 0600);
  return fd_ >= 0;
}

void PlainFile::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

int PlainFile::Delete(int /*flags*/) {
  return unlink(path_) == 0;
}

int PlainFile::Exists() {
  return access(path_, F_OK) == 0;
}

void PlainFile::GetPath(OxString& out) {
  out = path_;
}

std::uint64_t PlainFile::GetSize() {
  struct stat status;
  return stat(path_, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t PlainFile::Read(std::uint64_t count, void* destination) {
  return CountOf(read(fd_, destination, count));
}

std::uint64_t PlainFile::Write(std::uint64_t count, const void* source) {
  return CountOf(write(fd_, source, count));
}

int PlainFile::EnumerateDirectory(EnumerateCallback callback, void* context, int /*flags*/) {
  DIR* directory = opendir(path_);
  if (directory == nullptr) return 0;
  std::string path;
  PlainFile file;
  bool goOn = true;
  while (const dirent* found = goOn ? readdir(directory) : nullptr) {
    if (found->d_type == DT_DIR) continue;
    path = path_;
    path.append("/").append(found->d_name);
    file.SetPath(path.c_str());
    goOn = callback(file, false, context);
  }
  closedir(directory);
  return 1;
}

PlainFileSystem::PlainFileSystem(std::string directory) : directory_(std::move(directory)) {
  for (std::size_t i = 0; i < kFiles; ++i) {
    files_.push_back(std::make_unique<PlainFile>());
    spare_.push_back(files_.back().get());
  }
}

File* PlainFileSystem::CreateFile() {
  if (spare_.empty()) return nullptr;
  PlainFile* file = spare_.back();
  spare_.pop_back();
  return file;
}

void PlainFileSystem::DestroyFile(File* file) {
  if (file == nullptr) return;
  file->Close();
  spare_.push_back(static_cast<PlainFile*>(file));
}

int PlainFileSystem::GetDefaultDirectory(OxString& out) {
  out = directory_.c_str();
  return 1;
}

}  // namespace ox::bench
