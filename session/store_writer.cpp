// A writer's life: made by Store, filled by Write, turned into an entry by Commit, or dropped.
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include "session/metadata_file.h"
#include "session/module_text.h"
#include "session/publish.h"
#include "session/session_state.h"

namespace ox::internal {

// One entry on its way in.
struct Staging {
  Staging(const std::shared_ptr<SessionState>& openSession, std::string newUrl, std::string newId)
      : session(openSession),
        state(*openSession),
        url(std::move(newUrl)),
        share(std::move(newId), ToOxString(url)) {}

  // Gone once the session is closed. Each call of the writer holds it while it uses the state.
  const std::weak_ptr<SessionState> session;
  SessionState& state;
  std::string url;
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
using internal::PublishOutcome;
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

Error Closed() {
  return InvalidArgument("the session of the writer is closed");
}

std::uint64_t MaxContentBytes(const SessionState& state) OX_REQUIRES(state.mutex) {
  return std::min(state.limits.maxEntrySize, state.limits.maxSize);
}

Error CheckCommit(const Staging& staging, const std::string& metadata)
    OX_REQUIRES(staging.state.mutex) {
  if (staging.outcome.isDecided) return InvalidArgument("the writer is used up");
  if (staging.failure) return staging.failure;
  if (staging.contentBytes == 0) return InvalidArgument("an entry may not be empty");
  if (Error error = internal::CheckMetadata(metadata)) return error;
  const std::uint64_t bytes = staging.contentBytes + metadata.size();
  if (bytes <= MaxContentBytes(staging.state)) return {};
  return MakeError(ErrorKind::kRefused,
                   "content and metadata together exceed the limit of one entry");
}

// Not tried again: what could not be written is lost.
Error SynchroniseContent(Staging& staging) {
  if (internal::SyncFile(staging.file.Get())) return {};
  staging.failure = SystemError("cannot synchronise", staging.contentPath);
  return staging.failure;
}

Error StageMetadata(Staging& staging, const std::string& metadata, std::int64_t time) {
  const internal::EntrySeal seal =
      internal::MakeSeal(staging.url, staging.contentSum, staging.contentBytes, metadata);
  const bool isSynchronised = staging.state.options.durability == Durability::kPower;
  if (isSynchronised) internal::BeginToWrite(staging.file.Get());
  Error error = internal::StageMetadataFile(staging.state.directoryLock->At(staging.metadataPath),
                                            staging.metadataPath, metadata, time, &seal,
                                            isSynchronised, staging.share.fullDisk.mayLackSeal);
  return error || !isSynchronised ? error : SynchroniseContent(staging);
}

Error PublishStaging(Staging& staging, const OxString& metadata) OX_REQUIRES(staging.state.mutex) {
  internal::CountMetadataFile(staging.state, staging.share, staging.metadataPath);
  if (Error error = staging.state.cache.EnsureCurrent()) return error;
  return internal::Publish(staging.state, {staging.share, metadata, staging.outcome});
}

// What was written a moment ago need not be read again. The entry is in place, so a lack of memory
// is no failure: the next fetch looks at it.
void NoteKnown(Staging& staging, const std::string& metadata) OX_REQUIRES(staging.state.mutex) {
  struct stat status;
  if (fstat(staging.file.Get(), &status) != 0) return;
  try {
    internal::KnownEntries& known = staging.state.known;
    known.Add(known.Fingerprint(staging.url, status, metadata),
              staging.state.cache.Account().Entries());
  } catch (const std::bad_alloc&) {
  }
}

// Room for the metadata, and its time of use.
Error GrantMetadata(Staging& staging, const std::string& metadata, std::int64_t* time) {
  MutexLock lock(staging.state.mutex);
  if (Error error = CheckCommit(staging, metadata)) return error;
  internal::RunningCache& cache = staging.state.cache;
  const std::uint64_t bytes = cache.Account().Unit().OnDisk(metadata.size());
  if (Error error = staging.state.room.Grant(lock, staging.share, bytes)) return error;
  *time = cache.Clock().Next();
  return {};
}

// The staged metadata of one try to commit: deleted and its room given back when the try fails.
class StagedMetadata {
 public:
  // Before the room for it is granted.
  explicit StagedMetadata(Staging& staging) : staging_(staging), before_(staging.share.bytes) {}
  ~StagedMetadata() {
    if (staging_.outcome.isDecided || !IsOurs(staging_)) return;
    internal::DeleteFile(staging_.state.directoryLock->At(staging_.metadataPath));
    const MutexLock lock(staging_.state.mutex);
    staging_.state.room.TakeBack(staging_.share, staging_.share.bytes - before_);
  }
  StagedMetadata(const StagedMetadata&) = delete;
  StagedMetadata& operator=(const StagedMetadata&) = delete;

