#include "tools/oxcache/fetch_job.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>
#include <vector>

namespace ox::tools {
namespace {

using session::CacheSession;
using session::FetchedEntry;

constexpr int kOk = 200;
constexpr int kFirstRedirection = 300;
constexpr int kNotModified = 304;

FetchResult Failed(Error error) {
  return {"FAILED", std::move(error)};
}

Error NotStored(const std::string& reason) {
  return MakeError(ErrorKind::kRefused, reason);
}

bool HasValidators(const StoredResponse& stored) {
  return !stored.etag.empty() || !stored.lastModified.empty();
}

// Does not move the position of the open file.
Error CopyContent(const FetchedEntry& entry, session::StoreWriter& writer) {
  std::vector<char> piece(kPieceBytes);
  for (std::uint64_t offset = 0;;) {
    const ssize_t bytes =
        pread(entry.content.Get(), piece.data(), piece.size(), static_cast<off_t>(offset));
    if (bytes < 0 && errno == EINTR) continue;
    if (bytes < 0) return SystemError("cannot read", entry.path);
    if (bytes == 0) return {};
    if (Error error = writer.Write(piece.data(), static_cast<std::size_t>(bytes))) return error;
    offset += static_cast<std::uint64_t>(bytes);
  }
}

}  // namespace

FetchJob::FetchJob(CacheSession& session, std::string url, std::string output, Progress progress)
    : session_(session),
      url_(std::move(url)),
      outputPath_(std::move(output)),
      progress_(std::move(progress)) {}

FetchResult FetchJob::Run() {
  Error error;
  Found found = session_.Fetch(url_, &error);
  if (error && error.kind != ErrorKind::kNotFound) return Failed(error);
  StoredResponse stored = found ? FromMetadata(found->metadata) : StoredResponse{};
  if (!found || stored.freshUntil <= std::time(nullptr)) {
    return Request(std::move(found), std::move(stored));
  }
  error = WriteOutput(std::move(*found));
  return error ? Failed(error) : FetchResult{"HIT", {}};
}

FetchResult FetchJob::Request(Found found, StoredResponse stored) {
  const DownloadRequest request{url_, stored.etag, stored.lastModified};
  if (Error error = Download(request, *this, &download_)) return Failed(error);
  const int status = download_.headers.status;
  if (status == kNotModified && download_.isRedirected && HasValidators(stored)) {
    // The redirection led to another resource. That one has not changed, which says nothing about
    // the entry.
    return Request(std::move(found), {});
  }
  if (status == kNotModified && found) return Revalidated(std::move(found), std::move(stored));
  if (status < kOk || status >= kFirstRedirection) {
    return Failed(NotStored("the server answered " + std::to_string(status)));
  }
  return Received(found.has_value());
}

FetchResult FetchJob::Revalidated(Found found, StoredResponse stored) {
  FetchResult result{"REVALIDATED", {}};
  // Without a lifetime the next request asks the server again, so there is nothing to write.
  const std::int64_t freshUntil = FreshUntil(download_.headers, std::time(nullptr));
  if (freshUntil > 0 && !download_.isRedirected) {
    TakeHeaders(download_.headers, &stored);
    stored.url = url_;
    stored.freshUntil = freshUntil;
    result.reason = Renew(*found, ToMetadata(stored));
  }
  Error error = WriteOutput(std::move(*found));
  return error ? Failed(error) : result;
}

// Metadata can only be changed by storing the whole entry again.
Error FetchJob::Renew(const FetchedEntry& entry, const std::string& metadata) {
  Error error;
  const auto writer = session_.Store(url_, &error);
  if (writer == nullptr) return error;
  if (error = CopyContent(entry, *writer); error) return error;
  return writer->Commit(metadata);
}

FetchResult FetchJob::Received(bool isReplacement) {
  Error error = isBegun_ ? Error{} : BeginBody(download_.headers);
  if (!error) error = Commit();
  if (!error && output_ != nullptr) error = output_->Commit();
  if (error) return Failed(error);
  if (!uncached_) return {isReplacement ? "REPLACED" : "MISS", {}};
  // The older content is outdated now.
  error = isReplacement ? session_.Remove(url_) : Error{};
  if (error && error.kind != ErrorKind::kNotFound) return Failed(error);
  return {"UNCACHED", uncached_};
}

Error FetchJob::Commit() {
  if (writer_ == nullptr) return {};
  if (received_ == 0) {
    writer_.reset();
    uncached_ = NotStored("empty content is not stored");
    return {};
  }
  StoredResponse stored;
  TakeHeaders(download_.headers, &stored);
  stored.url = url_;
  if (download_.isRedirected) {
    // A redirection has a lifetime of its own, which is not known here. It may lead to another
    // resource the next time, for which these validators mean something else.
    stored.etag.clear();
    stored.lastModified.clear();
  } else {
    stored.freshUntil = FreshUntil(download_.headers, std::time(nullptr));
  }
  return ContinueWithoutCache(writer_->Commit(ToMetadata(stored)));
}

Error FetchJob::OnBody(const ResponseHeaders& headers, const void* data, std::size_t bytes) {
  if (headers.status < kOk || headers.status >= kFirstRedirection) return {};
  if (!isBegun_) {
    if (Error error = BeginBody(headers)) return error;
  }
  received_ += bytes;
  if (writer_ != nullptr) {
    if (Error error = ContinueWithoutCache(writer_->Write(data, bytes))) return error;
  }
  return output_ != nullptr ? output_->Write(data, bytes) : Error{};
}

void FetchJob::OnProgress(std::uint64_t received, std::uint64_t total) {
  progress_(received, total);
}

Error FetchJob::BeginBody(const ResponseHeaders& headers) {
  isBegun_ = true;
  if (Error error = ContinueWithoutCache(OpenWriter(headers))) return error;
  return OpenOutput();
}

Error FetchJob::OpenWriter(const ResponseHeaders& headers) {
  if (headers.status != kOk || ForbidsStoring(headers)) {
    uncached_ =
        NotStored(headers.status == kOk ? "the server forbids storing it"
                                        : "the server answered " + std::to_string(headers.status));
    return {};
  }
  if (headers.contentLength > session_.Limits().maxEntrySize) {
    return NotStored(std::to_string(headers.contentLength) +
                     " bytes are above the limit of one entry, " +
                     std::to_string(session_.Limits().maxEntrySize));
  }
  Error error;
  writer_ = session_.Store(url_, &error);
  return error;
}

Error FetchJob::OpenOutput() {
  if (outputPath_.empty()) return {};
  Error error;
  output_ = Output::Open(outputPath_, &error);
  return error;
}

Error FetchJob::ContinueWithoutCache(Error error) {
  if (error.kind != ErrorKind::kRefused || outputPath_.empty()) return error;
  writer_.reset();
  uncached_ = std::move(error);
  return {};
}

Error FetchJob::WriteOutput(FetchedEntry entry) {
  if (Error error = OpenOutput()) return error;
  if (output_ == nullptr) return {};
  Input content(std::move(entry.content), entry.path);
  if (Error error = output_->WriteAllOf(content)) return error;
  return output_->Commit();
}

}  // namespace ox::tools
