#include "session/journal_order.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "host/system_calls.h"
#include <oxfilecache/descriptor.h>

namespace ox::internal {
namespace {

constexpr std::uint32_t kF2fs = 0xF2F52010;  // linux/magic.h

std::string ReadAll(const std::string& path) {
  const UniqueFd file(OpenRetrying(AT_FDCWD, path.c_str(), O_RDONLY));
  std::string text;
  std::array<char, 4096> piece;
  ssize_t bytes = 0;
  while (file.IsOpen() && (bytes = read(file.Get(), piece.data(), piece.size())) > 0)
    text.append(piece.data(), static_cast<std::size_t>(bytes));
  return text;
}

bool HasLine(std::string_view text, std::string_view line) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (text.substr(0, end) == line) return true;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

// "sda1"; empty where the system does not say.
std::string NameOf(dev_t device, const std::string& devices) {
  const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  std::array<char, PATH_MAX> target;
  const ssize_t length = readlink((devices + "/" + number).c_str(), target.data(), target.size());
  if (length <= 0) return {};
  const std::string_view path(target.data(), static_cast<std::size_t>(length));
  return std::string(path.substr(path.rfind('/') + 1));
}

}  // namespace

bool WritesOutAll(const char* release) {
  unsigned int version = 0;
  unsigned int level = 0;
  if (std::sscanf(release, "%u.%u", &version, &level) != 2) return false;
  return version > 5 || (version == 5 && level >= 2);
}

bool Ext4KeepsOrder(dev_t device, const Ext4Paths& paths) {
  const std::string name = NameOf(device, paths.devices);
  if (name.empty()) return false;
  const std::string options = ReadAll(paths.fileSystems + "/" + name + "/options");
  if (!HasLine(options, "data=ordered") || !HasLine(options, "barrier")) return false;
  // In an inode of the file system: of a journal on another disk it is not certain that this one
  // is flushed before.
  constexpr char kJournalInode[] = "-8";
  return access((paths.journals + "/" + name + kJournalInode).c_str(), F_OK) == 0;
}

bool KeepsOrder(const std::string& directory) {
  utsname system;
  struct statfs fileSystem;
  struct stat status;
  if (uname(&system) != 0 || !WritesOutAll(system.release) ||
      statfs(directory.c_str(), &fileSystem) != 0 || stat(directory.c_str(), &status) != 0) {
    return false;
  }
  return static_cast<std::uint32_t>(fileSystem.f_type) == kF2fs || Ext4KeepsOrder(status.st_dev);
}

}  // namespace ox::internal
