// A writer's life: made by Store, filled by Write, turned into an entry by Commit, or dropped; what
// it has so far is kept by KeepAs (keep_as.cpp).
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <utility>

#include "session/crc32c.h"
#include "session/durable_io.h"
#include "session/eviction_news.h"
#include "session/module_text.h"
#include "session/staging.h"

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;
using internal::Staging;

namespace {

Error InvalidArgument(const char* detail) {
  return MakeError(ErrorKind::kInvalidArgument, detail);
}

Error Closed() {
  return InvalidArgument("the session of the writer is closed");
}

// A start would take what was kept for a later commit of its URL, and where it finds a commit file
// of the same content beside it, finish what was kept first, so that the commit is lost. For a new
// entry of another URL it stays until the whole is in place: a start deletes it when the content is
// no longer staged.
bool MustDropKeptFirst(const Staging& staging) OX_REQUIRES(staging.state.mutex) {
  if (staging.share.keptPath.empty()) return false;
  return internal::IsKeptAs(staging, staging.url) ||
         staging.state.cache.Find(*staging.share.url) != nullptr;
}

Error PublishStaging(Staging& staging, const OxString& metadata,
                     internal::MetadataWriter writeMetadata) OX_REQUIRES(staging.state.mutex) {
  if (!writeMetadata) {
    internal::CountMetadataFile(staging.state, staging.share, staging.metadataPath);
  }
  if (Error error = staging.state.cache.EnsureCurrent()) return error;
  if (MustDropKeptFirst(staging)) {
    if (Error error = internal::DropKept(staging.state, staging)) return error;
  }
  Error error = internal::Publish(staging.state, {staging.share, staging.url, metadata,
                                                  staging.outcome, std::move(writeMetadata)});
  if (staging.outcome.isDecided && internal::DropKept(staging.state, staging)) {
    staging.state.cache.Account().MarkStale();
  }
  return error;
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

Error TryToCommit(Staging& staging, const std::string& metadata) {
  const OxString text = internal::ToOxString(metadata);
  std::int64_t time = 0;
  const internal::StagedMetadata staged(staging);
  if (Error error = GrantMetadata(staging, metadata, &time)) return error;
  const internal::EntrySeal seal =
      internal::MakeSeal(staging.url, staging.contentSum, staging.contentBytes, metadata);
  const auto writeTo = [&](const std::string& path) {
    return WriteMetadata(staging, seal, metadata, time, path);
  };
  internal::MetadataWriter write;
  // What has to be synchronised is not written under the mutex.
  if (!MustSurvivePowerCut(staging)) {
    write = std::cref(writeTo);
  } else if (Error error = StageMetadata(staging, seal, metadata, time)) {
    return error;
  }
  const MutexLock lock(staging.state.mutex);
  if (Error error = PublishStaging(staging, text, std::move(write))) return error;
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
    const internal::PublishOutcome& outcome = staging.outcome;
    if (!error || outcome.isDecided || outcome.mayBeDecided || staging.failure) return error;
    if ((error = MakeDiskSpace(staging, std::move(error)))) return error;
  }
}

// While a commit is of another URL than the writer's own; once it is decided, for good. Going back
// takes no memory.
class CommitUrl {
 public:
  CommitUrl(Staging& staging, const std::string& url)
      : staging_(staging),
        other_(url),
        otherText_(std::make_unique<const OxString>(internal::ToOxString(url))) {
    Swap();
  }
  ~CommitUrl() {
    if (!staging_.outcome.isDecided) Swap();
  }
  CommitUrl(const CommitUrl&) = delete;
  CommitUrl& operator=(const CommitUrl&) = delete;

 private:
  void Swap() {
    const MutexLock lock(staging_.state.mutex);
    staging_.url.swap(other_);
    staging_.share.url.swap(otherText_);
  }

  Staging& staging_;
  std::string other_;
  std::unique_ptr<const OxString> otherText_;
};

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
  const internal::PublishOutcome& outcome = staging.outcome;
  if (!staging.file.IsOpen() || outcome.isDecided || outcome.mayBeDecided) return;
  if (!staging.share.keptPath.empty()) internal::DeleteFile(staging.share.keptPath);
  internal::DeleteFile(staging.contentPath);
}

void Drop(Staging& staging) {
  const auto session = staging.session.lock();
  if (session == nullptr) return DropClosed(staging);
  if (staging.outcome.isDecided || !internal::IsOurs(staging)) return;
  SessionState& state = *session;
  const MutexLock lock(state.mutex);
  if (staging.outcome.mayBeDecided) {
    // What was kept would become an entry. The content is deleted by the restart, once the
    // directory is on the medium as it is.
    static_cast<void>(internal::DropKept(state, staging));
    state.cache.Account().MarkStale();
  } else if (staging.file.IsOpen()) {
    // Finished later, what was kept would take the place of something newer.
    if (internal::DropKept(state, staging)) state.cache.Account().MarkStale();
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
    const CommitUrl other(*staging_, url);
    return CommitStaging(*staging_, metadata);
  });
}

}  // namespace ox::session
