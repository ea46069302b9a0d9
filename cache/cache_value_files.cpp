// The entry's work on disk: writing and reading its metadata file, deleting both files.
#include "cache/cache_value_impl.h"
#include "cache/file_object.h"
#include "cache/joined_path.h"
#include "module/scoped_lock.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/format.h>
#include <oxfilecache/kernel.h>

namespace ox::core::cache {

using os::filesystem::File;

bool CacheValueImpl::DumpMetaData() {
  // Looks at the buffer, not at the length. After a refresh that found no file the old text is
  // still in the buffer; hosts that commit such an entry again expect true and an empty file.
  if (metaData.Text()[0] == 0) return false;

  const AllocationWatch watch;
  const JoinedPath path(file, format::kMetadataSuffix);
  const char* text = metaData.UTF8();
  if (watch.Tripped()) return false;

  const FileObject metaFile;
  if (metaFile.IsNull()) return false;
  metaFile->SetPath(path.Text());
  if (metaFile->Open(File::kOpenWrite) == 0) return false;
  // The count is in UTF-16 units although bytes are written, so text beyond U+007F loses its end.
  // Metadata files on devices are that long; hosts keep their metadata in ASCII because of it.
  const std::uint64_t count = metaData.Length();
  const std::uint64_t written = metaFile->Write(count, text);
  metaFile->Close();
  return written == count;
}

bool CacheValueImpl::RefreshMetaData() {
  const ScopedLock lock(services.entryMutex);
  const JoinedPath path(file, format::kMetadataSuffix);
  const FileObject metaFile;
  if (path.Text() == nullptr) return false;

  // Emptied before the file is looked for: after every failure below the metadata is empty. The old
  // units stay in the buffer; DumpMetaData looks at them.
  metaData = "";
  if (metaFile.IsNull()) return false;
  metaFile->SetPath(path.Text());
  if (metaFile->Exists() == 0) return false;
  if (metaFile->Open(File::kOpenRead) == 0) return false;

  TextBuffer buffer;
  const std::uint32_t count = ReadText(*metaFile, &buffer);
  // A sequence that the first NUL cuts short takes the file's bytes behind it as they stand.
  metaData.AssignUTF8(buffer.text, Kernel()->StrLen(buffer.text), count);
  return count != 0;
}

bool CacheValueImpl::RemoveLocal() {
  const JoinedPath metaPath(file, format::kMetadataSuffix);
  const FileObject local;
  if (local.IsNull()) return false;
  if (local->SetPath(file.UTF8()) == 0) return false;
  // A content file that stays keeps its metadata file: the pair is an entry again at the next
  // start.
  if (local->Delete(0) == 0) return false;
  if (metaPath.Text() == nullptr) return true;
  local->SetPath(metaPath.Text());
  local->Delete(0);
  return true;
}

}  // namespace ox::core::cache
