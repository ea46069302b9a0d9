#include "session/session_file_system.h"

#include <cstring>
#include <new>
#include <utility>

#include "session/file_names.h"
#include <oxfilecache/string.h>

namespace ox::session {
namespace {

// More than the module ever looks at.
constexpr std::size_t kConfigurationBytes = 4096;

}  // namespace

SessionFileSystem::SessionFileSystem(std::string directory)
    : directory_(std::move(directory)),
      configurationPath_(directory_ + "/" + format::kConfigurationFileName),
      configuration_(kConfigurationBytes, '\0') {
  // So that noting the directory later allocates nothing.
  askedDirectory_.reserve(PATH_MAX);
  CaptureConfiguration();
}

SessionFileSystem::~SessionFileSystem() = default;

void SessionFileSystem::CaptureConfiguration() {
  internal::PosixFile file;
  hasConfiguration_ = file.SetPath(configurationPath_.c_str()) != 0 && file.Exists() != 0 &&
                      file.Open(os::filesystem::File::kOpenRead) != 0;
  const std::uint64_t bytes =
      hasConfiguration_ ? file.Read(kConfigurationBytes, configuration_.data()) : 0;
  configuration_.resize(static_cast<std::size_t>(bytes));
}

std::size_t SessionFileSystem::ReadConfiguration(std::size_t position, void* destination,
                                                 std::uint64_t bytes) const {
  const std::size_t left = configuration_.size() - position;
  const std::size_t count = bytes < left ? static_cast<std::size_t>(bytes) : left;
  std::memcpy(destination, configuration_.data() + position, count);
  return count;
}

void SessionFileSystem::NoteAskedDirectory(const char* path) noexcept {
  askedDirectory_ = path;
}

os::filesystem::File* SessionFileSystem::CreateFile() {
  if (spare_ != nullptr) return spare_.release();
  auto* file = new (std::nothrow) SessionFile(*this);
  // The module goes on without the file: a scan would leave the entry out.
  if (file == nullptr) NoteIncomplete();
  return file;
}

void SessionFileSystem::DestroyFile(os::filesystem::File* file) {
  auto* spare = static_cast<SessionFile*>(file);
  if (spare == nullptr) return;
  spare->SetPath(nullptr);  // closes
  spare_.reset(spare);
}

int SessionFileSystem::GetDefaultDirectory(OxString& out) {
  out = directory_.c_str();
  return !out.IsEmpty();
}

}  // namespace ox::session
