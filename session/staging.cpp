#include "session/staging.h"

#include <algorithm>
#include <utility>

#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/metadata_file.h"
#include "session/module_text.h"

namespace ox::internal {

namespace {

Error InvalidArgument(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

Error CheckCommit(const Staging& staging, const std::string& metadata)
    OX_REQUIRES(staging.state.mutex) {
  if (staging.outcome.isDecided) return InvalidArgument("the writer is used up");
  if (staging.failure) return staging.failure;
  if (staging.contentBytes == 0) return InvalidArgument("an entry may not be empty");
  if (Error error = CheckMetadata(metadata)) return error;
  const std::uint64_t bytes = staging.contentBytes + metadata.size();
  if (bytes <= MaxContentBytes(staging.state)) return {};
  return MakeError(ErrorKind::kRefused,
                   "content and metadata together exceed the limit of one entry");
}

// Not tried again: what could not be written is lost.
Error SynchroniseContent(Staging& staging) {
  if (MakeCertain(staging.file.Get(), staging.state.fileSync)) return {};
  staging.failure = SystemError("cannot synchronise", staging.contentPath);
  return staging.failure;
}

}  // namespace

Staging::Staging(const std::shared_ptr<SessionState>& openSession, std::string newUrl,
                 std::string newId)
    : session(openSession),
      state(*openSession),
      url(std::move(newUrl)),
      contentPath(StagedContentPath(state.cacheDirectory, newId)),
      metadataPath(StagedMetadataPath(state.cacheDirectory, newId)),
      share(std::move(newId), ToOxString(url)) {}

bool MustSurvivePowerCut(const Staging& staging) {
  return staging.state.fileSync != FileSync::kNone;
}

bool IsOurs(const Staging& staging) {
  return staging.state.directoryLock->IsHeld();
}

std::uint64_t MaxContentBytes(const SessionState& state) {
  return std::min(state.limits.maxEntrySize, state.limits.maxSize);
}

Error GrantMetadata(Staging& staging, const std::string& metadata, std::int64_t* time) {
  MutexLock lock(staging.state.mutex);
  if (Error error = CheckCommit(staging, metadata)) return error;
  RunningCache& cache = staging.state.cache;
  const std::uint64_t bytes = cache.Account().Unit().OnDisk(metadata.size());
  if (Error error = staging.state.room.Grant(lock, staging.share, bytes)) return error;
  *time = cache.Clock().Next();
  return {};
}

Error StageMetadata(Staging& staging, const EntrySeal& seal, const std::string& metadata,
                    std::int64_t time) {
  if (MustSurvivePowerCut(staging)) BeginToWrite(staging.file.Get());
  Error error = WriteMetadata(staging, seal, metadata, time, staging.metadataPath);
  return error ? error : SynchroniseContent(staging);
}

Error WriteMetadata(const Staging& staging, const EntrySeal& seal, const std::string& metadata,
                    std::int64_t time, const std::string& path) {
  return StageMetadataFile(staging.state.directoryLock->At(path), path, metadata, time, &seal,
                           staging.state.fileSync, staging.share.fullDisk.mayLackSeal);
}

StagedMetadata::StagedMetadata(Staging& staging) : staging_(staging), before_(OtherBytes()) {}

std::uint64_t StagedMetadata::Release() {
  isReleased_ = true;
  return OtherBytes() - before_;
}

StagedMetadata::~StagedMetadata() {
  if (isReleased_ || staging_.outcome.isDecided || !IsOurs(staging_)) return;
  DeleteFile(staging_.state.directoryLock->At(staging_.metadataPath));
  const MutexLock lock(staging_.state.mutex);
  staging_.state.room.TakeBack(staging_.share, OtherBytes() - before_);
}

bool IsKeptAs(const Staging& staging, const std::string& url) {
  const std::string& path = staging.share.keptPath;
  return !path.empty() &&
         path == CommitFileName(staging.state.cacheDirectory + "/" + ContentName(url),
                                staging.share.id);
}

Error DropKept(SessionState& state, Staging& staging) {
  WriterShare& share = staging.share;
  if (share.keptPath.empty()) return {};
  if (!DeleteFile(state.directoryLock->At(share.keptPath))) {
    return SystemError("cannot delete", share.keptPath);
  }
  share.keptPath.clear();
  // Those of a writer whose content became an entry were turned into that entry's.
  state.room.TakeBack(share, std::exchange(share.keptBytes, 0));
  return {};
}

}  // namespace ox::internal
