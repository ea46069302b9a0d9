#include <new>
#include <utility>

#include "host/directory.h"
#include "host/posix_file.h"
#include <oxfilecache/host.h>
#include <oxfilecache/string.h>

namespace ox::host {

using internal::MakeDirectories;
using internal::PosixFile;

PosixFileSystem::PosixFileSystem(std::string defaultDirectory)
    : defaultDirectory_(std::move(defaultDirectory)) {
  for (auto& spare : spares_) {
    spare.store(new PosixFile, std::memory_order_relaxed);
  }
}

PosixFileSystem::~PosixFileSystem() {
  for (auto& spare : spares_) {
    delete spare.load();
  }
}

os::filesystem::File* PosixFileSystem::CreateFile() {
  for (auto& spare : spares_) {
    PosixFile* file = spare.exchange(nullptr, std::memory_order_acquire);
    if (file != nullptr) return file;
  }
  auto* file = new (std::nothrow) PosixFile;
  if (file != nullptr) objects_.fetch_add(1, std::memory_order_relaxed);
  return file;
}

void PosixFileSystem::DestroyFile(os::filesystem::File* file) {
  if (file == nullptr) return;
  static_cast<PosixFile*>(file)->SetPath(nullptr);  // closes
  Keep(static_cast<PosixFile*>(file));
}

void PosixFileSystem::Keep(PosixFile* file) {
  for (auto& spare : spares_) {
    file = spare.exchange(file, std::memory_order_acq_rel);
    if (file == nullptr) return;
  }
  delete file;
  objects_.fetch_sub(1, std::memory_order_relaxed);
}

std::uint64_t PosixFileSystem::LiveFiles() const {
  std::uint64_t live = objects_.load(std::memory_order_relaxed);
  for (const auto& spare : spares_) {
    if (spare.load(std::memory_order_relaxed) != nullptr) --live;
  }
  return live;
}

void PosixFileSystem::LeaveDirectories() {
  for (auto& spare : spares_) {
    PosixFile* file = spare.exchange(nullptr, std::memory_order_acquire);
    if (file == nullptr) continue;
    file->LeaveDirectory();
    Keep(file);
  }
}

int PosixFileSystem::GetDefaultDirectory(OxString& out) {
  out = "";
  if (defaultDirectory_.empty() || !MakeDirectories(defaultDirectory_)) return 0;
  out = defaultDirectory_.c_str();
  return !out.IsEmpty();
}

}  // namespace ox::host
