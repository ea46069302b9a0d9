// One URL through the cache.
#ifndef OX_TOOLS_OXCACHE_FETCH_JOB_H_
#define OX_TOOLS_OXCACHE_FETCH_JOB_H_

#include <functional>
#include <memory>
#include <string>

#include "tools/oxcache/byte_stream.h"
#include "tools/oxcache/fetch_download.h"
#include <oxfilecache/session.h>

namespace ox::tools {

struct FetchResult {
  // "HIT", "MISS", "REVALIDATED", "REPLACED", "UNCACHED" or "FAILED"
  const char* outcome;
  // Why it failed, why the content is not in the cache, or why its lifetime was not renewed.
  Error reason;
};

class FetchJob final : private DownloadReceiver {
 public:
  using Progress = std::function<void(std::uint64_t received, std::uint64_t total)>;

  // `output` is a path, "-" for standard output, or empty to fill the cache only.
  FetchJob(session::CacheSession& session, std::string url, std::string output, Progress progress);
  ~FetchJob() = default;

  FetchResult Run();

 private:
  using Found = std::optional<session::FetchedEntry>;

  Error OnBody(const ResponseHeaders& headers, const void* data, std::size_t bytes) override;
  void OnProgress(std::uint64_t received, std::uint64_t total) override;

  FetchResult Request(Found found, StoredResponse stored);
  FetchResult Revalidated(Found found, StoredResponse stored);
  FetchResult Received(bool isReplacement);
  Error BeginBody(const ResponseHeaders& headers);
  Error OpenWriter(const ResponseHeaders& headers);
  Error OpenOutput();
  Error Commit();
  // Continues without the cache when the limits refused the entry and there is an output.
  Error ContinueWithoutCache(Error error);
  Error Renew(const session::FetchedEntry& entry, const std::string& metadata);
  Error WriteOutput(session::FetchedEntry entry);

  session::CacheSession& session_;
  const std::string url_;
  const std::string outputPath_;
  const Progress progress_;
  DownloadResult download_;
  std::unique_ptr<session::StoreWriter> writer_;
  std::unique_ptr<Output> output_;
  bool isBegun_ = false;
  std::uint64_t received_ = 0;
  Error uncached_;  // why the content is not stored
};

}  // namespace ox::tools

#endif
