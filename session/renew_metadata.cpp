// Replacing the metadata of an entry.
#include <cerrno>

#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include "session/metadata_file.h"
#include "session/module_text.h"
#include "session/publish.h"
#include "session/session_state.h"
#include <oxfilecache/format.h>

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;

namespace {

// A renewal's staged file, deleted and its room given back when it does not come into place.
class StagedRenewal {
 public:
  StagedRenewal(SessionState& sessionState, std::string id, const std::string& url)
      : share(std::move(id), internal::ToOxString(url)), state_(sessionState) {
    const MutexLock lock(state_.mutex);
    path = internal::StagedMetadataPath(state_.cacheDirectory, share.id);
    state_.writers.Add(share);
  }
  ~StagedRenewal() {
    // In a forked child the file is the parent's.
    if (outcome.isDecided || !state_.directoryLock->IsHeld()) return;
    const MutexLock lock(state_.mutex);
    if (isMade) internal::DeleteFile(state_.directoryLock->At(path));
    state_.room.TakeBack(share, share.bytes);
    state_.writers.Remove(share);
  }
  StagedRenewal(const StagedRenewal&) = delete;
  StagedRenewal& operator=(const StagedRenewal&) = delete;

  internal::WriterShare share;
  std::string path;
  bool isMade = false;
  internal::PublishOutcome outcome;

 private:
  SessionState& state_;
};

struct Renewal {
  const std::string& url;
  const std::string* expected;  // null: any
  const std::string& metadata;
  const OxString metadataText;
};

bool IsExpected(SessionState& state, const Renewal& renewal, core::cache::CacheValue& value)
    OX_REQUIRES(state.mutex) {
  if (renewal.expected == nullptr) return true;
  const bool isSame = value.GetMetaData().UTF8() == *renewal.expected;
  state.cache.TakeMetadataRead();
  return isSame;
}

// Stages what the seal of the entry says, with the new metadata.
Error Stage(SessionState& state, const Renewal& renewal, StagedRenewal* staged)
    OX_REQUIRES(state.mutex) {
  core::cache::CacheValue* value = state.cache.Find(*staged->share.url);
  if (value == nullptr || !IsExpected(state, renewal, *value)) return internal::NoEntry();
  const std::string path = internal::ContentPath(*value);
  int sealError = 0;
  auto seal = internal::ReadSeal(path + format::kMetadataSuffix, &sealError);
  if (sealError == ENOENT || (seal && !seal->IsOf(renewal.url))) return internal::NoEntry();
  // Without it the renewed entry would never be checked again.
  if (sealError != 0) {
    errno = sealError;
    return SystemError("cannot read the seal", path + format::kMetadataSuffix);
  }
  const std::uint64_t contentBytes = internal::FileSize(state.directoryLock->At(path));
  if (contentBytes == 0) return internal::NoEntry();
  if (contentBytes + renewal.metadata.size() > state.limits.maxEntrySize) {
    return MakeError(ErrorKind::kRefused,
                     "content and metadata together exceed the limit of one entry");
  }
  if (seal) seal->SetMetadata(renewal.metadata);
  staged->isMade = true;
  return internal::StageMetadataFile(state.directoryLock->At(staged->path), staged->path,
                                     renewal.metadata, state.cache.Clock().Next(),
                                     seal ? &*seal : nullptr, state.fileSync,
                                     staged->share.fullDisk.mayLackSeal);
}

// All under the mutex, so that the content stays the one that the seal is of.
Error TryToRenew(SessionState& state, const Renewal& renewal, StagedRenewal& staged)
    OX_REQUIRES(state.mutex) {
  if (Error error = Stage(state, renewal, &staged)) return error;
  internal::CountMetadataFile(state, staged.share, staged.path);
  return internal::PublishMetadata(
      state, {staged.share, renewal.url, renewal.metadataText, staged.outcome});
}

std::string NextId(SessionState& state) {
  const MutexLock lock(state.mutex);
  return state.ids.Next();
}

Error Renew(SessionState& state, const Renewal& renewal) {
  internal::FullDisk fullDisk;
  for (;;) {
    StagedRenewal staged(state, NextId(state), renewal.url);
    staged.share.fullDisk = fullDisk;
    MutexLock lock(state.mutex);
    if (Error error = state.cache.EnsureCurrent()) return error;
    const std::uint64_t bytes = state.cache.Account().Unit().OnDisk(renewal.metadata.size());
    if (Error error = state.room.Grant(lock, staged.share, bytes)) return error;
    Error error = TryToRenew(state, renewal, staged);
    if (!error || staged.outcome.isDecided) return error;
    if ((error = state.room.MakeDiskSpace(staged.share, std::move(error)))) return error;
    fullDisk = staged.share.fullDisk;
  }
}

Error RenewChecked(SessionState& state, const std::string& url, const std::string* expected,
                   const std::string& metadata) {
  return internal::Perform(state, [&]() -> Error {
    if (Error error = internal::CheckUrl(url)) return error;
    if (Error error = internal::CheckMetadata(metadata)) return error;
    const internal::EvictionNews news(state);
    Error error = Renew(state, {url, expected, metadata, internal::ToOxString(metadata)});
    if (!error) ++state.counts.renewals;
    return error;
  });
}

}  // namespace

Error CacheSession::SetMetadata(const std::string& url, const std::string& metadata) {
  return RenewChecked(*state_, url, nullptr, metadata);
}

Error CacheSession::SetMetadata(const std::string& url, const std::string& expected,
                                const std::string& metadata) {
  return RenewChecked(*state_, url, &expected, metadata);
}

}  // namespace ox::session
