// One cache entry as the host sees it.
//
// Ownership: the manager owns every entry; hosts borrow the pointers that CreateCacheValue and Get
// return. A borrowed pointer is good until the entry is removed, abandoned or evicted, and any
// admission on any thread may evict a committed entry. Never delete one.
//
// Threads: GetSize and GetMetaData lock. GetURL and GetFile do not: GetFile's text never changes
// once the entry is handed out; GetURL's changes when another thread's Get finds the same entry, so
// the host serialises those two.
//
// Strings come by value; their buffers go back to the kernel when the caller destroys them.
#ifndef OXFILECACHE_VALUE_H_
#define OXFILECACHE_VALUE_H_

#include <oxfilecache/string.h>

namespace ox::core::cache {

// One entry: the URL that it was asked for by, its content file, its metadata. Owned by the manager
// and lent to the host; never delete one. Where memory runs out, the text that was asked for is
// empty.
class CacheValue {
 public:
  // Bytes. Until the entry is committed the size declared at creation, then the size of the content
  // file on disk, measured at each call (0 when it is gone, if the host reports that as 0).
  virtual unsigned long GetSize() = 0;
  // The URL of the last request that found or made the entry; empty after a restart until then.
  virtual OxString GetURL() = 0;
  // Full path of the content file. The host writes and reads that file itself.
  virtual OxString GetFile() = 0;
  // The host's own text, as it was given at creation or last read from disk by Get.
  virtual OxString GetMetaData() = 0;

  virtual ~CacheValue() = default;
};

}  // namespace ox::core::cache

#endif
