#include "session/publish.h"

#include <cerrno>

#include "session/commit_files.h"
#include "session/durable_io.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/module_text.h"
#include "session/session_names.h"
#include <oxfilecache/format.h>

namespace ox::internal {

using core::cache::CacheValue;
using session::Durability;

namespace {

// Of the files of an entry, 0 for those that are missing.
struct EntrySizes {
  bool isContentMissing = false;
  std::uint64_t contentOnDisk = 0;
  std::uint64_t metadataOnDisk = 0;
  std::uint64_t metadataLength = 0;

  bool AreThere() const { return contentOnDisk > 0 && metadataOnDisk > 0; }
};

EntrySizes SizesOf(SessionState& state, const CommitFiles& files) OX_REQUIRES(state.mutex) {
  const DirectoryLock& directory = *state.directoryLock;
  const AllocationUnit& unit = state.cache.Account().Unit();
  errno = 0;
  const struct stat content = StatusOfFile(directory.At(files.content));
  if (errno == ENOENT) return {true};
  const struct stat metadata = StatusOfFile(directory.At(files.metadata));
  return {false, unit.OnDisk(static_cast<std::uint64_t>(content.st_size)),
          unit.OfMetadata(metadata), static_cast<std::uint64_t>(metadata.st_size)};
}

CommitFiles FilesOf(const SessionState& state, const Publication& publication) {
  return {state.cacheDirectory, publication.share.id,
          Joined({state.cacheDirectory, "/", ContentName(publication.url)}),
          state.directoryLock.get()};
}

// Has the manager restarted unless it and the disk are settled to hold the same metadata again.
// Where memory runs out on the way, the manager knows the new metadata and the disk has the old:
// when the entry goes, the manager's total would lose another length than it had counted, and below
// 0 it has the manager evict everything.
class StaleUnlessSettled {
 public:
  explicit StaleUnlessSettled(DiskAccount& account) : account_(account) {}
  ~StaleUnlessSettled() {
    if (!isSettled_) account_.MarkStale();
  }
  StaleUnlessSettled(const StaleUnlessSettled&) = delete;
  StaleUnlessSettled& operator=(const StaleUnlessSettled&) = delete;

  void Settle() { isSettled_ = true; }

