// Finding an entry and opening its content.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/module_text.h"
#include "session/session_state.h"
#include "session/without_exceptions.h"
#include <oxfilecache/format.h>

namespace ox::session {

using core::cache::CacheValue;
using internal::MutexLock;
using internal::SessionState;

namespace {

Error NotFound() {
  return MakeError(ErrorKind::kNotFound, "no entry of that URL");
}

UniqueFd OpenContent(SessionState& state, const std::string& path) OX_REQUIRES(state.mutex) {
  const std::string& directory = state.limits.cacheDirectory;
  // O_NONBLOCK, so that a FIFO planted under the name cannot hang the device.
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  return UniqueFd(state.contentDirectory.OpenFile(path.c_str(), directory.size() + 1, kFlags));
}

// Best effort: an entry whose time cannot be written is still served.
void NoteUse(SessionState& state, const std::string& contentPath, std::int64_t lastUse)
    OX_REQUIRES(state.mutex) {
  const std::int64_t now = state.cache.Clock().Next();
  // A time that lies ahead is somebody else's, and is set right.
  if (lastUse > 0 && lastUse <= now) {
    const std::chrono::nanoseconds unused(now - lastUse);
    // In seconds: the option may be more than nanoseconds can hold.
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(unused);
    if (seconds < state.options.touchInterval) return;
  }
  internal::SetFileTime(contentPath + format::kMetadataSuffix, now);
}

Error ReadMetadata(SessionState& state, CacheValue& value, FetchedEntry* entry)
    OX_REQUIRES(state.mutex) {
  entry->metadata = value.GetMetaData().UTF8();
  const auto read = state.cache.TakeMetadataRead();
  // A commit writes at least one byte.
  if (!read || read->error != 0 || read->bytes == 0 || read->bytes != entry->metadata.size()) {
    errno = read ? read->error : 0;
    return SystemError("cannot read the metadata whole", entry->path + format::kMetadataSuffix);
  }
  NoteUse(state, entry->path, read->modified);
  return {};
}

Error OpenEntry(SessionState& state, CacheValue& value, FetchedEntry* entry)
    OX_REQUIRES(state.mutex) {
  entry->path = internal::ContentPath(value);
  entry->content = OpenContent(state, entry->path);
  if (!entry->content.IsOpen()) {
    return errno == ENOENT ? NotFound() : SystemError("cannot open the content", entry->path);
  }
  struct stat status;
  if (fstat(entry->content.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return SystemError("the content is not a regular file", entry->path);
  }
  if (status.st_size == 0) return NotFound();
  entry->size = static_cast<std::uint64_t>(status.st_size);
  return ReadMetadata(state, value, entry);
}

}  // namespace

std::optional<FetchedEntry> CacheSession::Fetch(const std::string& url, Error* error) {
  std::optional<FetchedEntry> found;
  *error = internal::WithoutExceptions([&]() -> Error {
    if (Error invalid = internal::CheckUrl(url)) return invalid;
    const OxString text = internal::ToOxString(url);
    const MutexLock lock(state_->mutex);
    internal::RunningCache& cache = state_->cache;
    if (Error failed = cache.EnsureCurrent()) return failed;
    cache.TakeMetadataRead();
    CacheValue* value = cache.Find(text);
    if (value == nullptr) return NotFound();
    FetchedEntry entry;
    Error result = OpenEntry(*state_, *value, &entry);
    // The content was deleted or cut to nothing by somebody else or a power cut.
    if (result.kind == ErrorKind::kNotFound) cache.Remove(value);
    if (!result) found = std::move(entry);
    return result;
  });
  return found;
}

}  // namespace ox::session
