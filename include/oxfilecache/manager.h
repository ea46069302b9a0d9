// The cache manager as the host sees it.
//
// Storing: CreateCacheValue, write the content to the file that the entry's GetFile() names, Add.
// To give up in between: DestroyCacheValue. Replacing: Get, Remove, then store again.
//
// Limits: total bytes, number of entries, bytes of one entry. When an admission would break one,
// committed entries are evicted, least recently admitted or found first, with their files. An entry
// counts with GetSize() plus the length of its metadata in UTF-16 units, asked at the moment of
// admission, when a new entry's content is not yet written, and again at removal, when its files
// are already gone; the running total wraps at 32 bits and is never recomputed. Data on devices and
// the hosts that feed them have settled around this accounting.
//
// Failures are results only: null or false. Nothing is thrown and nothing is logged.
//
// Threads: every operation locks the manager, but for the three limit getters, GetDataDir and
// SetDataDir. The order of locks is always the manager's before the entries'.
#ifndef OXFILECACHE_MANAGER_H_
#define OXFILECACHE_MANAGER_H_

#include <oxfilecache/string.h>
#include <oxfilecache/value.h>

namespace ox::core::cache {

// The cache: one for each process, from ICacheManager::CreateCacheManager. Give each reference back
// with ICacheManager::DestroyCacheManager; never delete it. Nothing is thrown: a result of null or
// false is the only sign of a failure.
//
// Threads: see above; entries are lent, so threads that use them must keep others from evicting
// them.
class FileCacheManager {
 public:
  // Commits an entry: writes its metadata file. False when that fails (empty metadata always does)
  // and the entry stays pending; false too for an entry that is committed already.
  virtual bool Add(CacheValue* value) = 0;

  // The committed entry of that URL with its metadata freshly read from disk, or null. It becomes
  // the most recently used one. Lent: see value.h.
  virtual CacheValue* Get(const OxString& url) = 0;

  // Deletes the entry's files and the entry. False when it is not in the cache.
  virtual bool Remove(CacheValue* value) = 0;

  // The limit of all entries together, in bytes. Limits are 32 bits wide. Not locked.
  virtual unsigned long GetMaxSize() = 0;
  // Sets that limit, and evicts at once what no longer fits. This and the other two limits keep a
  // value that needs more than 32 bits as 0xFFFFFFFF.
  virtual void SetMaxSize(const unsigned long& size) = 0;
  // The limit of one entry, in bytes. Not locked.
  virtual unsigned long GetMaxCacheValueSize() = 0;
  // Sets that limit, and evicts at once the entries whose content alone is larger.
  virtual void SetMaxCacheValueSize(const unsigned long& size) = 0;
  // The limit of the number of entries. 0 means none, not "unlimited". Not locked.
  virtual unsigned long GetMaxEntries() = 0;
  // Sets that limit, and evicts at once the entries that are too many.
  virtual void SetMaxEntries(const unsigned long& count) = 0;

  // The text that SetDataDir was given last, empty before. It has no effect on the cache. Not
  // locked.
  virtual OxString GetDataDir() = 0;
  // Keeps a text for the host. Not locked: no other thread may call this or GetDataDir meanwhile.
  virtual void SetDataDir(const OxString& dir) = 0;

  // A new pending entry, or null when the URL has one already, the declared size (bytes) or the
  // metadata is above the limit of one entry, or no room can be made. Pending entries are not found
  // by Get and never evicted.
  virtual CacheValue* CreateCacheValue(const OxString& url, const unsigned long& size,
                                       const OxString& metadata) = 0;

  // Abandons a pending entry with its files. Never pass a committed entry: it would be freed while
  // still listed.
  virtual void DestroyCacheValue(CacheValue* value) = 0;

  virtual ~FileCacheManager() = default;
};

}  // namespace ox::core::cache

#endif
