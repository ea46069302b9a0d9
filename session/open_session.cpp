#include "session/open_session.h"

#include <algorithm>
#include <utility>

#include "host/directory.h"
#include "session/cache_location.h"
#include "session/configuration_file.h"
#include "session/directory_lock.h"
#include "session/durable_io.h"
#include "session/limits_probe.h"
#include "session/survey.h"
#include "session/unfinished_commits.h"
#include "session/utf8.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using session::CacheLimits;
using session::Durability;
using session::SessionOptions;

namespace {

// The module keeps 1,023 bytes of a path when it scans, the last of them for "/", the name of a
// content file and the suffix of its metadata file.
constexpr std::size_t kLongestCacheDirectory =
    format::kTextBytes - 1 - (1 + format::kContentNameLength + format::kMetadataSuffixLength);
// One that CACHE_DIRECTORY names must fit into the configuration beside the limits.
constexpr std::size_t kLongestMovedDirectory =
    std::min(kLongestCacheDirectory, ConfigurationSnapshot::kLongestDirectory);

Error ConfigurationError(std::string detail, const std::string& path) {
  Error error = MakeError(ErrorKind::kConfiguration, std::move(detail));
  error.path = path;
  return error;
}

// What the scan makes of a path decides whether it finds the entries again or deletes them.
Error CheckCacheDirectoryName(const std::string& directory, bool isMoved) {
  if (directory.empty()) {
    return ConfigurationError("the configuration names no usable cache directory", directory);
  }
  if (!IsAsciiText(directory) || directory.find('\\') != std::string::npos ||
      directory.find(format::kMetadataSuffix) != std::string::npos) {
    return ConfigurationError(
        "a start would delete what is in a cache directory whose name has a character beyond "
        "ASCII, a backslash or \".ox_meta\"",
        directory);
  }
  const std::size_t longest = isMoved ? kLongestMovedDirectory : kLongestCacheDirectory;
  if (directory.size() > longest) {
    return ConfigurationError(
        "the cache directory's name is longer than " + std::to_string(longest) + " bytes",
        directory);
  }
  return {};
}

// A new directory is lost in a power cut with all that is in it until its parent is on the medium.
// Best effort: a parent that this user may not read, or whose file system is read-only and cannot
// synchronise, was not changed by this user either.
void SyncParents(const std::string& directory) {
  for (std::size_t end = directory.find('/', 1); end != std::string::npos;
       end = directory.find('/', end + 1)) {
    SyncDirectory(directory.substr(0, end));
  }
}

Error MakeAndLockCacheDirectory(const std::string& directory, Durability durability,
                                DirectoryLock* lock) {
  if (!MakeDirectories(directory)) {
    return SystemError("cannot make the cache directory", directory);
  }
  if (durability == Durability::kPower) SyncParents(directory);
  return lock->Take(directory);
}

// Interrupted commits are finished first, since their entries count.
Error RefuseToDeleteAll(const SessionOptions& options, const CacheLimits& limits) {
  if (limits.maxEntries > 0 || options.allowDeletingAll) return {};
  Survey survey;
  const auto isBeingWritten = [](const std::string& /*id*/) { return false; };
  if (Error error = FinishCommits(limits.cacheDirectory, isBeingWritten, nullptr, &survey))
    return error;
  if (survey.entries.empty()) return {};
  return ConfigurationError("MAX_CACHE_ENTRIES is missing or 0, which would delete all entries (" +
                                std::to_string(survey.entries.size()) + ") of the cache",
                            options.directory + "/" + format::kConfigurationFileName);
}

Error MakeDirectory(std::string* directory) {
  if (directory->empty() || !IsStrictUtf8(*directory)) {
    return MakeError(ErrorKind::kInvalidArgument, "the directory's name is empty or not UTF-8");
  }
  if (Error error = MakeAbsolute(directory)) return error;
  if (MakeDirectories(*directory)) return {};
  return SystemError("cannot make the directory", *directory);
}

// Where there is a configuration, or anything else under its name, that holds.
Error MakeConfiguration(const SessionOptions& options) {
  if (options.limits.maxEntries == 0) return {};
  CacheLimits limits = options.limits;
  FillIn(&limits);
  if (Error error = MakeAbsolute(&limits.cacheDirectory)) return error;
  const bool isMoved = !limits.cacheDirectory.empty();
  const std::string& cacheDirectory = isMoved ? limits.cacheDirectory : options.directory;
  if (Error error = CheckCacheDirectoryName(cacheDirectory, isMoved)) return error;
  if (Error error = CheckLimits(limits)) return error;
  if (FileExists(options.directory + "/" + format::kConfigurationFileName)) return {};
  return MakeConfigurationFile(options.directory, StagedConfigurationName(IdSource().Next()),
                               limits);
}

AllocationUnit UnitOf(const SessionOptions& options, const std::string& cacheDirectory) {
  return options.blockSize > 0 ? AllocationUnit(options.blockSize)
                               : AllocationUnit::Of(cacheDirectory);
}

}  // namespace

Error OpenSessionState(SessionOptions options, std::shared_ptr<SessionState>* state) {
  Error error;
  if ((error = MakeDirectory(&options.directory))) return error;
  auto module = ModuleHold::Take(options.modulePath, &error);
  if (error) return error;
  if ((error = MakeConfiguration(options))) return error;
  ConfigurationSnapshot configuration;
  if ((error = ConfigurationSnapshot::Read(options.directory, &configuration))) return error;
  CacheLimits limits;
  if ((error = ProbeLimits(*module, options.directory, configuration, &limits))) return error;
  if ((error = MakeAbsolute(&limits.cacheDirectory))) return error;
  if ((error = CheckCacheDirectoryName(limits.cacheDirectory,
                                       limits.cacheDirectory != options.directory)))
    return error;
  auto lock = std::make_unique<DirectoryLock>();
  error = MakeAndLockCacheDirectory(limits.cacheDirectory, options.durability, lock.get());
  if (error) return error;
  // In the cache directory the start deletes them.
  if (limits.cacheDirectory != options.directory) DeleteLeftConfigurations(options.directory);
  if ((error = RefuseToDeleteAll(options, limits))) return error;
  ConfigurationSnapshot::Write(options.directory, limits, &configuration);

  RunningCache::Setup setup{options.directory, UnitOf(options, limits.cacheDirectory),
                            std::move(configuration), std::move(module)};
  auto opened =
      std::make_shared<SessionState>(options, std::move(limits), std::move(lock), std::move(setup));
  const MutexLock guard(opened->mutex);
  if ((error = opened->cache.Restart())) return error;
  *state = std::move(opened);
  return {};
}

}  // namespace ox::internal
