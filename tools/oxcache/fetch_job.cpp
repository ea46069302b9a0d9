#include "tools/oxcache/fetch_job.h"

#include <memory>
#include <optional>
#include <utility>

#include "tools/oxcache/byte_stream.h"

namespace ox::tools {
namespace {

using http::Answer;
using http::Outcome;

const char* NameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kHit:
      return "HIT";
    case Outcome::kRevalidated:
      return "REVALIDATED";
    case Outcome::kMiss:
      return "MISS";
    case Outcome::kReplaced:
      return "REPLACED";
    case Outcome::kUncached:
      return "UNCACHED";
    case Outcome::kStale:
      break;
  }
  return "STALE";
}

// Writes the body to the target's output; without one, the cache alone gets it.
class OutputReceiver final : public http::BodyReceiver {
 public:
  explicit OutputReceiver(const std::string& path) : path_(path) {}

  Error OnBegin() override {
    if (path_ == "-" && hasWritten_) {
      return MakeError(ErrorKind::kInputOutput,
                       "the body broke off when a part of it was written already");
    }
    if (path_.empty()) return {};
    Error error;
    output_ = Output::Open(path_, &error);
    return error;
  }

  Error OnData(const void* data, std::size_t bytes) override {
    hasWritten_ = hasWritten_ || bytes > 0;
    return output_ != nullptr ? output_->Write(data, bytes) : Error{};
  }

  Error Commit() { return output_ != nullptr ? output_->Commit() : Error{}; }

 private:
  const std::string& path_;
  std::unique_ptr<Output> output_;
  bool hasWritten_ = false;
};

}  // namespace

FetchResult FetchOne(http::Client& client, const FetchTarget& target,
                     const http::RequestOptions& options) {
  OutputReceiver receiver(target.output);
  http::RequestOptions withReceiver = options;
  withReceiver.receiver = &receiver;
  FetchResult result;
  std::optional<Answer> answer = client.Get(target.url, withReceiver, &result.reason);
  result.isFailure = true;
  if (!answer) return result;
  result.status = answer->status;
  if (answer->status / 100 != 2) {
    result.reason =
        MakeError(ErrorKind::kRefused, "the server answered " + std::to_string(answer->status));
    return result;
  }
  result.bytes = answer->size;
  result.reason = receiver.Commit();
  if (result.reason) return result;
  result.outcome = NameOf(answer->outcome);
  result.reason = std::move(answer->reason);
  result.isFailure = target.output.empty() && answer->outcome == Outcome::kUncached;
  return result;
}

}  // namespace ox::tools
