#include "host/posix_file_system.h"

#include <new>
#include <utility>

#include "host/directory.h"
#include "host/posix_file.h"
#include "string/ox_string.h"

namespace ox::host {

PosixFileSystem::PosixFileSystem(std::string defaultDirectory)
    : defaultDirectory_(std::move(defaultDirectory)) {}

PosixFileSystem::~PosixFileSystem() {
  delete spare_.load();
}

os::filesystem::File* PosixFileSystem::CreateFile() {
  PosixFile* file = spare_.exchange(nullptr, std::memory_order_acquire);
  if (file == nullptr) file = new (std::nothrow) PosixFile;
  if (file != nullptr) liveFiles_.fetch_add(1, std::memory_order_relaxed);
  return file;
}

void PosixFileSystem::DestroyFile(os::filesystem::File* file) {
  if (file == nullptr) return;
  auto* spare = static_cast<PosixFile*>(file);
  spare->SetPath(nullptr);  // closes
  delete spare_.exchange(spare, std::memory_order_acq_rel);
  liveFiles_.fetch_sub(1, std::memory_order_relaxed);
}

int PosixFileSystem::GetDefaultDirectory(OxString& out) {
  out = "";
  if (defaultDirectory_.empty() || !MakeDirectories(defaultDirectory_)) return 0;
  out = defaultDirectory_.c_str();
  return !out.IsEmpty();
}

}  // namespace ox::host
