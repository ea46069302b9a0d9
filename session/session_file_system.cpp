#include "session/session_file_system.h"

#include <new>
#include <utility>

#include <oxfilecache/allocation.h>
#include <oxfilecache/string.h>

namespace ox::internal {

SessionFileSystem::SessionFileSystem(std::string directory, ConfigurationSnapshot configuration,
                                     DiskAccount& account, const DirectoryLock& lock)
    : directory_(std::move(directory)),
      configuration_(std::move(configuration)),
      account_(account),
      lock_(lock) {}

SessionFileSystem::~SessionFileSystem() = default;

os::filesystem::File* SessionFileSystem::CreateFile() {
  if (spare_ != nullptr) return spare_.release();
  auto* file = new (std::nothrow) SessionFile(*this);
  // The module goes on without the file: a scan would leave the entry out.
  if (file == nullptr) account_.MarkStale();
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
  if (watch.Tripped()) account_.MarkStale();
  return !out.IsEmpty();
}

}  // namespace ox::internal
