#include "session/running_cache.h"

#include <algorithm>
#include <utility>

#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/half_placed.h"
#include "session/leftovers.h"
#include "session/survey.h"
#include "session/surveyed_entries.h"
#include "session/unfinished_commits.h"
#include "session/use_order.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using core::cache::CacheValue;

RunningCache::RunningCache(Setup setup, const session::CacheLimits& limits,
                           const WriterList& writers, DirectoryLock& lock)
    : limits_(limits),
      writers_(writers),
      lock_(lock),
      account_(setup.unit),
      shown_(std::move(setup.configuration)),
      fileSystem_(std::move(setup.directory), shown_, *this),
      module_(std::move(setup.module)) {
  module_->UseFileSystem(fileSystem_);
}

// While the account is stale the module may have missed its configuration, and would delete
// everything. A forked child has no lock.
bool RunningCache::MayDelete() const {
  return !account_.IsStale() && lock_.IsHeld();
}

void RunningCache::NoteContentDeletion(const char* path, const struct stat& status, bool isDeleted,
                                       int error) {
  deletions_.Note(path);
  account_.NoteContentDeletion(status, isDeleted, error);
  if (isDeleted) evictions_.NoteDeletion(path, static_cast<std::uint64_t>(status.st_size));
}

void RunningCache::NoteMetadataDeletion(const struct stat& status, bool isDeleted, int error) {
  account_.NoteMetadataDeletion(status, isDeleted, error);
}

Error RunningCache::EnsureCurrent() {
  if (Error error = lock_.Check(false)) {
    // What happens there meanwhile is not seen.
    account_.MarkStale();
    return error;
  }
  // Once it can be, a commit that waits is finished before anything newer is stored.
  const bool isCurrent = manager_.has_value() && !account_.IsStale() && !needsRestart_;
  return isCurrent ? Error{} : Restart();
}

Error RunningCache::Restart() {
  // From here on the module deletes nothing: a manager that is given back would delete the files of
  // an entry that is in place and only not committed.
  account_.MarkStale();
  if (Error error = lock_.Check(true)) return error;
  manager_.reset();
  deletions_.NoteAny();
  Survey survey;
  if (Error error = PutDirectoryInOrder(&survey)) return error;
  if (!survey.entries.empty()) clock_.StayAbove(ToNanoseconds(survey.entries.back().used));
  account_.Reset(survey, writers_.GrantedBytes(), clock_.Next());
  {
    const auto shown = shown_.ShowEntries(survey.entries);
    manager_.emplace(module_->Module());
  }
  if (!*manager_ || account_.IsStale()) {
    account_.MarkStale();
    manager_.reset();
    return MakeError(ErrorKind::kOutOfMemory, "no memory for the cache manager");
  }
  ++starts_;
  // The scan deletes nothing unless somebody else changed the directory meanwhile.
  if (account_.Entries() != survey.entries.size()) account_.MarkStale();
  needsRestart_ = survey.mayFinishLater;
  blockedCommits_ = std::move(survey.blockedCommits);
  waitingEntries_ = std::move(survey.waitingEntries);
  return {};
}

Error RunningCache::PutDirectoryInOrder(Survey* survey) {
  const std::string& directory = limits_.cacheDirectory;
  // Once: a disk that stays full would cost entries at each operation.
  EvictionLog* evictions = blockedCommits_.empty() ? &evictions_ : nullptr;
  const auto isBeingWritten = [this](const std::string& id) { return writers_.Contains(id); };
  if (Error error = FinishCommits(directory, isBeingWritten, evictions, survey)) return error;
  if (Error error = PlaceContents(directory, isBeingWritten, survey)) return error;
  if (Error error = DeleteLeftovers(directory, *survey, isBeingWritten, &leftovers_)) return error;
  ResetImpossibleTimes(directory, survey);
  if (Error error = TrimToLimits(directory, limits_, account_.Unit(), survey, evictions_)) {
    return error;
  }
  SettleUseOrder(directory, *survey);
  return {};
}

