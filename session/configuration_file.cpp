#include "session/configuration_file.h"

#include <cerrno>
#include <string>

#include "host/directory.h"
#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/session_names.h"
#include <oxfilecache/descriptor.h>
#include <oxfilecache/format.h>

namespace ox::internal {

using session::CacheLimits;

namespace {

// The module reads 1,024 bytes, a terminator included.
constexpr std::size_t kMaxTextBytes = format::kTextBytes - 1;

Error Invalid(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

Error WriteNew(const std::string& path, const std::string& text) {
  constexpr unsigned int kMode = 0644;
  const UniqueFd file = CreateNewFile(path, kMode);
  if (!file.IsOpen() || !WriteAll(file.Get(), text.data(), text.size())) {
    return SystemError("cannot write", path);
  }
  return SyncFile(file.Get()) || IsLastingRefusal(errno) ? Error{}
                                                         : SystemError("cannot synchronise", path);
}

// Where the file system has no hard links, as on cards, two processes that make the file at the
// same time may both succeed, and the later one's stays.
bool RenameUnlessThere(const std::string& from, const std::string& to) {
  if (LinkFile(from, to) || errno == EEXIST) return DeleteFile(from);
  if (!IsLastingRefusal(errno)) return false;
  return FileExists(to) ? DeleteFile(from) : RenameFile(from, to);
}

Error PutInPlace(const std::string& directory, const std::string& temporaryName,
                 const CacheLimits& limits, bool (*move)(const std::string&, const std::string&)) {
  const std::string path = directory + "/" + format::kConfigurationFileName;
  const std::string temporary = directory + "/" + temporaryName;
  Error error = WriteNew(temporary, ConfigurationText(limits));
  if (!error && !move(temporary, path)) error = SystemError("cannot write", path);
  if (error) {
    DeleteFile(temporary);
    return error;
  }
  if (SyncDirectory(directory) || IsLastingRefusal(errno)) return {};
  return SystemError("cannot synchronise", directory);
}

}  // namespace

void FillIn(CacheLimits* limits) {
  if (limits->maxEntrySize == 0) limits->maxEntrySize = limits->maxSize;
}

// The module takes a setting from the first place where its name stands. So no comment may name
// one, and the directory, whose name may contain one, comes last.
std::string ConfigurationText(const CacheLimits& limits) {
  // No stream: it would go on without memory, and the text would be cut.
  std::string text =
      "# Limits of this file cache; sizes are in bytes. Only the first 1,024 bytes\n"
      "# of this file are read. A setting is taken from the first place where its\n"
      "# name stands, even in a comment.\n"
      "\n"
      "# All entries together, with their metadata.\n"
      "MAX_CACHE_SIZE=" +
      std::to_string(limits.maxSize) +
      "\n\n"
      "# How many entries. If this setting is 0 or missing, a start deletes all.\n"
      "MAX_CACHE_ENTRIES=" +
      std::to_string(limits.maxEntries) +
      "\n\n"
      "# One entry with its metadata.\n"
      "MAX_CACHE_ENTRY_SIZE=" +
      std::to_string(limits.maxEntrySize) + "\n";
  if (!limits.cacheDirectory.empty()) {
    text +=
        "\n# The directory of the entries. Without it they are beside this file.\n"
        "CACHE_DIRECTORY=" +
        limits.cacheDirectory + "\n";
  }
  return text;
}

Error CheckLimits(const CacheLimits& limits) {
  if (limits.maxEntries == 0) return Invalid("maxEntries may not be 0: nothing could be stored");
  if (limits.maxSize < format::kMinSize || limits.maxEntrySize < format::kMinSize) {
    return Invalid("maxSize and maxEntrySize must be 1,024 bytes or more");
  }
  if (limits.maxEntrySize > limits.maxSize) return Invalid("maxEntrySize is above maxSize");
  if (ConfigurationText(limits).size() > kMaxTextBytes) {
    return Invalid("the cache directory's name is too long");
  }
  return {};
}

Error ReplaceConfigurationFile(const std::string& directory, const std::string& temporaryName,
                               const CacheLimits& limits) {
  const auto rename = [](const std::string& from, const std::string& to) {
    return RenameFile(from, to);
  };
  return PutInPlace(directory, temporaryName, limits, rename);
}

Error MakeConfigurationFile(const std::string& directory, const std::string& temporaryName,
                            const CacheLimits& limits) {
  return PutInPlace(directory, temporaryName, limits, RenameUnlessThere);
}

void DeleteLeftConfigurations(const std::string& directory) {
  DirectoryListing listing;
  if (!ListDirectory(directory.c_str(), &listing)) return;
  for (const DirectoryEntry& file : listing.entries) {
    const std::string name(file.name);
    if (file.isRegular && IsStagedConfigurationName(name)) DeleteFile(directory + "/" + name);
  }
}

}  // namespace ox::internal
