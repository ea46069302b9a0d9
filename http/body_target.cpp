#include "http/body_target.h"

#include <unistd.h>

#include <utility>

#include "http/stored_entry.h"
#include "http/unnamed_file.h"
#include "session/durable_io.h"

namespace ox::internal::http {

BodyTarget::BodyTarget(ox::http::BodyReceiver* receiver, std::string temporaryDirectory)
    : receiver_(receiver), temporaryDirectory_(std::move(temporaryDirectory)) {}

void BodyTarget::OpenEntry(session::CacheSession& session, const std::string& url) {
  Error error;
  writer_ = session.Store(url, &error);
  if (writer_ == nullptr) GiveUpEntry(std::move(error));
}

void BodyTarget::GiveUpEntry(Error why) {
  isLost_ = writer_ != nullptr && received_ > 0 && receiver_ == nullptr;
  writer_.reset();
  whyNotStored_ = std::move(why);
}

Error BodyTarget::Begin() {
  return receiver_ != nullptr ? receiver_->OnBegin() : Error{};
}

Error BodyTarget::Write(const char* data, std::size_t bytes) {
  received_ += bytes;
  if (writer_ != nullptr) {
    if (Error error = writer_->Write(data, bytes)) GiveUpEntry(std::move(error));
  }
  if (isLost_) return whyNotStored_;
  if (receiver_ != nullptr) return receiver_->OnData(data, bytes);
  return writer_ == nullptr ? WriteToFile(data, bytes) : Error{};
}

void BodyTarget::Commit(const std::string& metadata) {
  Error error = received_ == 0 ? writer_->Write(kNoBody, sizeof kNoBody - 1) : Error{};
  if (!error) error = writer_->Commit(metadata);
  if (error) return GiveUpEntry(std::move(error));
  writer_.reset();
  isCommitted_ = true;
}

bool BodyTarget::KeepPart(const std::string& partUrl, const std::string& metadata) {
  return writer_ != nullptr && !writer_->KeepAs(partUrl, metadata);
}

void BodyTarget::CommitPart(const std::string& partUrl, const std::string& metadata) {
  if (Error error = writer_->CommitAs(partUrl, metadata)) return GiveUpEntry(std::move(error));
  writer_.reset();
  isCommitted_ = true;
}

UniqueFd BodyTarget::TakeFile() {
  if (file_.IsOpen()) lseek(file_.Get(), 0, SEEK_SET);
  return std::move(file_);
}

Error BodyTarget::WriteToFile(const char* data, std::size_t bytes) {
  if (!file_.IsOpen()) {
    Error error;
    file_ = MakeUnnamedFile(temporaryDirectory_, &error);
    if (error) return error;
  }
  if (WriteAll(file_.Get(), data, bytes)) return {};
  return SystemError("cannot write a temporary file in", DirectoryOrDefault(temporaryDirectory_));
}

}  // namespace ox::internal::http
