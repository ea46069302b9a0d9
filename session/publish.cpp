#include "session/publish.h"

#include <cerrno>

#include "session/commit_files.h"
#include "session/durable_io.h"
#include "session/module_text.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using core::cache::CacheValue;
using session::Durability;

namespace {

// Sizes of the files of an entry, 0 for those that are missing.
struct EntrySizes {
  std::uint64_t content = 0;
  std::uint64_t metaData = 0;
};

EntrySizes SizesOf(CacheValue* value) {
  if (value == nullptr) return {};
  const std::string path = ContentPath(*value);
  return {FileSize(path), FileSize(path + format::kMetaDataSuffix)};
}

Error MakeRoom(SessionState& state, const Publication& publication, CacheValue** old)
    OX_REQUIRES(state.mutex) {
  const EntrySizes sizes = SizesOf(*old);
  if (Error error = state.room.MakeRoomToPublish(publication.share, sizes.content + sizes.metaData,
                                                 *old != nullptr)) {
    return error;
  }
  if (state.cache.Account().StaysWithin(sizes.metaData, publication.metadata.Length(),
                                        state.limits.maxSize)) {
    return {};
  }
  if (Error error = state.cache.Restart()) return error;
  *old = state.cache.Find(publication.url);
  return {};
}

// After this the new entry is decided, unless it fails.
Error MakeCommitFile(SessionState& state, const CommitFiles& files, const Publication& publication)
    OX_REQUIRES(state.mutex) {
  if (Error error = files.CheckTargets()) return error;
  const Durability durability = state.options.durability;
  if (durability != Durability::kNone && !RenameFile(files.stagedMetaData, files.commit)) {
    return SystemError("cannot make the commit file", files.commit);
  }
  if (durability == Durability::kPower && !SyncDirectory(files.directory)) {
    const int syncError = errno;
    // A commit file that stays would be carried out later, so it is carried out now.
    if (DeleteFile(files.commit)) {
      publication.outcome.mayBeDecided = true;
      errno = syncError;
      return SystemError("cannot synchronise", files.directory);
    }
  }
  publication.outcome.isDecided = true;
  state.room.TurnIntoEntry(publication.share);
  return {};
}

Error PutInPlace(SessionState& state, const CommitFiles& files, PendingEntry pending)
    OX_REQUIRES(state.mutex) {
  const bool isInPlace = files.PutInPlace(true, state.options.durability == Durability::kPower);
  const int placeError = errno;
  if (isInPlace && pending && pending.Commit()) return {};
  // The restart puts in place what is not yet, and its scan admits the pair.
  pending.Release();
  if (Error error = state.cache.Restart()) return error;
  if (isInPlace || state.options.durability != Durability::kNone) return {};
  errno = placeError;
  return SystemError("cannot put the entry in place", files.content);
}

}  // namespace

Error Publish(SessionState& state, const Publication& publication) {
  RunningCache& cache = state.cache;
  CacheValue* old = cache.Find(publication.url);
  if (Error error = MakeRoom(state, publication, &old)) return error;

  PendingEntry pending;
  if (old == nullptr) pending = cache.Create(publication.url, publication.metadata);
  if (old == nullptr && !pending) {
    cache.Account().MarkStale();
    return MakeError(ErrorKind::kOutOfMemory, "the cache manager cannot create the entry");
  }
  const CommitFiles files(state.limits.cacheDirectory, publication.share.id,
                          ContentPath(old != nullptr ? *old : *pending),
                          state.options.durability != Durability::kNone);
  if (Error error = MakeCommitFile(state, files, publication)) return error;

  if (old != nullptr) {
    cache.Remove(old);
    if (cache.Account().IsTotalKnown()) {
      pending = cache.Create(publication.url, publication.metadata);
    }
  }
  return PutInPlace(state, files, std::move(pending));
}

}  // namespace ox::internal
