// Finding and removing entries.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "session/durable_io.h"
#include "session/session_core.h"
#include "session/utf8.h"

namespace ox::session {

using core::cache::CacheValue;

namespace {

Error CheckUrl(const std::string& url) {
  if (!url.empty() && IsStrictUtf8(url)) return {};
  return MakeError(ErrorKind::kInvalidArgument, "the URL is empty, not UTF-8, or contains NUL");
}

Error NotFound() {
  return MakeError(ErrorKind::kNotFound, "no entry of that URL");
}

}  // namespace

std::optional<FetchedEntry> SessionCore::Fetch(const std::string& url, Error* error) {
  if ((*error = CheckUrl(url))) return std::nullopt;
  const OxString text = ToOxString(url);
  const Lock lock(mutex_);
  if ((*error = Ready())) return std::nullopt;
  fileSystem_.TakeStamp();
  errno = 0;  // what stands there afterwards is of the metadata file
  CacheValue* value = (*manager_)->Get(text);
  if (value == nullptr) {
    *error = NotFound();
    return std::nullopt;
  }
  FetchedEntry entry;
  *error = OpenEntry(value, &entry);
  // Its content is gone or was cut to nothing by somebody else or a power cut.
  if (error->kind == ErrorKind::kNotFound) (*manager_)->Remove(value);
  if (*error) return std::nullopt;
  return entry;
}

Error SessionCore::OpenEntry(CacheValue* value, FetchedEntry* entry) {
  entry->path = ContentPath(*value);
  entry->content = OpenContent(entry->path);
  if (!entry->content.IsOpen()) {
    return errno == ENOENT ? NotFound() : SystemError("cannot open the content", entry->path);
  }
  struct stat status;
  if (fstat(entry->content.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return SystemError("the content is not a regular file", entry->path);
  }
  if (status.st_size == 0) return NotFound();
  entry->size = static_cast<std::uint64_t>(status.st_size);

  entry->metadata = value->GetMetaData().UTF8();
  const std::optional<MetaDataStamp> stamp = fileSystem_.TakeStamp();
  // A commit writes at least one byte.
  if (!stamp || stamp->bytes == 0 || stamp->bytes != entry->metadata.size()) {
    return SystemError("cannot read the metadata whole", entry->path + format::kMetaDataSuffix);
  }
  Touch(entry->path, stamp->modified);
  return {};
}

// O_NONBLOCK, so that a FIFO planted under the name cannot hang the device.
UniqueFd SessionCore::OpenContent(const std::string& path) {
  const std::string& directory = limits_.cacheDirectory;
  contentDirectory_.Hold(directory.c_str());
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  return UniqueFd(contentDirectory_.OpenFile(path.c_str(), directory.size() + 1, kFlags));
}

// Best effort: an entry whose time cannot be written is still served.
void SessionCore::Touch(const std::string& contentPath, std::int64_t used) {
  const std::int64_t now = clock_.Next();
  const std::chrono::nanoseconds unused(now - used);
  // In seconds: the option may be more than nanoseconds can hold.
  if (std::chrono::duration_cast<std::chrono::seconds>(unused) < options_.touchInterval) return;
  SetFileTime(contentPath + format::kMetaDataSuffix, now);
}

Error SessionCore::Remove(const std::string& url) {
  if (Error error = CheckUrl(url)) return error;
  const OxString text = ToOxString(url);
  const Lock lock(mutex_);
  if (Error error = Ready()) return error;
  CacheValue* value = (*manager_)->Get(text);
  if (value == nullptr) return NotFound();
  const std::string path = ContentPath(*value);
  (*manager_)->Remove(value);
  if (!state_.needsRestart || state_.deletionError == ENOENT) return {};
  Error error = MakeError(ErrorKind::kInputOutput, "cannot delete");
  error.path = path;
  error.systemError = state_.deletionError;
  return error;
}

std::string SessionCore::NextId() {
  const Lock lock(mutex_);
  return ids_.Next();
}

// Before its files exist: a restart deletes those of writers that it does not know.
void SessionCore::Attach(Staging& staging) {
  const Lock lock(mutex_);
  writers_.push_back(&staging);
}

std::unique_ptr<StoreWriter> SessionCore::Store(const std::string& url, Error* error) {
  if ((*error = CheckUrl(url))) return nullptr;
  if (limits_.maxEntries == 0) {
    *error = MakeError(ErrorKind::kRefused, "MAX_CACHE_ENTRIES is missing or 0: the cache is off");
    return nullptr;
  }
  auto staging = std::make_unique<Staging>(*this, url, NextId());
  staging->contentPath = limits_.cacheDirectory + "/" + StagedContentName(staging->id);
  staging->metaDataPath = limits_.cacheDirectory + "/" + StagedMetaDataName(staging->id);
  Attach(*staging);
  staging->file = CreateNewFile(staging->contentPath);
  if (staging->file.IsOpen())
    return std::unique_ptr<StoreWriter>(new StoreWriter(std::move(staging)));
  *error = SystemError("cannot write", staging->contentPath);
  return nullptr;
}

}  // namespace ox::session
