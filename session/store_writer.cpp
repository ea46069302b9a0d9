// Writers: what streams in before it is committed.
#include <algorithm>

#include "session/durable_io.h"
#include "session/session_core.h"

namespace ox::session {

StoreWriter::StoreWriter(std::unique_ptr<Staging> staging) : staging_(std::move(staging)) {}

StoreWriter::~StoreWriter() = default;

Error StoreWriter::Write(const void* data, std::size_t bytes) {
  return WithoutExceptions([&] { return staging_->core.Write(*staging_, data, bytes); });
}

Error StoreWriter::Commit(const std::string& metadata) {
  return WithoutExceptions([&] { return staging_->core.Commit(*staging_, metadata); });
}

StoreWriter::Staging::~Staging() {
  core.End(*this);
}

Error SessionCore::Write(Staging& staging, const void* data, std::size_t bytes) {
  if (staging.isCommitted) {
    return MakeError(ErrorKind::kInvalidArgument, "the writer is used up");
  }
  if (staging.failure) return staging.failure;
  const std::uint64_t limit = std::min(limits_.maxEntrySize, limits_.maxSize);
  if (bytes > limit - staging.contentBytes) {
    return staging.failure =
               MakeError(ErrorKind::kRefused, "the content exceeds the limit of one entry");
  }
  {
    Lock lock(mutex_);
    if (Error error = Charge(lock, staging, bytes)) return staging.failure = error;
  }
  if (!WriteAll(staging.file.Get(), data, bytes)) {
    return staging.failure = SystemError("cannot write", staging.contentPath);
  }
  staging.contentBytes += bytes;
  return {};
}

void SessionCore::End(Staging& staging) {
  if (staging.isCommitted) return;
  const Lock lock(mutex_);
  if (staging.mayBeDecided) {
    // The restart deletes the content, once the directory is on the medium as it is.
    state_.needsRestart = true;
  } else if (staging.file.IsOpen()) {
    DeleteFile(staging.contentPath);
  }
  // Left only where memory ran out during a commit.
  if (staging.chargedBytes > staging.contentBytes) DeleteFile(staging.metaDataPath);
  Discharge(staging, staging.chargedBytes);
  Detach(staging);
}

}  // namespace ox::session
