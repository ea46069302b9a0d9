#include "tools/oxcache/fetch.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "host/directory.h"
#include "tools/oxcache/fetch_job.h"
#include "tools/oxcache/fetch_progress.h"
#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

using session::CacheSession;

struct Target {
  std::string url;
  std::string output;  // empty: the cache only
};

// The last part of the URL's path as a file name.
std::string FileName(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  const std::size_t host = path.find("://");
  const std::size_t start = path.find('/', host == std::string::npos ? 0 : host + 3);
  path = start == std::string::npos ? "" : path.substr(path.rfind('/') + 1);
  std::replace_if(
      path.begin(), path.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '_');
  return path.empty() || path == "." || path == ".." ? "index" : path;
}

// Each URL gets a file of its own: a name that is taken gets a number.
std::string UniqueName(const std::string& name, std::set<std::string>* taken) {
  std::string unique = name;
  for (unsigned number = 2; !taken->insert(unique).second; ++number) {
    unique = name + "-" + std::to_string(number);
  }
  return unique;
}

std::vector<Target> TargetsOf(const FetchOptions& options) {
  std::vector<Target> targets;
  if (options.urls.size() == 1) {
    targets.push_back({options.urls[0], options.output.empty() ? "-" : options.output});
    return targets;
  }
  std::set<std::string> taken;
  for (const std::string& url : options.urls) {
    const std::string name = UniqueName(FileName(url), &taken);
    targets.push_back({url, options.output.empty() ? "" : options.output + "/" + name});
  }
  return targets;
}

// Several downloads at a time, each on a thread.
class Fetcher {
 public:
  Fetcher(Context& context, CacheSession& session, const FetchOptions& options)
      : context_(context),
        session_(session),
        options_(options),
        targets_(TargetsOf(options)),
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
      const Target& target = targets_[index];
      FetchJob job(session_, target.url, target.output,
                   [this, index](std::uint64_t received, std::uint64_t total) {
                     progress_.Update(index, received, total);
                   });
      const FetchResult result = job.Run();
      progress_.Finish(index);
      progress_.Interrupt([&] { Report(target.url, result); });
    }
  }

  // Standard error is a terminal on which no content appears.
  bool HasRoomForProgress() const {
    const bool isContentShown = targets_[0].output == "-" && isatty(STDOUT_FILENO) != 0;
    return !options_.quiet && !isContentShown && isatty(STDERR_FILENO) != 0;
  }

  // Called by one thread at a time.
  void Report(const std::string& url, const FetchResult& result) {
    if (context_.NoteLostReader(result.reason)) isStopped_ = true;
    if (isStopped_) return;
    const bool isFailed = std::string_view(result.outcome) == "FAILED";
    const std::string why = result.reason ? ": " + result.reason.Message() : "";
    const std::string line = std::string(result.outcome) + " " + FirstLine(url);
    ExitStatus status = isFailed ? StatusOf(result.reason.kind) : ExitStatus::kDone;
    if (targets_.size() > 1 && !options_.quiet) {
      status = Worse(status, context_.Print(line + "\n"));
      isStopped_ = context_.HasLostReader();
    }
    if (isFailed || (!options_.quiet && (targets_.size() == 1 || result.reason))) {
      context_.Tell(line + why);
    }
    worst_ = Worse(worst_, status);
  }

  Context& context_;
  CacheSession& session_;
  const FetchOptions& options_;
  const std::vector<Target> targets_;
  FetchProgress progress_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> isStopped_{false};  // nobody reads the output any more
  ExitStatus worst_ = ExitStatus::kDone;
};

Error PrepareOutput(const FetchOptions& options) {
  if (options.urls.size() == 1 || options.output.empty()) return {};
  if (options.output == "-") {
    return MakeError(ErrorKind::kInvalidArgument,
                     "several URLs need a directory for --output, not standard output");
  }
  if (internal::MakeDirectories(options.output)) return {};
  return SystemError("cannot make the directory", options.output);
}

}  // namespace

ExitStatus Fetch(Context& context, const FetchOptions& options) {
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    return context.Fail(MakeError(ErrorKind::kInputOutput, "libcurl cannot be started"));
  }
  if (Error error = PrepareOutput(options)) return context.Fail(error);
  Error error;
  CacheSession* session = context.Session(Context::Purpose::kStore, &error);
  if (session == nullptr) return context.Fail(error);
  return Fetcher(context, *session, options).Run();
}

}  // namespace ox::tools
