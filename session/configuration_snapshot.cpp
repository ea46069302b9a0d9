#include "session/configuration_snapshot.h"

#include <cstring>

#include "host/held_directories.h"
#include "host/posix_file.h"
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

// More than the module ever looks at.
constexpr std::size_t kSnapshotBytes = 4 * format::kTextBytes;

}  // namespace

ConfigurationSnapshot::ConfigurationSnapshot(const std::string& directory)
    : path_(directory + "/" + format::kConfigurationFileName), text_(kSnapshotBytes, '\0') {
  HeldDirectories directories;
  PosixFile file(directories);
  exists_ = file.SetPath(path_.c_str()) != 0 && file.Exists() != 0 &&
            file.Open(os::filesystem::File::kOpenRead) != 0;
  const std::uint64_t bytes = exists_ ? file.Read(kSnapshotBytes, text_.data()) : 0;
  text_.resize(static_cast<std::size_t>(bytes));
}

bool ConfigurationReader::Open(int mode) {
  position_ = 0;
  isOpen_ = mode == os::filesystem::File::kOpenRead && snapshot_.Exists();
  return isOpen_;
}

std::uint64_t ConfigurationReader::Read(std::uint64_t count, void* destination) {
  const std::string& text = snapshot_.Text();
  const std::size_t left = text.size() - position_;
  const std::size_t part = count < left ? static_cast<std::size_t>(count) : left;
  std::memcpy(destination, text.data() + position_, part);
  position_ += part;
  return part;
}

}  // namespace ox::internal