Error RunningCache::GiveUpCommitsOf(const OxString& url, const WriterShare* own) {
  if (blockedCommits_.empty() && waitingEntries_.empty() && !writers_.HaveKept()) return {};
  return GiveUpCommits(ContentName(url.UTF8()), own);
}

Error RunningCache::GiveUpCommits(std::string_view name, const WriterShare* own) {
  for (const WriterShare* share : writers_.Shares()) {
    const std::string& path = share->keptPath;
    const bool isOfEntry = share != own && !path.empty() &&
                           path.compare(limits_.cacheDirectory.size() + 1, name.size(), name) == 0;
    if (isOfEntry && !DeleteFile(lock_.At(path))) return SystemError("cannot delete", path);
  }
  for (auto commit = blockedCommits_.begin(); commit != blockedCommits_.end();) {
    if (commit->compare(0, name.size(), name) != 0) {
      ++commit;
      continue;
    }
    if (Error error = GiveUpCommit(limits_.cacheDirectory, *commit)) return error;
    deletions_.NoteAny();
    // The account does not count its staged content until the restart before the next operation.
    needsRestart_ = true;
    commit = blockedCommits_.erase(commit);
  }
  return GiveUpWaitingEntry(name);
}

// Without the metadata nothing tells any more that the staged content is this entry's.
Error RunningCache::GiveUpWaitingEntry(std::string_view name) {
  const auto waiting = std::find(waitingEntries_.begin(), waitingEntries_.end(), name);
  if (waiting == waitingEntries_.end()) return {};
  const std::string content = limits_.cacheDirectory + "/" + *waiting;
  deletions_.NoteAny();
  for (const std::string& path : {content, content + format::kMetadataSuffix}) {
    if (!DeleteFile(lock_.At(path))) return SystemError("cannot delete", path);
  }
  needsRestart_ = true;
  waitingEntries_.erase(waiting);
  return {};
}

CacheValue* RunningCache::FindToReplace(const OxString& url, const OxString& metadata) {
  const auto shown = shown_.ShowMetadata(metadata.UTF8());
  return Find(url);
}

PendingEntry RunningCache::Create(const OxString& url, const OxString& metadata) {
  // Declared as empty: what is abandoned later is taken off the manager's total with the declared
  // size, which was never added.
  const unsigned long declaredSize = 0;
  // Whatever lies under its name, the new content takes its place: counted now, it would never be
  // taken off the total again.
  const auto shown = shown_.ShowNoContent();
  CacheValue* value = (*manager_)->CreateCacheValue(url, declaredSize, metadata);
  if (value == nullptr) return {};
  account_.NoteCreated(metadata.Length());
  return PendingEntry(*this, value, metadata.Length());
}

void RunningCache::Abandon(CacheValue* value, std::uint64_t metadataLength) {
  const bool wasStale = account_.IsStale();
  (*manager_)->DestroyCacheValue(value);
  account_.NoteAbandoned(metadataLength);
  // The entry has no content file yet, so the failure to delete that means nothing.
  account_.SetStale(wasStale);
}

// The manager itself chooses: lowering its limit by one entry makes it evict the one that was used
// longest ago.
bool RunningCache::EvictOne(session::EvictionReason reason) {
  const EvictionLog::Cause cause(evictions_, reason);
  const std::uint64_t bytes = account_.Bytes();
  const unsigned long oneLess = static_cast<unsigned long>(account_.Entries() - 1);
  const unsigned long limit = limits_.maxEntries;
  (*manager_)->SetMaxEntries(oneLess);
  (*manager_)->SetMaxEntries(limit);
  if (account_.Bytes() == bytes) account_.MarkStale();
  return !account_.IsStale();
}

Error RunningCache::DeletionFailed(const char* detail, const std::string& path) const {
  Error error = MakeError(ErrorKind::kInputOutput, detail);
  error.path = path;
  error.systemError = account_.DeletionError();
  return error;
}

}  // namespace ox::internal
