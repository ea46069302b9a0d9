// The entry as an object: fields and accessors.
#include "cache/cache_value_impl.h"

#include "cache/file_object.h"
#include "cache/module_services.h"
#include "module/scoped_lock.h"

namespace ox::core::cache {

CacheValueImpl::CacheValueImpl(const OxString& newUrl, OxString&& newFile,
                               const OxString& newMetadata, unsigned long declaredSize)
    : pending(false),
      file(static_cast<OxString&&>(newFile)),
      size(static_cast<std::uint32_t>(declaredSize)) {
  url = newUrl;
  metaData = newMetadata;
}

CacheValueImpl::~CacheValueImpl() = default;

unsigned long CacheValueImpl::GetSize() {
  const ScopedLock lock(services.entryMutex);
  if (pending) return size;
  const FileObject content;
  if (content.IsNull()) return 0;
  content->SetPath(file.UTF8());
  return static_cast<std::uint32_t>(content->GetSize());
}

OxString CacheValueImpl::GetURL() {
  return url;
}

OxString CacheValueImpl::GetFile() {
  return file;
}

OxString CacheValueImpl::GetMetaData() {
  const ScopedLock lock(services.entryMutex);
  return metaData;
}

void CacheValueImpl::SetURL(const OxString& newUrl) {
  url = newUrl;
}

void CacheValueImpl::SetFile(const OxString& newFile) {
  file = newFile;
}

std::uint32_t CacheValueImpl::MetaDataLength() {
  const ScopedLock lock(services.entryMutex);
  return metaData.Length();
}

std::uint32_t CacheValueImpl::EntrySize() {
  const auto contentSize = static_cast<std::uint32_t>(GetSize());
  return contentSize + MetaDataLength();
}

}  // namespace ox::core::cache
