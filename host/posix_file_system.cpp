#include "host/posix_file_system.h"

#include <new>
#include <utility>

#include "host/directory.h"
#include "host/posix_file.h"
#include "string/ox_string.h"

namespace ox::host {

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
  PosixFile* file = nullptr;
  for (auto& spare : spares_) {
    file = spare.exchange(nullptr, std::memory_order_acquire);
    if (file != nullptr) break;
  }
  if (file == nullptr) file = new (std::nothrow) PosixFile;
  if (file != nullptr) liveFiles_.fetch_add(1, std::memory_order_relaxed);
  return file;
}

void PosixFileSystem::DestroyFile(os::filesystem::File* file) {
  if (file == nullptr) return;
  auto* unused = static_cast<PosixFile*>(file);
  unused->SetPath(nullptr);  // closes
  for (auto& spare : spares_) {
    unused = spare.exchange(unused, std::memory_order_acq_rel);
    if (unused == nullptr) break;
  }
  delete unused;
  liveFiles_.fetch_sub(1, std::memory_order_relaxed);
}

int PosixFileSystem::GetDefaultDirectory(OxString& out) {
  out = "";
  if (defaultDirectory_.empty() || !MakeDirectories(defaultDirectory_)) return 0;
  out = defaultDirectory_.c_str();
  return !out.IsEmpty();
}

}  // namespace ox::host
