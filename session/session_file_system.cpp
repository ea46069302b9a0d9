#include "session/session_file_system.h"

#include <new>

#include <oxfilecache/allocation.h>
#include <oxfilecache/string.h>

namespace ox::internal {

os::filesystem::File* SessionFileSystem::CreateFile() {
  if (spare_ != nullptr) return spare_.release();
  auto* file = new (std::nothrow) SessionFile(surroundings_);
  // A start makes no manager then; any later step of the module takes the file for missing.
  if (file == nullptr) surroundings_.listener.NoteOversight();
  return file;
}

void SessionFileSystem::DestroyFile(os::filesystem::File* file) {
  auto* spare = static_cast<SessionFile*>(file);
  if (spare == nullptr) return;
  spare->SetPath(nullptr);  // closes
  spare_.reset(spare);
}

int SessionFileSystem::GetDefaultDirectory(OxString& out) {
  const AllocationWatch watch;
  out = directory_.c_str();
  if (watch.Tripped()) surroundings_.listener.NoteOversight();
  return !out.IsEmpty();
}

}  // namespace ox::internal
