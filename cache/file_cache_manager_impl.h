#ifndef OX_CACHE_FILE_CACHE_MANAGER_IMPL_H_
#define OX_CACHE_FILE_CACHE_MANAGER_IMPL_H_

#include <cstdint>

#include "cache/cache_value_impl.h"
#include "cache/entry_node.h"
#include "cache/entry_tree.h"
#include "cache/joined_path.h"
#include "cache/relaxed.h"
#include "module/scoped_lock.h"
#include <oxfilecache/file_system.h>
#include <oxfilecache/format.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/manager.h>
#include <oxfilecache/string.h>

namespace ox::core::cache {

// The one cache manager. By subject: manager_construction.cpp, manager_configuration.cpp,
// manager_scan.cpp, manager_entries.cpp, manager_list.cpp, manager_limits.cpp,
// manager_local_file.cpp.
//
// Operations call one another through the table of virtual operations, as hosts that wrap it
// expect, and lock again on the way: the mutex is recursive.
class FileCacheManagerImpl : public FileCacheManager {
 public:
  // Obtains the host's services, reads the configuration and scans the cache directory. `started`
  // stays false when memory or file objects ran out on the way: a scan with limits or a directory
  // that were only half read would delete good files, and a pair that the scan could not list would
  // be overwritten by the next entry of its URL. Such a manager may only be destroyed.
  explicit FileCacheManagerImpl(bool& started);
  // Keeps the files of committed entries, deletes those of pending ones.
  ~FileCacheManagerImpl() override;
  FileCacheManagerImpl(const FileCacheManagerImpl&) = delete;
  FileCacheManagerImpl& operator=(const FileCacheManagerImpl&) = delete;
  // The deleting destructor in the table gives the memory back where it came from.
  static void operator delete(void* p);

  bool Add(CacheValue* value) override;
  CacheValue* Get(const OxString& url) override;
  bool Remove(CacheValue* value) override;
  unsigned long GetMaxSize() override;
  void SetMaxSize(const unsigned long& size) override;
  unsigned long GetMaxCacheValueSize() override;
  void SetMaxCacheValueSize(const unsigned long& size) override;
  unsigned long GetMaxEntries() override;
  void SetMaxEntries(const unsigned long& count) override;
  OxString GetDataDir() override;
  void SetDataDir(const OxString& dir) override;
  CacheValue* CreateCacheValue(const OxString& url, const unsigned long& size,
                               const OxString& newMetadata) override;
  void DestroyCacheValue(CacheValue* value) override;

  // Lists an entry, evicting others to make room. False when its path is listed already or room
  // cannot be made; the entry stays the caller's.
  virtual bool AddPrivate(CacheValue* value) OX_REQUIRES(mutex);

  // Path of the content file of a URL. The UTF-8 form that it needs stays in `url`.
  void GetLocalFileFromURL(const OxString& url, OxString& localFile);
  // The same path in UTF-8, which needs no memory of its own unless it is long.
  JoinedPath GetLocalPathFromURL(const OxString& url) const;

  // Whether an entry of that many bytes would be admitted without evicting anything.
  bool IsWithinConfigurationLimits(unsigned long size) const OX_REQUIRES(mutex);

 private:
  // Configuration. Configure is true when the file could be opened.
  bool Configure();
  bool ReadConfigurationFile(const char* path);
  void ParseConfiguration(const char* text);
  void ReadNumber(const char* text, const char* key, unsigned long& value);
  void ReadLimit(const char* text, const char* key, Relaxed<std::uint32_t>& limit);
  void ReadString(const char* text, const char* key, OxString& value);

  // Start-up scan. It runs before the manager is handed out, so its entry points hold no mutex.
  bool InitializeCacheEntries();
  static bool CacheDirEnumProc(os::filesystem::File& file, bool isDirectory,
                               void* context) OX_NO_THREAD_SAFETY_ANALYSIS;
  void ScanCacheFile(os::filesystem::File& metaFile) OX_REQUIRES(mutex);
  bool ContentPathFromMetaPath(OxString& path);
  void AdmitScanned(const OxString& contentPath, unsigned long contentSize) OX_REQUIRES(mutex);

  // Content file name of a URL, with the separator in front of it.
  struct LocalName {
    static constexpr std::size_t kLength = 1 + format::kContentNameLength;
    char text[kLength + 1];
  };
  void RenderLocalName(const OxString& url, LocalName* name) const;

  // An entry that is not listed, null when the declared size is too large or memory ran out.
  CacheValueImpl* CreateCacheValuePrivate(const OxString& url, const unsigned long& size,
                                          const OxString& newMetadata);

  // The list.
  EntryNode* FindByPath(const char* path, std::uint32_t tag) OX_REQUIRES(mutex);
  EntryNode* FindByValue(const CacheValue* value) OX_REQUIRES(mutex);
  void LinkAtHead(EntryNode* node) OX_REQUIRES(mutex);
  void Unlink(EntryNode* node) OX_REQUIRES(mutex);
  bool RemoveNodeOf(const CacheValue* value) OX_REQUIRES(mutex);

  // Evict from the tail until the limit holds; true when it does.
  bool FixCacheSize(unsigned long extra) OX_REQUIRES(mutex);
  bool FixMaxEntries(bool forNewEntry) OX_REQUIRES(mutex);
  bool FixMaxEntrySize() OX_REQUIRES(mutex);

  OxString configFilePath;
  OxString cacheDirectory;
  // The getters read these without the mutex.
  Relaxed<std::uint32_t> maxEntries;
  Relaxed<std::uint32_t> maxEntrySize;
  Relaxed<std::uint32_t> maxSize;
  IOxKernel* kernel;
  EntryNode* head OX_GUARDED_BY(mutex);
  EntryNode* tail OX_GUARDED_BY(mutex);
  std::uint32_t entryCount OX_GUARDED_BY(mutex);
  HostMutex mutex;
  std::uint32_t currentSize OX_GUARDED_BY(mutex);
  OxString dataDir;

  // Keep last: hosts know the offsets of the fields above.
  NodePool nodes_ OX_GUARDED_BY(mutex);
  EntryTree tree_ OX_GUARDED_BY(mutex);
  // The host's StrCmp found the path of a listed value unequal to itself, so that the value may be
  // listed twice.
  bool mayListTwice_ OX_GUARDED_BY(mutex) = false;
};

// Hosts with 64-bit longs may pass more than the 32-bit fields hold.
inline std::uint32_t Saturate32(unsigned long value) {
  return value > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(value);
}

}  // namespace ox::core::cache

#endif
