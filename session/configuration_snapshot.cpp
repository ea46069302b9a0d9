#include "session/configuration_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "host/system_calls.h"
#include "session/text_file.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::internal {
namespace {

// What the system says of a name under which there is no file of ours: nothing, a symbolic link, a
// socket, a device that is not there.
bool MeansNoFile(int error) {
  return error == ENOENT || error == ELOOP || error == ENOTDIR || error == ENXIO || error == ENODEV;
}

UniqueFd OpenForReading(const std::string& path) {
  // O_NONBLOCK, so that a FIFO planted under the name cannot hang the device.
  return UniqueFd(OpenWithoutTrace(AT_FDCWD, path.c_str(), O_NOFOLLOW | O_NONBLOCK));
}

}  // namespace

Error ConfigurationSnapshot::Read(const std::string& directory, ConfigurationSnapshot* snapshot) {
  *snapshot = ConfigurationSnapshot();
  snapshot->path_ = directory + "/" + format::kConfigurationFileName;
  const UniqueFd file = OpenForReading(snapshot->path_);
  if (!file.IsOpen() && MeansNoFile(errno)) return {};
  struct stat status;
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
    return SystemError("cannot read the configuration", snapshot->path_);
  }
  if (!S_ISREG(status.st_mode)) return {};
  if (!ReadText(file.Get(), &snapshot->text_)) {
    return SystemError("cannot read the configuration", snapshot->path_);
  }
  snapshot->exists_ = true;
  return {};
}

void ConfigurationSnapshot::Write(const std::string& directory, const session::CacheLimits& limits,
                                  ConfigurationSnapshot* snapshot) {
  snapshot->path_ = directory + "/" + format::kConfigurationFileName;
  snapshot->exists_ = true;
  snapshot->text_ = "MAX_CACHE_SIZE=" + std::to_string(limits.maxSize) +
                    "\nMAX_CACHE_ENTRIES=" + std::to_string(limits.maxEntries) +
                    "\nMAX_CACHE_ENTRY_SIZE=" + std::to_string(limits.maxEntrySize) + "\n";
  // Without the line the module takes the directory of the configuration.
  if (limits.cacheDirectory != directory) {
    snapshot->text_ += "CACHE_DIRECTORY=" + limits.cacheDirectory + "\n";
  }
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