 private:
  Staging& staging_;
  const std::uint64_t before_;
};

Error TryToCommit(Staging& staging, const std::string& metadata) {
  const OxString text = internal::ToOxString(metadata);
  std::int64_t time = 0;
  const StagedMetadata staged(staging);
  if (Error error = GrantMetadata(staging, metadata, &time)) return error;
  if (Error error = StageMetadata(staging, metadata, time)) return error;
  const MutexLock lock(staging.state.mutex);
  if (Error error = PublishStaging(staging, text)) return error;
  ++staging.state.counts.stores;
  NoteKnown(staging, metadata);
  return {};
}

Error MakeDiskSpace(Staging& staging, Error failure) {
  const MutexLock lock(staging.state.mutex);
  return staging.state.room.MakeDiskSpace(staging.share, std::move(failure));
}

Error CommitStaging(Staging& staging, const std::string& metadata) {
  staging.share.fullDisk.mayLackSeal = false;
  for (;;) {
    Error error = TryToCommit(staging, metadata);
    const PublishOutcome& outcome = staging.outcome;
    if (!error || outcome.isDecided || outcome.mayBeDecided || staging.failure) return error;
    if ((error = MakeDiskSpace(staging, std::move(error)))) return error;
  }
}

Error GrantContent(Staging& staging, std::size_t bytes) {
  SessionState& state = staging.state;
  MutexLock lock(state.mutex);
  if (staging.contentBytes + bytes > MaxContentBytes(state)) {
    return MakeError(ErrorKind::kRefused, "the content exceeds the limit of one entry");
  }
  const std::uint64_t growth = state.cache.Account().Unit().Growth(staging.contentBytes, bytes);
  return state.room.Grant(lock, staging.share, growth);
}

Error WriteStaging(Staging& staging, const void* data, std::size_t bytes) {
  if (Error error = GrantContent(staging, bytes)) return error;
  std::size_t done = 0;
  const auto* next = static_cast<const char*>(data);
  while (!internal::WriteAll(staging.file.Get(), next + done, bytes - done, &done)) {
    Error error = SystemError("cannot write", staging.contentPath);
    if ((error = MakeDiskSpace(staging, std::move(error)))) return error;
  }
  staging.contentSum = internal::ExtendCrc32c(staging.contentSum, data, bytes);
  staging.contentBytes += bytes;
  return {};
}

Error MakeContentFile(Staging& staging) {
  for (;;) {
    staging.file = internal::CreateNewFile(staging.state.directoryLock->At(staging.contentPath));
    if (staging.file.IsOpen()) return {};
    Error error = SystemError("cannot write", staging.contentPath);
    if ((error = MakeDiskSpace(staging, std::move(error)))) return error;
  }
}

// The name of a staged file is never used again, so this one may be deleted without the lock. Kept
// where a start may need it to finish a commit.
void DropClosed(const Staging& staging) {
  const PublishOutcome& outcome = staging.outcome;
  if (staging.file.IsOpen() && !outcome.isDecided && !outcome.mayBeDecided) {
    internal::DeleteFile(staging.contentPath);
  }
}

void Drop(Staging& staging) {
  const auto session = staging.session.lock();
  if (session == nullptr) return DropClosed(staging);
  if (staging.outcome.isDecided || !IsOurs(staging)) return;
  SessionState& state = *session;
  const MutexLock lock(state.mutex);
  if (staging.outcome.mayBeDecided) {
    // The restart deletes the content, once the directory is on the medium as it is.
    state.cache.Account().MarkStale();
  } else if (staging.file.IsOpen()) {
    internal::DeleteFile(state.directoryLock->At(staging.contentPath));
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
    const internal::EvictionNews news(state);
    std::unique_ptr<StoreWriter> writer;
    {
      const MutexLock lock(state.mutex);
      if (state.limits.maxEntries == 0) {
        return MakeError(ErrorKind::kRefused,
                         "MAX_CACHE_ENTRIES is missing or 0: the cache is off");
      }
      if (Error failed = state.cache.EnsureCurrent()) return failed;
      auto staging = std::make_unique<Staging>(state_, url, state.ids.Next());
      const std::string& directory = state.cacheDirectory;
      staging->contentPath = directory + "/" + internal::StagedContentName(staging->share.id);
      staging->metadataPath = directory + "/" + internal::StagedMetadataName(staging->share.id);
      writer.reset(new StoreWriter(std::move(staging)));
      state.writers.Add(writer->staging_->share);
    }
    if (Error failed = MakeContentFile(*writer->staging_)) return failed;
    opened = std::move(writer);
    return {};
  });
  return opened;
}

Error StoreWriter::Write(const void* data, std::size_t bytes) {
  const auto session = staging_->session.lock();
  if (session == nullptr) return Closed();
  return internal::Perform(*session, [&]() -> Error {
    const internal::EvictionNews news(*session);
    if (staging_->outcome.isDecided) return InvalidArgument("the writer is used up");
    if (!staging_->failure) staging_->failure = WriteStaging(*staging_, data, bytes);
    return staging_->failure;
  });
}

Error StoreWriter::Commit(const std::string& metadata) {
  const auto session = staging_->session.lock();
  if (session == nullptr) return Closed();
  return internal::Perform(*session, [&] {
    const internal::EvictionNews news(*session);
    return CommitStaging(*staging_, metadata);
  });
}

Error StoreWriter::CommitAs(const std::string& url, const std::string& metadata) {
  const auto session = staging_->session.lock();
  if (session == nullptr) return Closed();
  return internal::Perform(*session, [&]() -> Error {
    if (Error error = internal::CheckUrl(url)) return error;
    const internal::EvictionNews news(*session);
    {
      const MutexLock lock(session->mutex);
      staging_->share.url = internal::ToOxString(url);
      staging_->url = url;
    }
    return CommitStaging(*staging_, metadata);
  });
}

}  // namespace ox::session
