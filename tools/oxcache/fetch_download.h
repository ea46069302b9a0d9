// One HTTP request.
#ifndef OX_TOOLS_OXCACHE_FETCH_DOWNLOAD_H_
#define OX_TOOLS_OXCACHE_FETCH_DOWNLOAD_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/oxcache/http_metadata.h"
#include <oxfilecache/error.h>

namespace ox::tools {

struct DownloadRequest {
  std::string url;
  std::string etag;          // empty: not asked about
  std::string lastModified;  // empty: not asked about
};

class DownloadReceiver {
 public:
  // A piece of the body; the headers are complete. An error ends the download.
  virtual Error OnBody(const ResponseHeaders& headers, const void* data, std::size_t bytes) = 0;
  // `total` is 0 while unknown.
  virtual void OnProgress(std::uint64_t received, std::uint64_t total) = 0;

 protected:
  ~DownloadReceiver() = default;
};

struct DownloadResult {
  ResponseHeaders headers;
  bool isRedirected = false;
};

// Follows redirections. An error when the URL cannot be taken (kInvalidArgument), the server is not
// reached or the body does not arrive whole (kInputOutput), and the receiver's own. Any answer of
// the server is a success here. Threads: several downloads at a time, after curl_global_init.
Error Download(const DownloadRequest& request, DownloadReceiver& receiver, DownloadResult* result);

}  // namespace ox::tools

#endif
