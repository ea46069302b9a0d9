// The start-up scan: entries come back from the pairs of files that an earlier run left.
#include "cache/file_cache_manager_impl.h"
#include "cache/file_object.h"
#include "cache/joined_path.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/format.h>

namespace ox::core::cache {

using os::filesystem::File;

bool FileCacheManagerImpl::InitializeCacheEntries() {
  const FileObject directory;
  if (directory.IsNull()) return true;
  directory->SetPath(cacheDirectory.UTF8());
  directory->EnumerateDirectory(&CacheDirEnumProc, this, 0);
  return true;
}

bool FileCacheManagerImpl::CacheDirEnumProc(File& file, bool isDirectory, void* context) {
  // What a failed start did not list it did not count, so it would delete other pairs than a whole
  // one.
  if (isDirectory || services.hasStartFailed) return true;
  const AllocationWatch watch;
  static_cast<FileCacheManagerImpl*>(context)->ScanCacheFile(file);
  if (watch.Tripped()) services.hasStartFailed = true;
  return true;
}

bool FileCacheManagerImpl::IsWithinConfigurationLimits(unsigned long size) const {
  const auto bytes = static_cast<std::uint32_t>(size);
  return bytes <= maxEntrySize && entryCount < maxEntries && currentSize + bytes <= maxSize;
}

void FileCacheManagerImpl::ScanCacheFile(File& metaFile) {
  const AllocationWatch watch;
  OxString path;
  metaFile.GetPath(path);
  if (!ContentPathFromMetaPath(path)) return;
  const char* contentPath = path.UTF8();
  // A path with a piece missing would name another file, or none, and this one would be deleted.
  if (watch.Tripped()) return;

  const FileObject content;
  if (content.IsNull()) return;
  content->SetPath(contentPath);
  if (content->Exists() == 0) {
    metaFile.Delete(0);
    return;
  }
  const auto contentSize = static_cast<std::uint32_t>(content->GetSize());
  const auto metaSize = static_cast<std::uint32_t>(metaFile.GetSize());
  // 32 bits wide on every build: a sum that wraps is judged alike everywhere.
  const std::uint32_t pairSize = contentSize + metaSize;
  if (contentSize == 0 || !IsWithinConfigurationLimits(pairSize)) {
    content->Delete(0);
    metaFile.Delete(0);
    return;
  }
  AdmitScanned(path, contentSize);
}

// Turns the path of a metadata file into that of its content file; false when the name is not one
// of a metadata file or the path is too long to be one of ours.
bool FileCacheManagerImpl::ContentPathFromMetaPath(OxString& path) {
  const char* metaPath = path.UTF8();
  const char* suffix = kernel->StrStr(metaPath, format::kMetadataSuffix);
  if (suffix == nullptr || suffix[format::kMetadataSuffixLength] != '\0') return false;

  TextBuffer buffer;
  // The cut is counted in UTF-16 units. Beyond ASCII it falls in front of the suffix, a shortened
  // name is looked for, and the metadata file is in general deleted as an orphan.
  const std::size_t length = kernel->StrLen(metaPath);
  if (length >= format::kTextBytes) return false;
  std::size_t cut = path.Length() - format::kMetadataSuffixLength;
  // Only a host's text with a zero unit inside has more units than StrLen finds bytes.
  if (cut > length) cut = length;
  kernel->StrCpy(buffer.text, metaPath);
  buffer.text[cut] = '\0';
  for (std::size_t i = cut; i > 0; --i) {
    if (buffer.text[i - 1] == '\\') buffer.text[i - 1] = '/';
  }
  // A sequence that the cut splits takes the rest of the path as it stands in the buffer.
  path.AssignUTF8(buffer.text, cut, length);
  return true;
}

// Enters the pair as a committed entry without URL and metadata; the first Get that finds it sets
// both. A refused entry is dropped and its files stay.
void FileCacheManagerImpl::AdmitScanned(const OxString& contentPath, unsigned long contentSize) {
  const AllocationWatch watch;
  const OxString none;
  auto* value = NewObject<CacheValueImpl>(none, OxString(), none, contentSize);
  if (value == nullptr) return;
  value->SetFile(contentPath);
  if (watch.Tripped() || !AddPrivate(value)) DeleteObject(value);
}

}  // namespace ox::core::cache
