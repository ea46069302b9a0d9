// One commit. In the order of the steps:
//
//   1. The metadata is written beside the content, both under staging names.
//   2. Room is made. What is there of that URL is the last thing to be evicted.
//   3. The staged metadata is renamed to the commit file: from here on the new entry is decided,
//      and a session that finds the commit file finishes the rest.
//   4. The manager removes the old entry and creates the new one.
//   5. The staged content is renamed to the content file, the commit file to the metadata file.
//   6. The manager commits the entry. Its own write of the metadata goes nowhere: the file is
//   there.
//
// Where the manager refuses in 4 or 6, it is restarted, and its scan admits the pair.
#include <cerrno>

#include "session/durable_io.h"
#include "session/session_core.h"
#include "session/utf8.h"
#include <oxfilecache/format.h>

namespace ox::session {

using core::cache::CacheValue;

namespace {

Error Invalid(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

}  // namespace

Error SessionCore::Commit(Staging& staging, const std::string& metadata) {
  if (Error error = CheckCommit(staging, metadata)) return error;
  const OxString url = ToOxString(staging.url);
  const OxString text = ToOxString(metadata);
  Lock lock(mutex_);
  if (Error error = Charge(lock, staging, metadata.size())) return error;
  const std::int64_t time = clock_.Next();
  lock.unlock();
  Error error = StageMetaData(staging, metadata, time);
  lock.lock();
  if (!error) error = Ready();
  if (!error) error = Publish(staging, url, text);
  if (error && !staging.isCommitted) {
    DeleteFile(staging.metaDataPath);
    Discharge(staging, metadata.size());
  }
  return error;
}

Error SessionCore::CheckCommit(const Staging& staging, const std::string& metadata) const {
  if (staging.isCommitted) return Invalid("the writer is used up");
  if (staging.failure) return staging.failure;
  if (staging.contentBytes == 0) return Invalid("an entry may not be empty");
  if (metadata.empty() || metadata.size() > format::kTextBytes || !IsAsciiText(metadata)) {
    return Invalid("metadata must be 1 to 1,024 bytes of ASCII without NUL");
  }
  const std::uint64_t bytes = staging.contentBytes + metadata.size();
  if (bytes <= limits_.maxEntrySize && bytes <= limits_.maxSize) return {};
  return MakeError(ErrorKind::kRefused,
                   "content and metadata together exceed the limit of one entry");
}

Error SessionCore::StageMetaData(Staging& staging, const std::string& metadata,
                                 std::int64_t time) const {
  const UniqueFd file = CreateNewFile(staging.metaDataPath);
  if (!file.IsOpen() || !WriteAll(file.Get(), metadata.data(), metadata.size()) ||
      !SetFileTime(file.Get(), time)) {
    return SystemError("cannot write", staging.metaDataPath);
  }
  if (options_.durability != Durability::kPower) return {};
  // The directory too: a commit file on the medium whose content's name is not would be taken for
  // one that was carried out.
  if (!SyncFile(staging.file.Get()) || !SyncFile(file.Get()) ||
      !SyncDirectory(limits_.cacheDirectory)) {
    return SystemError("cannot synchronise", staging.contentPath);
  }
  return {};
}

Error SessionCore::Publish(Staging& staging, const OxString& url, const OxString& metadata) {
  CacheValue* old = (*manager_)->Get(url);
  std::uint64_t oldMetaData = 0;
  std::uint64_t oldBytes = 0;
  if (old != nullptr) {
    const std::string oldPath = ContentPath(*old);
    oldMetaData = FileSize(oldPath + format::kMetaDataSuffix);
    oldBytes = FileSize(oldPath) + oldMetaData;
  }
  if (Error error = MakeRoomToPublish(staging, oldBytes, old != nullptr)) return error;

  const auto lowest = state_.total.lowest - static_cast<std::int64_t>(oldMetaData);
  const auto highest = state_.total.highest + std::int64_t{metadata.Length()};
  if (lowest < 0 || highest > std::int64_t{limits_.maxSize}) {
    if (Error error = Restart()) return error;
    old = (*manager_)->Get(url);
  }

  CacheValue* pending = old != nullptr ? nullptr : Create(url, metadata);
  if (old == nullptr && pending == nullptr) {
    state_.needsRestart = true;
    return MakeError(ErrorKind::kOutOfMemory, "the cache manager cannot create the entry");
  }
  const std::string content = ContentPath(old != nullptr ? *old : *pending);
  const bool isLogged = options_.durability != Durability::kNone;
  const CommitPaths paths{content,
                          isLogged ? CommitFileName(content, staging.id) : staging.metaDataPath,
                          content + format::kMetaDataSuffix};
  if (Error error = Decide(staging, paths)) {
    if (pending != nullptr) Abandon(pending, metadata);
    return error;
  }

  if (old != nullptr) {
    (*manager_)->Remove(old);
    const bool isTotalKnown = !state_.needsRestart && state_.total.lowest >= 0;
    pending = isTotalKnown ? Create(url, metadata) : nullptr;
  }
  return CarryOut(staging, paths, pending);
}

Error SessionCore::MakeRoomToPublish(const Staging& staging, std::uint64_t replacedBytes,
                                     bool isReplacement) {
  const std::uint64_t kept = isReplacement ? 1 : 0;
  const auto isTooMuch = [&] {
    // This writer's bytes become an entry's and count like those.
    const bool isFirst = firstWriter_ == &staging;
    const std::uint64_t counted = isFirst ? state_.bytes : CountedBytes();
    return counted > limits_.maxSize + replacedBytes;
  };
  while (state_.entries > kept && (isTooMuch() || state_.entries + 1 - kept > limits_.maxEntries)) {
    if (!EvictOne()) return DeletionFailed();
  }
  return {};
}

// After this the new entry is decided, unless it fails.
Error SessionCore::Decide(Staging& staging, const CommitPaths& paths) {
  for (const std::string* target : {&paths.content, &paths.metaData}) {
    if (!IsDirectory(*target)) continue;
    // Found out later, it would keep a decided commit from ever being carried out.
    errno = EISDIR;
    return SystemError("cannot put the entry in place", *target);
  }
  const bool isLogged = options_.durability != Durability::kNone;
  if (isLogged && !RenameFile(staging.metaDataPath, paths.commit)) {
    return SystemError("cannot make the commit file", paths.commit);
  }
  if (options_.durability == Durability::kPower && !SyncDirectory(limits_.cacheDirectory)) {
    const int syncError = errno;
    // A commit file that stays would be carried out later, so it is carried out now.
    if (DeleteFile(paths.commit)) {
      staging.mayBeDecided = true;
      errno = syncError;
      return SystemError("cannot synchronise", limits_.cacheDirectory);
    }
  }
  staging.isCommitted = true;
  Detach(staging);
  return {};
}

Error SessionCore::CarryOut(const Staging& staging, const CommitPaths& paths, CacheValue* pending) {
  const bool isInPlace = PutInPlace(staging, paths);
  const int placeError = errno;
  if (isInPlace && pending != nullptr && (*manager_)->Add(pending)) return {};
  // The restart puts in place what is not yet, and its scan admits the pair.
  state_.needsRestart = true;
  if (Error error = Restart()) return error;
  if (isInPlace || options_.durability != Durability::kNone) return {};
  errno = placeError;
  return SystemError("cannot put the entry in place", paths.content);
}

bool SessionCore::PutInPlace(const Staging& staging, const CommitPaths& paths) const {
  if (!RenameFile(staging.contentPath, paths.content)) return false;
  // Once the commit file is gone nothing tells any more where the content belongs.
  const bool isSynchronised =
      options_.durability != Durability::kPower || SyncDirectory(limits_.cacheDirectory);
  return isSynchronised && RenameFile(paths.commit, paths.metaData);
}

CacheValue* SessionCore::Create(const OxString& url, const OxString& metadata) {
  // Declared as empty: what is abandoned later is taken off the manager's total with the declared
  // size, which was never added.
  const unsigned long declaredSize = 0;
  CacheValue* value = (*manager_)->CreateCacheValue(url, declaredSize, metadata);
  if (value == nullptr) return nullptr;
  ++state_.entries;
  state_.total.Add(metadata.Length());
  return value;
}

void SessionCore::Abandon(CacheValue* pending, const OxString& metadata) {
  const bool needsRestart = state_.needsRestart;
  (*manager_)->DestroyCacheValue(pending);
  state_.total.Take(metadata.Length(), true);
  // It has no content file yet, so the failure to delete that means nothing.
  state_.needsRestart = needsRestart;
}

}  // namespace ox::session
