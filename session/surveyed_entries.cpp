#include "session/surveyed_entries.h"

#include <algorithm>
#include <vector>

#include "session/durable_io.h"
#include "session/errno_meaning.h"
#include "session/use_clock.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using session::EvictionReason;

namespace {

Error Delete(const std::string& path) {
  return DeleteFile(path) ? Error{} : SystemError("cannot delete", path);
}

bool IsAdmissible(const SurveyedEntry& entry, const session::CacheLimits& limits) {
  return entry.contentBytes > 0 && entry.contentBytes + entry.metadataBytes <= limits.maxEntrySize;
}

}  // namespace

// Content first: metadata without content is deleted by any scan, content without metadata is not.
Error DeleteEntry(const std::string& directory, const SurveyedEntry& entry,
                  std::optional<EvictionReason> reason, EvictionLog& evictions) {
  const std::string content = directory + "/" + std::string(entry.name);
  if (Error error = Delete(content)) return error;
  if (reason) evictions.Note(*reason, content, entry.contentBytes);
  return Delete(content + format::kMetadataSuffix);
}

void ResetImpossibleTimes(const std::string& directory, Survey* survey) {
  const std::int64_t latest = UseClock::LatestPossible();
  std::vector<SurveyedEntry>& entries = survey->entries;
  const auto isPossible = [latest](const SurveyedEntry& entry) {
    return ToNanoseconds(entry.used) <= latest;
  };
  const auto firstImpossible = std::find_if_not(entries.begin(), entries.end(), isPossible);
  for (auto entry = firstImpossible; entry != entries.end(); ++entry) {
    entry->used = timespec{};
    // Best effort: this session knows the order either way.
    SetFileTime(directory + "/" + std::string(entry->name) + format::kMetadataSuffix, 0);
  }
  std::rotate(entries.begin(), firstImpossible, entries.end());
}

Error TrimToLimits(const std::string& directory, const session::CacheLimits& limits,
                   const AllocationUnit& unit, Survey* survey, EvictionLog& evictions) {
  std::vector<SurveyedEntry>& entries = survey->entries;
  // Those that stay move to the end, in their order.
  auto kept = entries.rbegin();
  std::uint64_t bytes = 0;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    const std::uint64_t size = OnDisk(*entry, unit);
    const auto count = static_cast<std::size_t>(kept - entries.rbegin());
    // Alone, an entry may take more blocks than the limit of the whole cache has bytes.
    const bool fits = count == 0 ? entry->contentBytes + entry->metadataBytes <= limits.maxSize
                                 : bytes + size <= limits.maxSize;
    if (fits && IsAdmissible(*entry, limits) && count < limits.maxEntries) {
      bytes += size;
      *kept++ = *entry;
      continue;
    }
    Error error = DeleteEntry(directory, *entry, EvictionReason::kLimits, evictions);
    // What this user may not delete stays, and is no entry of this cache.
    if (error && !MayGoOnAfter(error.systemError)) return error;
  }
  entries.erase(entries.begin(), kept.base());
  survey->bytes = bytes;
  return {};
}

}  // namespace ox::internal
