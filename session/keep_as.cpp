// Keeping what a writer has so far, for the case that its process ends before it does.
//
// It is a commit file beside the staged content, as a replacement makes one. While the writer is
// there nobody finishes it; the next opening does. The content may have grown since: the seal tells
// how long it was, so it takes a file system with extended attributes.
#include "session/commit_files.h"
#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/eviction_news.h"
#include "session/staging.h"

namespace ox::session {

using internal::MutexLock;
using internal::SessionState;
using internal::Staging;

namespace {

Error PutKeptInPlace(Staging& staging, const std::string& path, internal::StagedMetadata& staged) {
  SessionState& state = staging.state;
  const MutexLock lock(state.mutex);
  internal::CountMetadataFile(state, staging.share, staging.metadataPath);
  if (!internal::ReadSeal(staging.metadataPath)) {
    return MakeError(ErrorKind::kRefused, "the file system keeps no extended attributes");
  }
  const internal::DirectoryLock& directory = *state.directoryLock;
  if (!internal::RenameFile(directory.At(staging.metadataPath), directory.At(path))) {
    return SystemError("cannot make the commit file", path);
  }
  const std::uint64_t bytes = staged.Release();
  state.room.TakeBack(staging.share, staging.share.keptBytes);
  staging.share.keptPath = path;
  staging.share.keptBytes = bytes;
  return {};
}

Error Keep(Staging& staging, const std::string& url, const std::string& metadata) {
  const std::string& directory = staging.state.cacheDirectory;
  const std::string path =
      internal::CommitFileName(directory + "/" + internal::ContentName(url), staging.share.id);
  if (!staging.share.keptPath.empty() && staging.share.keptPath != path) {
    return MakeError(ErrorKind::kInvalidArgument, "kept as the entry of another URL already");
  }
  // A full disk before is no reason to go without the seal.
  staging.share.fullDisk.mayLackSeal = false;
  internal::StagedMetadata staged(staging);
  std::int64_t time = 0;
  if (Error error = GrantMetadata(staging, metadata, &time)) return error;
  const internal::EntrySeal seal =
      internal::MakeSeal(url, staging.contentSum, staging.contentBytes, metadata);
  if (Error error = StageMetadata(staging, seal, metadata, time)) return error;
  if (Error error = PutKeptInPlace(staging, path, staged)) return error;
  if (!MustSurvivePowerCut(staging) || staging.state.directoryLock->Synchronise()) return {};
  return SystemError("cannot synchronise", directory);
}

}  // namespace

Error StoreWriter::KeepAs(const std::string& url, const std::string& metadata) {
  const auto session = staging_->session.lock();
  if (session == nullptr) {
    return MakeError(ErrorKind::kInvalidArgument, "the session of the writer is closed");
  }
  return internal::Perform(*session, [&]() -> Error {
    if (Error error = internal::CheckUrl(url)) return error;
    const internal::EvictionNews news(*session);
    return Keep(*staging_, url, metadata);
  });
}

}  // namespace ox::session
