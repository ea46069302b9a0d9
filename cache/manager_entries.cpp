// Admission, lookup and removal.
#include "cache/file_cache_manager_impl.h"
#include "module/scoped_lock.h"
#include <oxfilecache/allocation.h>

namespace ox::core::cache {

CacheValueImpl* FileCacheManagerImpl::CreateCacheValuePrivate(const OxString& url,
                                                              const unsigned long& size,
                                                              const OxString& newMetadata) {
  if (size > GetMaxCacheValueSize()) return nullptr;
  const AllocationWatch watch;
  OxString localFile;
  GetLocalFileFromURL(url, localFile);
  auto* value =
      NewObject<CacheValueImpl>(url, static_cast<OxString&&>(localFile), newMetadata, size);
  if (value == nullptr || !watch.Tripped()) return value;
  DeleteObject(value);
  return nullptr;
}

CacheValue* FileCacheManagerImpl::CreateCacheValue(const OxString& url, const unsigned long& size,
                                                   const OxString& newMetadata) {
  const ScopedLock lock(mutex);
  // The assignment in the entry would take the old units behind an emptied text for metadata.
  const OxString none;
  CacheValueImpl* value =
      CreateCacheValuePrivate(url, size, newMetadata.IsEmpty() ? none : newMetadata);
  if (value == nullptr) return nullptr;
  // The entry is not pending yet, so its content counts as it is on disk now, not as declared.
  if (!AddPrivate(value)) {
    DeleteObject(value);
    return nullptr;
  }
  value->SetPending(true);
  return value;
}

bool FileCacheManagerImpl::AddPrivate(CacheValue* value) {
  auto* entry = static_cast<CacheValueImpl*>(value);
  const AllocationWatch watch;
  const char* path = entry->FileUTF8();
  const std::uint32_t tag = PathTag(path, kernel->StrLen(path));
  if (watch.Tripped() || FindByPath(path, tag) != nullptr) return false;

  const std::uint32_t size = entry->EntrySize();
  if (size > maxEntrySize) return false;
  auto* node = nodes_.Take();
  if (node == nullptr) return false;
  // What FixMaxEntries evicts stays evicted even when FixCacheSize refuses.
  if (!FixMaxEntries(true) || !FixCacheSize(size)) {
    nodes_.TakeBack(node);
    return false;
  }
  node->value = entry;
  node->tag = tag;
  currentSize += size;
  LinkAtHead(node);
  tree_.Enter(node);
  return true;
}

bool FileCacheManagerImpl::Add(CacheValue* value) {
  const ScopedLock lock(mutex);
  auto* entry = static_cast<CacheValueImpl*>(value);
  if (entry == nullptr || !entry->DumpMetaData()) return false;
  if (!entry->IsPending()) return AddPrivate(entry);
  entry->SetPending(false);
  return true;
}

CacheValue* FileCacheManagerImpl::Get(const OxString& url) {
  const ScopedLock lock(mutex);
  const AllocationWatch watch;
  const JoinedPath path = GetLocalPathFromURL(url);
  if (watch.Tripped()) return nullptr;

  EntryNode* node = FindByPath(path.Text(), PathTag(path.Text(), path.Length()));
  if (node == nullptr || node->value->IsPending()) return nullptr;
  node->value->SetURL(url);
  node->value->RefreshMetaData();
  Unlink(node);
  LinkAtHead(node);
  return node->value;
}

bool FileCacheManagerImpl::Remove(CacheValue* value) {
  const ScopedLock lock(mutex);
  if (value == nullptr || !RemoveNodeOf(value)) return false;
  auto* entry = static_cast<CacheValueImpl*>(value);
  entry->RemoveLocal();
  // Asked only now, when the files are gone: a committed entry then gives back little more than its
  // metadata. Hosts have set their limits for a total that behaves this way.
  currentSize -= entry->EntrySize();
  DeleteObject(entry);
  return true;
}

void FileCacheManagerImpl::DestroyCacheValue(CacheValue* value) {
  const ScopedLock lock(mutex);
  auto* entry = static_cast<CacheValueImpl*>(value);
  if (entry == nullptr) return;
  if (entry->IsPending()) {
    Remove(entry);
    return;
  }
  // The list is not searched and no file is deleted: this path is for entries that were never
  // listed.
  currentSize -= entry->EntrySize();
  DeleteObject(entry);
}

}  // namespace ox::core::cache