 private:
  DiskAccount& account_;
  bool isSettled_ = false;
};

// Room for the new entry, in the cache and in the manager's total. A restart on the way may have
// taken the old entry away, or lists it anew.
Error MakeRoom(SessionState& state, const Publication& publication, const EntrySizes& oldSizes,
               PlacedMetadata& placed, CacheValue** old) OX_REQUIRES(state.mutex) {
  const std::uint64_t oldBytes = oldSizes.contentOnDisk + oldSizes.metadataOnDisk;
  for (bool isFirst = true;; isFirst = false) {
    const bool isReplacement = *old != nullptr;
    Error error = state.room.MakeRoomToPublish(publication.share, isReplacement ? oldBytes : 0,
                                               isReplacement);
    // Somebody has deleted the files of what was to go: a restart tells what is there.
    const bool isOutdated = isFirst && error.systemError == ENOENT;
    if (error && !isOutdated) return error;
    const bool isWithin = state.cache.Account().StaysWithin(
        oldSizes.metadataLength, publication.metadata.Length(), state.limits.maxSize);
    if (!error && isWithin) return {};
    if (Error failed = placed.MoveToStaged()) return failed;
    if (Error failed = state.cache.Restart()) return failed;
    *old = state.cache.FindToReplace(*publication.share.url, publication.metadata);
    if (!isOutdated) return {};
  }
}

// From here on the new entry is in place, or a restart puts it there.
void MarkDecided(SessionState& state, const Publication& publication) OX_REQUIRES(state.mutex) {
  publication.outcome.isDecided = true;
  state.room.TurnIntoEntry(publication.share);
}

// The files are in place, but the manager does not know. A restart puts in place what is not yet.
Error RestartAndFind(SessionState& state, const Publication& publication, const Error& error)
    OX_REQUIRES(state.mutex) {
  if (Error restartError = state.cache.Restart()) return restartError;
  return state.cache.Find(*publication.share.url) != nullptr ? Error{} : error;
}

// Undoes the renamings of a new entry, the metadata's first: content alone is no entry. What cannot
// be undone a restart deletes.
void TakeNewBack(SessionState& state, const CommitFiles& files) OX_REQUIRES(state.mutex) {
  const bool isMetadataBack = files.Rename(files.metadata, files.stagedMetadata) ||
                              errno == ENOENT || errno == EISDIR || errno == ENOTDIR;
  if (!isMetadataBack || !files.Rename(files.content, files.stagedContent)) {
    state.cache.Account().MarkStale();
  }
}

// True when the directory is on the medium as it is now.
bool SynchroniseDirectory(SessionState& state, const CommitFiles& files) OX_REQUIRES(state.mutex) {
  if (!files.SynchroniseDirectory()) return false;
  state.cache.Deletions().Clear();
  return true;
}

Error PutNewInPlace(SessionState& state, const CommitFiles& files, PlacedMetadata& placed)
    OX_REQUIRES(state.mutex) {
  const bool isSynchronised = state.options.durability == Durability::kPower;
  if (isSynchronised && state.cache.Deletions().MayContain(files.content) &&
      !SynchroniseDirectory(state, files)) {
    return SystemError("cannot synchronise", files.directory);
  }
  // The manager does not list it: beside the new content it would pass for the entry's.
  if (!placed.IsThere() && !files.Delete(files.metadata)) {
    return SystemError("cannot delete", files.metadata);
  }
  if (!files.Rename(files.stagedContent, files.content)) {
    return SystemError("cannot put the content in place", files.content);
  }
  if (placed.IsThere()) {
    placed.BecomeEntry();
    return {};
  }
  Error error;
  if (!files.Rename(files.stagedMetadata, files.metadata)) {
    error = SystemError("cannot put the metadata in place", files.metadata);
  } else if (isSynchronised && !SynchroniseDirectory(state, files)) {
    error = SystemError("cannot synchronise", files.directory);
  }
  if (error) TakeNewBack(state, files);
  return error;
}

Error PublishPending(SessionState& state, const Publication& publication, const CommitFiles& files,
                     PlacedMetadata& placed, PendingEntry& pending) OX_REQUIRES(state.mutex) {
  if (Error error = PutNewInPlace(state, files, placed)) return error;
  MarkDecided(state, publication);
  if (pending.Commit()) return {};
  pending.LeaveToRestart();
  return RestartAndFind(
      state, publication,
      MakeError(ErrorKind::kOutOfMemory, "the cache manager cannot commit the entry"));
}

Error PublishNew(SessionState& state, const Publication& publication, const CommitFiles& files,
                 PlacedMetadata& placed) OX_REQUIRES(state.mutex) {
  PendingEntry pending = state.cache.Create(*publication.share.url, publication.metadata);
  if (pending) return PublishPending(state, publication, files, placed, pending);
  // The manager may list it still, although somebody deleted its content: a restart tells.
  if (Error error = placed.MoveToStaged()) return error;
  if (Error error = state.cache.Restart()) return error;
  PendingEntry again = state.cache.Create(*publication.share.url, publication.metadata);
  if (again) return PublishPending(state, publication, files, placed, again);
  state.cache.Account().MarkStale();
  return MakeError(ErrorKind::kOutOfMemory, "the cache manager cannot create the entry");
}

// Deletes the commit file. Where that fails the commit may be finished by a restart.
void TakeCommitFileBack(SessionState& state, const CommitFiles& files,
                        const Publication& publication) OX_REQUIRES(state.mutex) {
  publication.outcome.mayBeDecided = true;
  if (files.Delete(files.commit)) return;
  state.cache.Account().MarkStale();
  // As what a writer has kept, it goes before the entry is changed: finished later, it would undo
  // that.
  publication.share.keptPath = files.commit;
}

// How much of a replacement has to be on the medium before the next step.
enum class Order { kOfNoMatter, kBySeal, kByDirectory };

// The seal shows a start after a power cut which content is the new one. Without it the directory
// is synchronised at each step.
Order OrderOf(const SessionState& state, const CommitFiles& files) {
  if (state.options.durability != Durability::kPower) return Order::kOfNoMatter;
  return ReadSeal(files.stagedMetadata) ? Order::kBySeal : Order::kByDirectory;
}

Error MakeCommitFile(SessionState& state, const CommitFiles& files, const Publication& publication,
                     Order order) OX_REQUIRES(state.mutex) {
  // A commit file on the medium whose content's name is not would be taken for one whose content is
  // in place already.
  if (order == Order::kByDirectory && !files.SynchroniseDirectory()) {
    return SystemError("cannot synchronise", files.directory);
  }
  if (!files.Rename(files.stagedMetadata, files.commit)) {
    return SystemError("cannot make the commit file", files.commit);
  }
  if (order == Order::kOfNoMatter || files.SynchroniseDirectory()) return {};
  Error error = SystemError("cannot synchronise", files.directory);
  TakeCommitFileBack(state, files, publication);
  return error;
}

Error ReplaceLogged(SessionState& state, const CommitFiles& files, const Publication& publication)
    OX_REQUIRES(state.mutex) {
  const Order order = OrderOf(state, files);
  if (Error error = MakeCommitFile(state, files, publication, order)) return error;
  if (!files.Rename(files.stagedContent, files.content)) {
    Error error = SystemError("cannot put the content in place", files.content);
    TakeCommitFileBack(state, files, publication);
    return error;
  }
  MarkDecided(state, publication);
  const bool isByDirectory = order == Order::kByDirectory;
  if (files.Finish(false, isByDirectory ? Synchronise::kAlways : Synchronise::kNever)) return {};
  const int placeError = errno;
  state.cache.Account().MarkStale();
  errno = placeError;
  return SystemError("cannot put the metadata in place", files.metadata);
}

// Without its metadata the old entry is gone first, so that nothing is ever mixed.
Error ReplaceUnlogged(SessionState& state, const CommitFiles& files, const Publication& publication)
    OX_REQUIRES(state.mutex) {
  if (!files.Delete(files.metadata)) return SystemError("cannot delete", files.metadata);
  const bool isInPlace = files.Rename(files.stagedContent, files.content);
  if (isInPlace) MarkDecided(state, publication);
  if (isInPlace && files.Rename(files.stagedMetadata, files.metadata)) return {};
  Error error = SystemError("cannot put the entry in place", files.content);
  state.cache.Account().MarkStale();
  return error;
}

// What was not replaced after all: the manager reads the metadata that is on the disk again.
void ReadOldAgain(SessionState& state, const Publication& publication) OX_REQUIRES(state.mutex) {
  if (!state.cache.Account().IsStale() && state.cache.Find(*publication.share.url) == nullptr) {
    state.cache.Account().MarkStale();
  }
}

Error Replace(SessionState& state, const Publication& publication, const CommitFiles& files,
              const EntrySizes& oldSizes) OX_REQUIRES(state.mutex) {
  // What has bytes is no directory.
  if (!oldSizes.AreThere()) {
    if (Error error = files.CheckTargets()) return error;
  }
  const bool isLogged = state.options.durability != Durability::kNone;
  Error error = isLogged ? ReplaceLogged(state, files, publication)
                         : ReplaceUnlogged(state, files, publication);
  if (!publication.outcome.isDecided) return error;
  if (error) return isLogged ? RestartAndFind(state, publication, error) : error;
  state.cache.Account().NoteReplaced(oldSizes.contentOnDisk + oldSizes.metadataOnDisk);
  return {};
}

Error Renew(SessionState& state, const Publication& publication, const CommitFiles& files,
            const EntrySizes& oldSizes) OX_REQUIRES(state.mutex) {
  // A replacement before may have relied on the seal that goes.
  const bool isSealLost =
      OrderOf(state, files) == Order::kByDirectory && ReadSeal(files.metadata).has_value();
  if (isSealLost && !SynchroniseDirectory(state, files)) {
    return SystemError("cannot synchronise", files.directory);
  }
  if (!files.Rename(files.stagedMetadata, files.metadata)) {
    return SystemError("cannot put the metadata in place", files.metadata);
  }
  MarkDecided(state, publication);
  state.cache.Account().NoteReplaced(oldSizes.metadataOnDisk);
  if (state.options.durability != Durability::kPower || SynchroniseDirectory(state, files)) {
    return {};
  }
  return SystemError("cannot synchronise", files.directory);
}

void CountSeal(SessionState& state, const Publication& publication, const std::string& path)
    OX_REQUIRES(state.mutex) {
  if (publication.share.fullDisk.mayLackSeal) {
    CountMetadataFile(state, publication.share, path);
    return;
  }
  const SealedTexts texts{publication.url.size(), publication.metadata.Length()};
  if (const auto bytes = state.sealBlocks.Of(texts)) {
    state.room.Count(publication.share, *bytes);
    return;
  }
  if (const auto seen = CountMetadataFile(state, publication.share, path)) {
    state.sealBlocks.Note(texts, *seen, state.cache.Account().Unit().OnDisk(1));
  }
}

Error WriteMetadata(SessionState& state, const Publication& publication, const CommitFiles& files,
                    bool isContentMissing, PlacedMetadata& placed) OX_REQUIRES(state.mutex) {
  if (!publication.writeMetadata) return {};
  Error error = isContentMissing ? placed.Write(publication.writeMetadata)
                                 : publication.writeMetadata(files.stagedMetadata);
  if (!error) CountSeal(state, publication, placed.Path());
  return error;
}

}  // namespace

Error Publish(SessionState& state, const Publication& publication) {
  if (Error error = state.cache.GiveUpCommitsOf(*publication.share.url, &publication.share))
    return error;
  const CommitFiles files = FilesOf(state, publication);
  PlacedMetadata placed(files, state.cache.Account());
  StaleUnlessSettled shown(state.cache.Account());
  const EntrySizes oldSizes = SizesOf(state, files);
  CacheValue* old = oldSizes.isContentMissing
                        ? nullptr
                        : state.cache.FindToReplace(*publication.share.url, publication.metadata);
  Error error = WriteMetadata(state, publication, files, oldSizes.isContentMissing, placed);
  if (!error) error = MakeRoom(state, publication, oldSizes, placed, &old);
  if (old == nullptr) {
    shown.Settle();
    return error ? error : PublishNew(state, publication, files, placed);
  }
  if (!error) error = Replace(state, publication, files, oldSizes);
  if (error && !publication.outcome.isDecided) ReadOldAgain(state, publication);
  shown.Settle();
  return error;
}

std::optional<std::uint64_t> CountMetadataFile(SessionState& state, WriterShare& share,
                                               const std::string& path) {
  const struct stat status = StatusOfFile(state.directoryLock->At(path));
  if (status.st_size == 0) return {};
  const AllocationUnit& unit = state.cache.Account().Unit();
  const std::uint64_t granted = unit.OnDisk(static_cast<std::uint64_t>(status.st_size));
  const std::uint64_t beyond = unit.OfMetadata(status) - granted;
  state.room.Count(share, beyond);
  return beyond;
}

Error PublishMetadata(SessionState& state, const Publication& publication) {
  if (Error error = state.cache.GiveUpCommitsOf(*publication.share.url, &publication.share))
    return error;
  const CommitFiles files = FilesOf(state, publication);
  PlacedMetadata placed(files, state.cache.Account());
  StaleUnlessSettled shown(state.cache.Account());
  CacheValue* old = state.cache.FindToReplace(*publication.share.url, publication.metadata);
  EntrySizes oldSizes = old != nullptr ? SizesOf(state, files) : EntrySizes();
  oldSizes.contentOnDisk = 0;  // it stays
  Error error = MakeRoom(state, publication, oldSizes, placed, &old);
  if (!error) error = old != nullptr ? Renew(state, publication, files, oldSizes) : NoEntry();
  if (error && old != nullptr && !publication.outcome.isDecided) ReadOldAgain(state, publication);
  shown.Settle();
  return error;
}

}  // namespace ox::internal
