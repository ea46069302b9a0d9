// A writer's life: made by Store, filled by Write, turned into an entry by Commit, or dropped.
#include <sys/stat.h>

#include <algorithm>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/metadata_file.h"
#include "session/module_text.h"
#include "session/publish.h"
#include "session/session_state.h"

namespace ox::internal {

// One entry on its way in.
struct Staging {
  Staging(SessionState& session, std::string newUrl, std::string newId)
      : state(session), url(std::move(newUrl)) {
    share.id = std::move(newId);
  }

  SessionState& state;
  const std::string url;
  std::string contentPath;
  std::string metadataPath;
  UniqueFd file;
  std::uint64_t contentBytes = 0;
  std::uint32_t contentSum = 0;
  // Of a Write or a Commit that left it unknown what the file holds.
  Error failure;
  PublishOutcome outcome;
  WriterShare share;
};

}  // namespace ox::internal

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;
using internal::Staging;

namespace {

// In a forked child the files are the parent's.
bool IsOurs(const Staging& staging) {
  return staging.state.directoryLock->IsHeld();
}

Error InvalidArgument(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

Error CheckCommit(const Staging& staging, const std::string& metadata) {
  if (staging.outcome.isDecided) return InvalidArgument("the writer is used up");
  if (staging.failure) return staging.failure;
  if (staging.contentBytes == 0) return InvalidArgument("an entry may not be empty");
  if (Error error = internal::CheckMetadata(metadata)) return error;
  const CacheLimits& limits = staging.state.limits;
  const std::uint64_t bytes = staging.contentBytes + metadata.size();
  if (bytes <= limits.maxEntrySize && bytes <= limits.maxSize) return {};
  return MakeError(ErrorKind::kRefused,
                   "content and metadata together exceed the limit of one entry");
}

Error StageMetadata(const Staging& staging, const std::string& metadata, std::int64_t time) {
  const internal::EntrySeal seal =
      internal::MakeSeal(staging.url, staging.contentSum, staging.contentBytes, metadata);
  const bool isSynchronised = staging.state.options.durability == Durability::kPower;
  if (isSynchronised && !internal::SyncFile(staging.file.Get())) {
    return SystemError("cannot synchronise", staging.contentPath);
  }
  return internal::StageMetadataFile(staging.metadataPath, metadata, time, &seal, isSynchronised);
}

Error PublishStaging(Staging& staging, const OxString& url, const OxString& metadata)
    OX_REQUIRES(staging.state.mutex) {
  if (Error error = staging.state.cache.EnsureCurrent()) return error;
  return internal::Publish(staging.state, {staging.share, url, metadata, staging.outcome});
}

// What was written a moment ago need not be read again.
void NoteKnown(Staging& staging, const std::string& metadata) OX_REQUIRES(staging.state.mutex) {
  struct stat status;
  if (fstat(staging.file.Get(), &status) != 0) return;
  internal::KnownEntries& known = staging.state.known;
  known.Add(known.Fingerprint(staging.url, status, metadata),
            staging.state.cache.Account().Entries());
}

// Room for the metadata, and its time of use.
Error GrantMetadata(Staging& staging, std::uint64_t bytes, std::int64_t* time) {
  SessionState& state = staging.state;
  MutexLock lock(state.mutex);
  if (Error error = state.room.Grant(lock, staging.share, bytes)) return error;
  *time = state.cache.Clock().Next();
  return {};
}

// The staged metadata of one try to commit: deleted and its room given back when the try fails.
class StagedMetadata {
 public:
  StagedMetadata(Staging& staging, std::uint64_t bytes) : staging_(staging), bytes_(bytes) {}
  ~StagedMetadata() {
    if (staging_.outcome.isDecided || !IsOurs(staging_)) return;
    internal::DeleteFile(staging_.metadataPath);
    const MutexLock lock(staging_.state.mutex);
    staging_.state.room.TakeBack(staging_.share, bytes_);
  }
  StagedMetadata(const StagedMetadata&) = delete;
  StagedMetadata& operator=(const StagedMetadata&) = delete;

 private:
  Staging& staging_;
  const std::uint64_t bytes_;
};

Error CommitStaging(Staging& staging, const std::string& metadata) {
  if (Error error = CheckCommit(staging, metadata)) return error;
  const OxString url = internal::ToOxString(staging.url);
  const OxString text = internal::ToOxString(metadata);
  std::int64_t time = 0;
  if (Error error = GrantMetadata(staging, metadata.size(), &time)) return error;
  const StagedMetadata staged(staging, metadata.size());
  if (Error error = StageMetadata(staging, metadata, time)) return error;
  const MutexLock lock(staging.state.mutex);
  if (Error error = PublishStaging(staging, url, text)) return error;
  NoteKnown(staging, metadata);
  return {};
}

Error WriteStaging(Staging& staging, const void* data, std::size_t bytes) {
  SessionState& state = staging.state;
  const std::uint64_t limit = std::min(state.limits.maxEntrySize, state.limits.maxSize);
  if (bytes > limit - staging.contentBytes) {
    return MakeError(ErrorKind::kRefused, "the content exceeds the limit of one entry");
  }
  {
    MutexLock lock(state.mutex);
    if (Error error = state.room.Grant(lock, staging.share, bytes)) return error;
  }
  if (!internal::WriteAll(staging.file.Get(), data, bytes)) {
    return SystemError("cannot write", staging.contentPath);
  }
  staging.contentSum = internal::ExtendCrc32c(staging.contentSum, data, bytes);
  staging.contentBytes += bytes;
  return {};
}

void Drop(Staging& staging) {
  if (staging.outcome.isDecided || !IsOurs(staging)) return;
  SessionState& state = staging.state;
  const MutexLock lock(state.mutex);
  if (staging.outcome.mayBeDecided) {
    // The restart deletes the content, once the directory is on the medium as it is.
    state.cache.Account().MarkStale();
  } else if (staging.file.IsOpen()) {
    internal::DeleteFile(staging.contentPath);
  }
  state.room.TakeBack(staging.share, staging.share.bytes);
  state.writers.Remove(staging.share);
}

}  // namespace

StoreWriter::StoreWriter(std::unique_ptr<Staging> staging) : staging_(std::move(staging)) {}

StoreWriter::~StoreWriter() {
  Drop(*staging_);
}

std::unique_ptr<StoreWriter> CacheSession::Store(const std::string& url, Error* error) {
  std::unique_ptr<StoreWriter> opened;
  *error = internal::Perform(*state_, [&]() -> Error {
    if (Error invalid = internal::CheckUrl(url)) return invalid;
    SessionState& state = *state_;
    if (state.limits.maxEntries == 0) {
      return MakeError(ErrorKind::kRefused, "MAX_CACHE_ENTRIES is missing or 0: the cache is off");
    }
    std::unique_ptr<StoreWriter> writer;
    {
      const MutexLock lock(state.mutex);
      if (Error failed = state.cache.EnsureCurrent()) return failed;
      auto staging = std::make_unique<Staging>(state, url, state.ids.Next());
      const std::string& directory = state.limits.cacheDirectory;
      staging->contentPath = directory + "/" + internal::StagedContentName(staging->share.id);
      staging->metadataPath = directory + "/" + internal::StagedMetadataName(staging->share.id);
      writer.reset(new StoreWriter(std::move(staging)));
      state.writers.Add(writer->staging_->share);
    }
    Staging& staging = *writer->staging_;
    staging.file = internal::CreateNewFile(staging.contentPath);
    if (!staging.file.IsOpen()) return SystemError("cannot write", staging.contentPath);
    opened = std::move(writer);
    return {};
  });
  return opened;
}

Error StoreWriter::Write(const void* data, std::size_t bytes) {
  return internal::Perform(staging_->state, [&]() -> Error {
    if (staging_->outcome.isDecided) return InvalidArgument("the writer is used up");
    if (!staging_->failure) staging_->failure = WriteStaging(*staging_, data, bytes);
    return staging_->failure;
  });
}

Error StoreWriter::Commit(const std::string& metadata) {
  return internal::Perform(staging_->state, [&] { return CommitStaging(*staging_, metadata); });
}

}  // namespace ox::session
