#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "host/directory.h"
#include "host/held_directories.h"
#include "host/posix_file.h"
#include <oxfilecache/host.h>
#include <oxfilecache/string.h>

namespace ox::host {

using internal::HeldDirectories;
using internal::MakeDirectories;
using internal::PosixFile;

// The file objects and the open directories that they share.
class PosixFileSystem::FileObjects {
 public:
  FileObjects() {
    for (auto& spare : spares_) {
      spare.store(new PosixFile(directories_), std::memory_order_relaxed);
    }
  }
  ~FileObjects() {
    for (auto& spare : spares_) {
      delete spare.load();
    }
  }
  FileObjects(const FileObjects&) = delete;
  FileObjects& operator=(const FileObjects&) = delete;

  HeldDirectories& Directories() { return directories_; }

  // Null when there is neither a spare object nor memory for a new one.
  PosixFile* Take() {
    for (auto& spare : spares_) {
      PosixFile* file = spare.exchange(nullptr, std::memory_order_acquire);
      if (file != nullptr) return file;
    }
    return new (std::nothrow) PosixFile(directories_);
  }

  // Becomes a spare object where one is missing.
  void Return(PosixFile* file) {
    for (auto& spare : spares_) {
      file = spare.exchange(file, std::memory_order_acq_rel);
      if (file == nullptr) return;
    }
    delete file;
  }

 private:
  HeldDirectories directories_;
  // A start of the module needs three objects at once. If one were null, the start would fail, so
  // these are made beforehand.
  std::array<std::atomic<PosixFile*>, 3> spares_;
};

PosixFileSystem::PosixFileSystem(std::string defaultDirectory)
    : defaultDirectory_(std::move(defaultDirectory)), files_(std::make_unique<FileObjects>()) {}

PosixFileSystem::~PosixFileSystem() = default;

os::filesystem::File* PosixFileSystem::CreateFile() {
  return files_->Take();
}

void PosixFileSystem::DestroyFile(os::filesystem::File* file) {
  if (file == nullptr) return;
  auto* const posixFile = static_cast<PosixFile*>(file);
  posixFile->SetPath(nullptr);  // closes
  files_->Return(posixFile);
}

void PosixFileSystem::CloseDirectories() {
  files_->Directories().CloseAll();
}

int PosixFileSystem::GetDefaultDirectory(OxString& out) {
  out = "";
  if (defaultDirectory_.empty() || !MakeDirectories(defaultDirectory_)) return 0;
  out = defaultDirectory_.c_str();
  return !out.IsEmpty();
}

}  // namespace ox::host
