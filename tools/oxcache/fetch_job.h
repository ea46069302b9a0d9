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
  // Why it failed, or why the content is not in the cache, or its freshness not renewed.
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

  FetchResult Ask(Found found, StoredResponse stored);
  FetchResult Revalidated(Found found, StoredResponse stored);
  FetchResult Received(bool isReplacement);
  Error BeginBody(const ResponseHeaders& headers);
  Error OpenWriter(const ResponseHeaders& headers);
  Error OpenOutput();
  Error Commit();
  // Goes on without the cache when there is an output and the limits were the reason.
  Error GoOnUncached(Error error);
  Error Renew(const session::FetchedEntry& entry, const std::string& metadata);
  Error Deliver(session::FetchedEntry entry);

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
