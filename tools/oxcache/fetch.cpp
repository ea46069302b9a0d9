#include "tools/oxcache/fetch.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "host/directory.h"
#include "tools/oxcache/fetch_job.h"
#include "tools/oxcache/fetch_progress.h"
#include "tools/oxcache/fetch_target.h"
#include "tools/oxcache/reports.h"
#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

// "Name: value", as curl takes it too.
Error ParseHeader(const std::string& line, http::Header* header) {
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos) {
    return MakeError(ErrorKind::kInvalidArgument, "a header is needed as \"Name: value\"");
  }
  const std::size_t start = line.find_first_not_of(" \t", colon + 1);
  header->name = line.substr(0, colon);
  header->value = start == std::string::npos ? "" : line.substr(start);
  return {};
}

std::chrono::milliseconds Milliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

Error RequestOptionsOf(const FetchOptions& options, http::RequestOptions* request) {
  for (const std::string& line : options.headers) {
    http::Header header;
    if (Error error = ParseHeader(line, &header)) return error;
    request->headers.push_back(std::move(header));
  }
  request->offline = options.offline;
  request->refresh = options.refresh;
  request->staleIfError = options.staleIfError;
  request->totalTimeout = Milliseconds(options.seconds);
  request->connectTimeout = Milliseconds(options.connectSeconds);
  request->silenceTimeout = std::chrono::seconds(options.slowSeconds);
  request->minimumSpeed = options.slowBytes;
  return {};
}

http::ClientOptions ClientOptionsOf(const FetchOptions& options) {
  http::ClientOptions client;
  client.userAgent = "oxcache";
  client.caFile = options.caFile;
  client.certificateFile = options.certificateFile;
  client.keyFile = options.keyFile;
  client.proxy = options.proxy;
  client.connectionsPerServer = std::max(options.jobs, 1U);
  // The program ends as soon as it has its answers.
  client.refreshInBackground = false;
  return client;
}

std::string JsonOf(const FetchTarget& target, const FetchResult& result) {
  nlohmann::json json = {{"url", target.url}, {"outcome", result.outcome}, {"bytes", result.bytes}};
  if (result.status != 0) json["status"] = result.status;
  const bool hasFile = !target.output.empty() && target.output != "-" && !result.isFailure;
  if (hasFile) json["file"] = target.output;
  if (result.reason) json["reason"] = result.reason.Message();
  return JsonLine(json);
}

// Several downloads at a time, each on a thread.
class Fetcher {
 public:
  Fetcher(Context& context, http::Client& client, const http::RequestOptions& request,
          const FetchOptions& options, bool json)
      : context_(context),
        client_(client),
        request_(request),
        options_(options),
        json_(json),
        targets_(TargetsOf(options, json)),
        progress_(targets_.size(), HasRoomForProgress()) {}

  ExitStatus Run() {
    std::vector<std::thread> threads;
    const std::size_t count = std::min<std::size_t>(options_.jobs, targets_.size());
    try {
      while (threads.size() + 1 < count)
        threads.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // The system allows no more threads: fewer downloads at a time.
    }
    Work();
    for (std::thread& thread : threads)
      thread.join();
    return worst_;
  }

 private:
  void Work() {
    for (;;) {
      const std::size_t index = next_.fetch_add(1);
      if (index >= targets_.size() || isStopped_) return;
      http::RequestOptions request = request_;
      request.onProgress = [this, index](const http::Progress& now) {
        progress_.Update(index, now.received, now.total);
        return !isStopped_;
      };
      const FetchResult result = FetchOne(client_, targets_[index], request);
      progress_.Finish(index, result.bytes);
      progress_.Interrupt([&] { Report(targets_[index], result); });
    }
  }

  // Standard error is a terminal that can erase a line, and on which no content appears.
  bool HasRoomForProgress() const {
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    const bool isContentShown = targets_[0].output == "-" && isatty(STDOUT_FILENO) != 0;
    return !options_.quiet && !isDumb && !isContentShown && isatty(STDERR_FILENO) != 0;
  }

  // Called by one thread at a time.
  void Report(const FetchTarget& target, const FetchResult& result) {
    if (context_.NoteLostReader(result.reason)) isStopped_ = true;
    if (isStopped_) return;
    const bool isSingle = targets_.size() == 1;
    ExitStatus status = result.isFailure ? StatusOf(result.reason.kind) : ExitStatus::kDone;
    const std::string line = std::string(result.outcome) + " " + Quoted(target.url);
    if (json_) {
      status = Worse(status, context_.Print(JsonOf(target, result)));
    } else if (!isSingle && !options_.quiet) {
      const bool hasFile = !target.output.empty() && !result.isFailure;
      const std::string where = hasFile ? " -> " + Quoted(target.output) : "";
      status = Worse(status, context_.Print(line + where + "\n"));
    }
    if (context_.HasLostReader()) isStopped_ = true;
    const bool isWorthTelling = !options_.quiet && !json_ && (isSingle || result.reason);
    if (result.isFailure || isWorthTelling) {
      context_.Tell(line + (result.reason ? ": " + result.reason.Message() : ""));
    }
    worst_ = Worse(worst_, status);
  }

  Context& context_;
  http::Client& client_;
  const http::RequestOptions& request_;
  const FetchOptions& options_;
  const bool json_;
  const std::vector<FetchTarget> targets_;
  FetchProgress progress_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> isStopped_{false};  // nobody reads the output any more
  ExitStatus worst_ = ExitStatus::kDone;
};

Error PrepareOutput(const FetchOptions& options, bool json) {
  if (options.output == "-" && (json || options.urls.size() > 1)) {
    return MakeError(ErrorKind::kInvalidArgument,
                     json ? "standard output is for the report, so --output needs a file"
                          : "several URLs need a directory for --output, not standard output");
  }
  if (options.urls.size() == 1 || options.output.empty()) return {};
  if (internal::MakeDirectories(options.output)) return {};
  return SystemError("cannot make the directory", options.output);
}

}  // namespace

ExitStatus Fetch(Context& context, const FetchOptions& options, bool json) {
  http::RequestOptions request;
  Error error = RequestOptionsOf(options, &request);
  if (!error) error = PrepareOutput(options, json);
  if (error) return context.Fail(error);
  session::CacheSession* session = context.Session(Context::Purpose::kStore, &error);
  if (session == nullptr) return context.Fail(error);
  const auto client = http::Client::Open(*session, ClientOptionsOf(options), &error);
  if (client == nullptr) return context.Fail(error);
  return Fetcher(context, *client, request, options, json).Run();
}

}  // namespace ox::tools
