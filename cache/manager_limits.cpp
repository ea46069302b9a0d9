// The limits: reading and setting them, and evicting what breaks them.
//
// Eviction walks from the tail, the least recently used, and never touches pending entries. The
// virtual Remove frees the node, so the next one is looked up before.
#include "cache/file_cache_manager_impl.h"
#include "module/scoped_lock.h"

namespace ox::core::cache {

unsigned long FileCacheManagerImpl::GetMaxSize() {
  return maxSize;
}

unsigned long FileCacheManagerImpl::GetMaxEntries() {
  return maxEntries;
}

unsigned long FileCacheManagerImpl::GetMaxCacheValueSize() {
  return maxEntrySize;
}

void FileCacheManagerImpl::SetMaxSize(const unsigned long& size) {
  const ScopedLock lock(mutex);
  maxSize = Saturate32(size);
  FixCacheSize(0);
}

void FileCacheManagerImpl::SetMaxEntries(const unsigned long& count) {
  const ScopedLock lock(mutex);
  maxEntries = Saturate32(count);
  FixMaxEntries(false);
}

void FileCacheManagerImpl::SetMaxCacheValueSize(const unsigned long& size) {
  const ScopedLock lock(mutex);
  maxEntrySize = Saturate32(size);
  FixMaxEntrySize();
}

bool FileCacheManagerImpl::FixCacheSize(unsigned long extra) {
  const auto sum = static_cast<std::uint32_t>(static_cast<std::uint32_t>(extra) + currentSize);
  std::int64_t excess = std::int64_t{sum} - std::int64_t{maxSize};
  for (EntryNode* node = tail; node != nullptr && excess > 0;) {
    CacheValueImpl* value = node->value;
    node = node->newer;
    if (value->IsPending()) continue;
    // Asked while the files are there. Remove asks again, without them, for what it subtracts from
    // the total.
    const std::uint32_t size = value->EntrySize();
    if (Remove(value)) excess -= size;
  }
  return excess <= 0;
}

bool FileCacheManagerImpl::FixMaxEntries(bool forNewEntry) {
  std::int32_t excess =
      maxEntries <= entryCount ? static_cast<std::int32_t>(entryCount - maxEntries) : -1;
  if (forNewEntry) ++excess;
  for (EntryNode* node = tail; node != nullptr && excess > 0;) {
    CacheValueImpl* value = node->value;
    node = node->newer;
    if (!value->IsPending() && Remove(value)) --excess;
  }
  return excess <= 0;
}

bool FileCacheManagerImpl::FixMaxEntrySize() {
  bool isWithin = true;
  for (EntryNode* node = tail; node != nullptr;) {
    CacheValueImpl* value = node->value;
    node = node->newer;
    // The metadata does not count here, although it does at admission.
    if (value->GetSize() <= maxEntrySize) continue;
    if (value->IsPending() || !Remove(value)) isWithin = false;
  }
  return isWithin;
}

}  // namespace ox::core::cache
