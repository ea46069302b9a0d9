#include "session/session_core.h"

#include <algorithm>
#include <utility>

#include "host/directory.h"
#include "session/directory_lock.h"
#include "session/durable_io.h"
#include "session/limits_probe.h"
#include "session/recovery.h"
#include "session/utf8.h"
#include <oxfilecache/allocation.h>

namespace ox::session {
namespace {

// The module keeps 1,023 bytes of a path when it scans, the last 41 for "/", a content file's name
// and the suffix of its metadata file.
constexpr std::size_t kLongestCacheDirectory = 1023 - 41;

Error DirectoryError(std::string detail, const std::string& directory) {
  Error error = MakeError(ErrorKind::kConfiguration, std::move(detail));
  error.path = directory;
  return error;
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

}  // namespace

OxString ToOxString(const std::string& text) {
  const AllocationWatch watch;
  OxString result(text.c_str());
  result.UTF8();
  if (watch.Tripped()) throw std::bad_alloc();
  return result;
}

std::string ContentPath(core::cache::CacheValue& value) {
  const OxString path = value.GetFile();
  std::string text = path.UTF8();
  // The module's copies have a watch of their own; a text that got lost is empty.
  if (text.empty()) throw std::bad_alloc();
  return text;
}

SessionCore::SessionCore(const SessionOptions& options)
    : options_(options), fileSystem_(options.directory) {}

std::unique_ptr<SessionCore> SessionCore::Open(const SessionOptions& options, Error* error) {
  if (options.directory.empty() || !IsStrictUtf8(options.directory)) {
    *error = MakeError(ErrorKind::kInvalidArgument, "the directory's name is empty or not UTF-8");
    return nullptr;
  }
  if (!internal::MakeDirectories(options.directory)) {
    *error = SystemError("cannot make the directory", options.directory);
    return nullptr;
  }
  std::unique_ptr<SessionCore> core(new SessionCore(options));
  *error = core->Start();
  return *error ? nullptr : std::move(core);
}

Error SessionCore::Start() {
  Error error;
  hold_ = ModuleHold::Take(options_.modulePath, fileSystem_, &error);
  if (error) return error;
  if ((error = ProbeLimits(hold_->Module(), fileSystem_, &limits_))) return error;
  if ((error = CheckCacheDirectory())) return error;
  if ((error = PrepareCacheDirectory())) return error;
  if ((error = CheckConfiguration())) return error;
  fileSystem_.ServeFiles(&state_);
  return Restart();
}

// What the scan makes of a path decides whether it finds the entries again or deletes them.
Error SessionCore::CheckCacheDirectory() const {
  const std::string& directory = limits_.cacheDirectory;
  if (directory.empty()) {
    return DirectoryError("the configuration names no usable cache directory", directory);
  }
  if (!IsAsciiText(directory) || directory.find('\\') != std::string::npos ||
      directory.find(format::kMetaDataSuffix) != std::string::npos) {
    return DirectoryError(
        "a start would delete what is in a cache directory whose name has a character beyond "
        "ASCII, a backslash or \".ox_meta\"",
        directory);
  }
  if (directory.size() > kLongestCacheDirectory) {
    return DirectoryError("the cache directory's name is longer than " +
                              std::to_string(kLongestCacheDirectory) + " bytes",
                          directory);
  }
  return {};
}

Error SessionCore::PrepareCacheDirectory() {
  const std::string& directory = limits_.cacheDirectory;
  if (!internal::MakeDirectories(directory)) {
    return SystemError("cannot make the cache directory", directory);
  }
  if (options_.durability == Durability::kPower) SyncParents(directory);
  return LockDirectory(directory, &directoryLock_);
}

Error SessionCore::CheckConfiguration() const {
  if (limits_.maxEntries > 0 || options_.allowDeletingAll) return {};
  Survey survey;
  if (Error error = RollForward(limits_.cacheDirectory, &survey)) return error;
  if (survey.entries.empty()) return {};
  return DirectoryError("MAX_CACHE_ENTRIES is missing or 0, which would delete all entries (" +
                            std::to_string(survey.entries.size()) + ") of the cache",
                        options_.directory + "/" + format::kConfigurationFileName);
}

Error SessionCore::Ready() {
  return manager_.has_value() && !state_.needsRestart ? Error{} : Restart();
}

Error SessionCore::Restart() {
  // From here on the module deletes nothing: a manager that is given back would delete the files of
  // an entry that is in place and only not committed.
  state_.needsRestart = true;
  manager_.reset();
  Survey survey;
  if (Error error = PutInOrder(&survey)) return error;
  TakeStock(survey);
  const std::uint64_t entries = state_.entries;
  manager_.emplace(hold_->Module());
  if (!*manager_ || state_.needsRestart) {
    manager_.reset();
    return MakeError(ErrorKind::kOutOfMemory, "no memory for the cache manager");
  }
  ++starts_;
  // The scan deletes nothing unless somebody else changed the directory meanwhile.
  if (state_.entries != entries) state_.needsRestart = true;
  return {};
}

Error SessionCore::PutInOrder(Survey* survey) {
  const std::string& directory = limits_.cacheDirectory;
  if (Error error = RollForward(directory, survey)) return error;
  const auto isLive = [this](const std::string& id) { return IsLive(id); };
  if (Error error = DeleteLeftovers(directory, *survey, isLive)) return error;
  std::uint64_t deleted = 0;
  Error error = TrimToLimits(directory, limits_, survey, &deleted);
  trimmed_ += deleted;
  return error;
}

void SessionCore::TakeStock(const Survey& survey) {
  state_ = CacheState();
  state_.entries = survey.entries.size();
  state_.bytes = survey.bytes;
  for (const Staging* writer : writers_)
    state_.bytes += writer->chargedBytes;
  std::uint64_t contentBytes = 0;
  for (const SurveyedEntry& entry : survey.entries)
    contentBytes += entry.contentBytes;
  state_.total.Reset(contentBytes);
  if (!survey.entries.empty()) clock_.StayAbove(ToNanoseconds(survey.entries.back().used));
  state_.managerStart = clock_.Next();
}

bool SessionCore::IsLive(const std::string& id) const {
  return std::any_of(writers_.begin(), writers_.end(),
                     [&](const Staging* writer) { return writer->id == id; });
}

SessionStatistics SessionCore::Statistics() {
  const Lock lock(mutex_);
  return {state_.entries, state_.bytes, starts_ - 1, trimmed_};
}

}  // namespace ox::session
