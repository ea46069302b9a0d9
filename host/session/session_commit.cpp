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
#include "host/session/durable_io.h"
#include "host/session/session_core.h"
#include "host/session/utf8.h"

namespace ox::host {

using core::cache::CacheValue;

namespace {

constexpr std::size_t kLongestMetaData = 1024;

Error Invalid(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

}  // namespace

Error SessionCore::Commit(Staging& staging, const std::string& metadata) {
  if (Error error = CheckCommit(staging, metadata)) return error;
  Lock lock(mutex_);
  if (Error error = Charge(lock, staging, metadata.size())) return error;
  const std::int64_t time = clock_.Next();
  lock.unlock();
  Error error = StageMetaData(staging, metadata, time);
  lock.lock();
  if (!error) error = Ready();
  if (!error) error = Publish(staging, metadata);
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
  if (metadata.empty() || metadata.size() > kLongestMetaData || !IsAsciiText(metadata)) {
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

Error SessionCore::Publish(Staging& staging, const std::string& metadata) {
  CacheValue* old = Get(staging.url);
  const std::string oldPath = old != nullptr ? old->GetFile().UTF8() : "";
  const std::uint64_t oldMetaData = FileSize(oldPath + kMetaDataFileSuffix);
  const std::uint64_t oldBytes = FileSize(oldPath) + oldMetaData;
  if (Error error = MakeRoomToPublish(staging, oldBytes, old != nullptr)) return error;

  const auto lowest = state_.total.lowest - static_cast<std::int64_t>(oldMetaData);
  const auto highest = state_.total.highest + static_cast<std::int64_t>(metadata.size());
  if (lowest < 0 || highest > std::int64_t{limits_.maxSize}) {
    if (Error error = Restart()) return error;
    old = Get(staging.url);
  }

  CacheValue* pending = old != nullptr ? nullptr : Create(staging.url, metadata);
  if (old == nullptr && pending == nullptr) {
    state_.needsRestart = true;
    return MakeError(ErrorKind::kOutOfMemory, "the cache manager cannot create the entry");
  }
  const std::string contentPath = (old != nullptr ? old : pending)->GetFile().UTF8();
  std::string metaDataFrom = staging.metaDataPath;
  if (Error error = Decide(staging, contentPath, &metaDataFrom)) {
    if (pending != nullptr) Abandon(pending, metadata.size());
    return error;
  }

  if (old != nullptr) {
    (*manager_)->Remove(old);
    const bool isTotalKnown = !state_.needsRestart && state_.total.lowest >= 0;
    pending = isTotalKnown ? Create(staging.url, metadata) : nullptr;
  }
  return CarryOut(staging, contentPath, metaDataFrom, pending);
}

Error SessionCore::MakeRoomToPublish(const Staging& staging, std::uint64_t replacedBytes,
                                     bool isReplacement) {
  const std::uint64_t kept = isReplacement ? 1 : 0;
  const auto isTooMuch = [&] {
    // This writer's bytes become an entry's and count like those.
    const bool isFirst = firstWriter_ == &staging;
    const std::uint64_t counted = isFirst ? state_.bytes : CountedBytes();
    return counted - replacedBytes > limits_.maxSize;
  };
  while (state_.entries > kept && (isTooMuch() || state_.entries + 1 - kept > limits_.maxEntries)) {
    if (!EvictOne()) return SystemError("cannot delete old entries", limits_.cacheDirectory);
  }
  return {};
}

// After this the new entry is decided. Without durability there is no such moment.
Error SessionCore::Decide(const Staging& staging, const std::string& contentPath,
                          std::string* metaDataFrom) {
  if (options_.durability == Durability::kNone) return {};
  const std::string commitFile = CommitFileName(contentPath, staging.id);
  if (!RenameFile(staging.metaDataPath, commitFile)) {
    return SystemError("cannot make the commit file", commitFile);
  }
  *metaDataFrom = commitFile;
  if (options_.durability != Durability::kPower || SyncDirectory(limits_.cacheDirectory)) return {};
  Error error = SystemError("cannot synchronise", limits_.cacheDirectory);
  DeleteFile(commitFile);
  return error;
}

Error SessionCore::CarryOut(Staging& staging, const std::string& contentPath,
                            const std::string& metaDataFrom, CacheValue* pending) {
  staging.isCommitted = true;
  Detach(staging);
  if (Error error = PutInPlace(staging, contentPath, metaDataFrom)) {
    state_.needsRestart = true;
    return error;
  }
  if (pending != nullptr && (*manager_)->Add(pending)) return {};
  return Restart();
}

Error SessionCore::PutInPlace(const Staging& staging, const std::string& contentPath,
                              const std::string& metaDataFrom) {
  if (!RenameFile(staging.contentPath, contentPath)) {
    return SystemError("cannot put the content in place", contentPath);
  }
  // Once the commit file is gone nothing tells any more where the content belongs.
  if (options_.durability == Durability::kPower && !SyncDirectory(limits_.cacheDirectory)) {
    return SystemError("cannot synchronise", limits_.cacheDirectory);
  }
  if (!RenameFile(metaDataFrom, contentPath + kMetaDataFileSuffix)) {
    return SystemError("cannot put the metadata in place", contentPath);
  }
  return {};
}

CacheValue* SessionCore::Create(const std::string& url, const std::string& metadata) {
  // Declared as empty: what is abandoned later is taken off the manager's total with the declared
  // size, which was never added.
  const unsigned long declaredSize = 0;
  CacheValue* value = (*manager_)->CreateCacheValue(OxString(url.c_str()), declaredSize,
                                                    OxString(metadata.c_str()));
  if (value == nullptr) return nullptr;
  ++state_.entries;
  state_.total.Add(metadata.size());
  return value;
}

void SessionCore::Abandon(CacheValue* pending, std::uint64_t metaDataBytes) {
  const bool needsRestart = state_.needsRestart;
  (*manager_)->DestroyCacheValue(pending);
  state_.total.Take(metaDataBytes, true);
  // It has no content file yet, so the failure to delete that means nothing.
  state_.needsRestart = needsRestart;
}

}  // namespace ox::host
