#ifndef OX_CACHE_CACHE_VALUE_IMPL_H_
#define OX_CACHE_CACHE_VALUE_IMPL_H_

#include <cstdint>

#include "cache/relaxed.h"
#include <oxfilecache/string.h>
#include <oxfilecache/value.h>

namespace ox::core::cache {

// Holds no file open between calls. Objects come from NewObject and go through DeleteObject.
class CacheValueImpl : public CacheValue {
 public:
  CacheValueImpl(const OxString& newUrl, OxString&& newFile, const OxString& newMetadata,
                 unsigned long declaredSize);
  // Leaves both files on disk: the next start reads them back.
  ~CacheValueImpl() override;
  CacheValueImpl(const CacheValueImpl&) = delete;
  CacheValueImpl& operator=(const CacheValueImpl&) = delete;

  unsigned long GetSize() override;
  OxString GetURL() override;
  OxString GetFile() override;
  OxString GetMetaData() override;

  // All below: the caller holds the manager's mutex, or the entry is not listed yet.

  void SetURL(const OxString& newUrl);
  void SetFile(const OxString& newFile);

  bool IsPending() const { return pending; }
  void SetPending(bool isPending) { pending = isPending; }

  // The path in UTF-8. Made by the first call, which must come before the entry is listed: later
  // ones run on several threads.
  const char* FileUTF8() const { return file.UTF8(); }

  // What the entry counts for: GetSize() plus the length of the metadata, asked in this order and
  // each under the entry mutex, in 32 bits.
  std::uint32_t EntrySize();

  // Writes the metadata file. True when all of it was written.
  bool DumpMetaData();
  // Reads the metadata file; true when it gave any byte. Locks the entry mutex.
  bool RefreshMetaData();
  // Deletes the content file, then the metadata file; true when the first went.
  bool RemoveLocal();

 private:
  std::uint32_t MetaDataLength();

  // Add clears it under the manager's mutex while a host's GetSize reads it under the entry mutex.
  Relaxed<bool> pending;
  OxString url;
  OxString file;
  OxString metaData;
  std::uint32_t size;
};

}  // namespace ox::core::cache

#endif
