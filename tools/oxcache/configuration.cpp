#include "tools/oxcache/configuration.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "host/directory.h"
#include "session/configuration_file.h"
#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/temporary_file.h"
#include "tools/oxcache/text.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

constexpr std::uint64_t kDefaultMaxSize = 64 * 1024 * 1024;
constexpr std::uint64_t kDefaultMaxEntries = 1000;
constexpr std::uint64_t kDefaultMaxEntrySize = 8 * 1024 * 1024;
constexpr std::uint64_t kMaxLimit = 0xFFFFFFFF;
// The module reads 1,024 bytes, a terminator included.
constexpr std::size_t kMaxTextBytes = 1000;

struct Configuration {
  std::uint64_t maxSize = kDefaultMaxSize;
  std::uint64_t maxEntries = kDefaultMaxEntries;
  std::uint64_t maxEntrySize = kDefaultMaxEntrySize;
  std::string directory;
};

std::string Text(const Configuration& configuration) {
  return internal::ConfigurationText({static_cast<std::uint32_t>(configuration.maxSize),
                                      static_cast<std::uint32_t>(configuration.maxEntries),
                                      static_cast<std::uint32_t>(configuration.maxEntrySize),
                                      configuration.directory});
}

// Whole or not at all, power cuts included: a configuration cut short could lack the number of
// entries, and the next start would delete them.
Error Write(const std::string& directory, const std::string& text) {
  if (!internal::MakeDirectories(directory))
    return SystemError("cannot make the directory", directory);
  const std::string path = ConfigurationPath(directory);
  Error error;
  const auto file = TemporaryFile::Create(path, 0644, &error);
  if (file == nullptr) return error;
  if (error = WriteBytes(file->Get(), path, text.data(), text.size()); error) return error;
  return file->PutInPlaceOnMedium();
}

Error CheckSize(const char* option, std::uint64_t bytes) {
  if (bytes >= format::kMinSize && bytes <= kMaxLimit) return {};
  return MakeError(ErrorKind::kInvalidArgument, std::string(option) + " must be from " +
                                                    std::to_string(format::kMinSize) + " to " +
                                                    std::to_string(kMaxLimit) + " bytes");
}

// The module would not find the entries of another directory again, or not read its whole name.
Error CheckCacheDirectory(const std::string& directory) {
  if (IsPlain(directory) && directory.find('\\') == std::string::npos &&
      directory.find(format::kMetadataSuffix) == std::string::npos) {
    return {};
  }
  return MakeError(
      ErrorKind::kInvalidArgument,
      "the name of the directory has a backslash, \".ox_meta\" or a character that is not "
      "printable ASCII: entries in it would be lost; use another name");
}

Error Check(const Configuration& configuration) {
  if (Error error = CheckSize("--max-size", configuration.maxSize)) return error;
  if (Error error = CheckSize("--max-entry-size", configuration.maxEntrySize)) return error;
  if (configuration.maxEntries == 0 || configuration.maxEntries > kMaxLimit) {
    return MakeError(
        ErrorKind::kInvalidArgument,
        "--max-entries must be from 1 to 4294967295; with 0 the cache would store nothing");
  }
  if (configuration.maxEntrySize > configuration.maxSize) {
    return MakeError(ErrorKind::kInvalidArgument,
                     "--max-entry-size is above --max-size; make it smaller or --max-size larger");
  }
  return {};
}

// Absolute, since the configuration is read by programs with other working directories.
Error MakeAbsolute(const std::string& typed, std::string* absolute) {
  std::error_code code;
  *absolute = std::filesystem::absolute(typed, code).string();
  if (!code) return {};
  Error error = MakeError(ErrorKind::kInputOutput, "cannot make the path absolute");
  error.path = typed;
  error.systemError = code.value();
  return error;
}

Error FromOptions(const InitOptions& options, Configuration* configuration) {
  configuration->maxSize = options.maxSize.value_or(kDefaultMaxSize);
  configuration->maxEntries = options.maxEntries.value_or(kDefaultMaxEntries);
  configuration->maxEntrySize =
      options.maxEntrySize.value_or(std::min(kDefaultMaxEntrySize, configuration->maxSize));
  if (!options.maxSize) {
    configuration->maxSize = std::max(configuration->maxSize, configuration->maxEntrySize);
  }
  if (!options.directory.empty()) {
    if (Error error = MakeAbsolute(options.directory, &configuration->directory)) return error;
  }
  return Check(*configuration);
}

std::size_t CountEntries(const std::string& directory) {
  internal::Survey survey;
  return internal::SurveyDirectory(directory, &survey) ? 0 : survey.entries.size();
}

void TellEntriesHere(Context& context, const std::string& cacheDirectory) {
  const std::size_t entries = CountEntries(cacheDirectory);
  if (entries == 0) return;
  context.Tell("the directory has " + EntriesText(entries) +
               "; \"oxcache check\" shows what a start would delete under these limits");
}

// Where the configuration that is being replaced keeps the entries; empty when that is not known.
std::string OldCacheDirectory(Context& context) {
  session::CacheLimits limits;
  if (!HasConfiguration(context.Options().directory) || context.Limits(&limits)) return "";
  return limits.cacheDirectory;
}

void TellEntriesLeftBehind(Context& context, const std::string& oldDirectory,
                           const std::string& newDirectory) {
  std::error_code ignored;
  if (oldDirectory.empty() || std::filesystem::equivalent(oldDirectory, newDirectory, ignored)) {
    return;
  }
  const std::size_t entries = CountEntries(oldDirectory);
  if (entries == 0) return;
  context.Tell(EntriesText(entries) + " left behind in " + oldDirectory + "; \"--directory " +
               oldDirectory + "\" keeps using that directory");
}

}  // namespace

std::string ConfigurationPath(const std::string& directory) {
  return directory + "/" + format::kConfigurationFileName;
}

bool HasConfiguration(const std::string& directory) {
  return access(ConfigurationPath(directory).c_str(), F_OK) == 0;
}

Error WriteDefaultConfiguration(const std::string& directory) {
  if (Error error = CheckCacheDirectory(directory)) return error;
  return Write(directory, Text(Configuration{}));
}

ExitStatus Init(Context& context, const InitOptions& options) {
  const std::string& directory = context.Options().directory;
  Configuration configuration;
  if (Error error = FromOptions(options, &configuration)) return context.Fail(error);
  const std::string cacheDirectory =
      configuration.directory.empty() ? directory : configuration.directory;
  if (Error error = CheckCacheDirectory(cacheDirectory)) return context.Fail(error);
  std::error_code ignored;
  if (std::filesystem::exists(cacheDirectory, ignored) &&
      !std::filesystem::is_directory(cacheDirectory, ignored)) {
    return context.Fail(
        MakeError(ErrorKind::kInvalidArgument, "not a directory: " + cacheDirectory));
  }
  const std::string text = Text(configuration);
  if (text.size() > kMaxTextBytes) {
    return context.Fail(MakeError(
        ErrorKind::kInvalidArgument,
        "--directory is too long: the module would not read its whole name; use a shorter "
        "path"));
  }
  if (HasConfiguration(directory) && !context.Options().force) {
    return context.Fail(MakeError(ErrorKind::kRefused,
                                  ConfigurationPath(directory) + " exists; --force overwrites it"));
  }
  const std::string oldDirectory = OldCacheDirectory(context);
  if (Error error = Write(directory, text)) return context.Fail(error);
  TellEntriesHere(context, cacheDirectory);
  TellEntriesLeftBehind(context, oldDirectory, cacheDirectory);
  return ExitStatus::kDone;
}

}  // namespace ox::tools
