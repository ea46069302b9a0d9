// Deleting many entries at once. The session deletes their files itself and then restarts the
// manager: that can name an entry only by its URL, which need not be known.
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <limits>

#include "session/entry_listing.h"
#include "session/eviction_news.h"
#include "session/surveyed_entries.h"
#include "session/use_clock.h"

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;
using internal::Survey;
using internal::SurveyedEntry;

namespace {

// Lets the manager go on with what is there; deletes what belongs to no entry, as every restart.
Error DeleteAndRestart(SessionState& state, const std::vector<SurveyedEntry>& entries,
                       std::optional<EvictionReason> reason) OX_REQUIRES(state.mutex) {
  internal::RunningCache& cache = state.cache;
  // Stays so where deleting fails.
  cache.Account().MarkStale();
  for (const SurveyedEntry& entry : entries) {
    if (Error error = cache.GiveUpCommits(entry.name)) return error;
    if (Error error =
            internal::DeleteEntry(state.cacheDirectory, entry, reason, cache.Evictions())) {
      return error;
    }
    if (!reason) ++state.counts.removed;
  }
  return cache.Restart();
}

Error SurveyCurrent(SessionState& state, Survey* survey) OX_REQUIRES(state.mutex) {
  if (Error error = state.cache.EnsureCurrent()) return error;
  return internal::SurveyDirectory(state.cacheDirectory, survey);
}

// An entry as it was when it was listed. Other content has another inode or change time.
struct Seen {
  SurveyedEntry entry;  // of a survey that must outlive this
  ListedEntry listed;
  struct stat content {};
};

bool StatusOfContent(const SessionState& state, const SurveyedEntry& entry, struct stat* content) {
  const std::string path = state.cacheDirectory + "/" + std::string(entry.name);
  return lstat(path.c_str(), content) == 0;
}

bool IsUnchanged(const SessionState& state, const Seen& seen) {
  struct stat now;
  return StatusOfContent(state, seen.entry, &now) && now.st_ino == seen.content.st_ino &&
         now.st_ctim.tv_sec == seen.content.st_ctim.tv_sec &&
         now.st_ctim.tv_nsec == seen.content.st_ctim.tv_nsec;
}

Error ListForRemoval(SessionState& state, Survey* survey, std::vector<Seen>* all) {
  const MutexLock lock(state.mutex);
  if (Error error = SurveyCurrent(state, survey)) return error;
  for (const SurveyedEntry& entry : survey->entries) {
    Seen seen{entry, internal::ToListed(state.cacheDirectory, entry), {}};
    if (StatusOfContent(state, entry, &seen.content)) all->push_back(std::move(seen));
  }
  return {};
}

Error RemoveUnchanged(SessionState& state, const std::vector<Seen>& unwanted)
    OX_REQUIRES(state.mutex) {
  if (Error error = state.cache.EnsureCurrent()) return error;
  std::vector<SurveyedEntry> entries;
  for (const Seen& seen : unwanted) {
    if (IsUnchanged(state, seen)) entries.push_back(seen.entry);
  }
  return entries.empty() ? Error{} : DeleteAndRestart(state, entries, std::nullopt);
}

std::vector<SurveyedEntry> UnusedFor(std::chrono::seconds age, const Survey& survey,
                                     std::int64_t now) {
  std::vector<SurveyedEntry> unused;
  std::copy_if(survey.entries.begin(), survey.entries.end(), std::back_inserter(unused),
               [&](const SurveyedEntry& entry) {
                 const std::int64_t used =
                     std::max<std::int64_t>(internal::ToNanoseconds(entry.used), 0);
                 const std::chrono::nanoseconds since(now - used);
                 // In seconds: an age may be more than nanoseconds can hold.
                 return std::chrono::duration_cast<std::chrono::seconds>(since) >= age;
               });
  return unused;
}

// The manager's order of use is finer than that on disk, so it chooses first.
Error TrimToTarget(SessionState& state, const TrimTarget& target) OX_REQUIRES(state.mutex) {
  if (Error error = state.cache.EnsureCurrent()) return error;
  constexpr std::uint64_t kAny = std::numeric_limits<std::uint64_t>::max();
  if (Error error =
          state.room.EvictDownTo(target.bytes.value_or(kAny), target.entries.value_or(kAny))) {
    return error;
  }
  Survey survey;
  std::vector<SurveyedEntry> unused;
  if (target.unusedFor) {
    if (Error error = SurveyCurrent(state, &survey)) return error;
    unused = UnusedFor(*target.unusedFor, survey, state.cache.Clock().Next());
  }
  return DeleteAndRestart(state, unused, EvictionReason::kAge);
}

void SetUnlessNull(std::uint64_t* number, std::uint64_t value) {
  if (number != nullptr) *number = value;
}

}  // namespace

Error CacheSession::Clear(std::uint64_t* deleted) {
  return RemoveIf([](const ListedEntry&) { return true; }, deleted);
}

Error CacheSession::RemoveIf(const std::function<bool(const ListedEntry&)>& isUnwanted,
                             std::uint64_t* deleted) {
  SetUnlessNull(deleted, 0);
  return internal::Perform(*state_, [&]() -> Error {
    const internal::EvictionNews news(*state_);
    Survey survey;
    std::vector<Seen> seen;
    if (Error failed = ListForRemoval(*state_, &survey, &seen)) return failed;
    seen.erase(std::remove_if(seen.begin(), seen.end(),
                              [&](const Seen& one) { return !isUnwanted(one.listed); }),
               seen.end());
    // The predicate may have forked.
    if (Error failed = state_->directoryLock->CheckHeld()) return failed;
    const MutexLock lock(state_->mutex);
    const std::uint64_t before = state_->counts.removed;
    Error error = RemoveUnchanged(*state_, seen);
    SetUnlessNull(deleted, state_->counts.removed - before);
    return error;
  });
}

Error CacheSession::Trim(std::uint64_t* deleted) {
  return internal::Perform(*state_, [&]() -> Error {
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    internal::RunningCache& cache = state_->cache;
    const std::uint64_t before = cache.Evictions().Trimmed();
    Error error = cache.EnsureCurrent();
    if (!error) error = state_->room.MakeReserve();
    if (!error) error = cache.Restart();
    SetUnlessNull(deleted, cache.Evictions().Trimmed() - before);
    return error;
  });
}

Error CacheSession::TrimTo(const TrimTarget& target, std::uint64_t* deleted) {
  return internal::Perform(*state_, [&]() -> Error {
    const internal::EvictionNews news(*state_);
    const MutexLock lock(state_->mutex);
    const internal::EvictionLog& evictions = state_->cache.Evictions();
    const std::uint64_t before = evictions.Trimmed();
    Error error = TrimToTarget(*state_, target);
    SetUnlessNull(deleted, evictions.Trimmed() - before);
    return error;
  });
}

}  // namespace ox::session
