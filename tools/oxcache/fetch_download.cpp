#include "tools/oxcache/fetch_download.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <string_view>

namespace ox::tools {
namespace {

constexpr long kConnectSeconds = 30;
// Less than a byte a second for so long is a dead connection.
constexpr long kStallSeconds = 60;
constexpr long kMaxRedirections = 10;
constexpr char kProtocols[] = "http,https";

struct FreeHandle {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Handle = std::unique_ptr<CURL, FreeHandle>;
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

void Append(const std::string& line, HeaderList* list) {
  curl_slist* longer = curl_slist_append(list->get(), line.c_str());
  if (longer == nullptr) return;
  static_cast<void>(list->release());
  list->reset(longer);
}

class Transfer {
 public:
  Transfer(DownloadReceiver& receiver, DownloadResult* result)
      : receiver_(receiver), result_(result), handle_(curl_easy_init()) {}

  Error Run(const DownloadRequest& request) {
    if (handle_ == nullptr) return MakeError(ErrorKind::kOutOfMemory, "out of memory");
    SetUp(request);
    const CURLcode code = curl_easy_perform(handle_.get());
    long redirections = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_REDIRECT_COUNT, &redirections);
    result_->isRedirected = redirections > 0;
    if (receiverError_) return receiverError_;
    return code == CURLE_OK ? Error{} : Explain(code);
  }

 private:
  template <typename Value>
  void Set(CURLoption option, Value value) {
    curl_easy_setopt(handle_.get(), option, value);
  }

  void SetUp(const DownloadRequest& request) {
    if (!request.etag.empty()) Append("If-None-Match: " + request.etag, &headers_);
    if (!request.lastModified.empty()) {
      Append("If-Modified-Since: " + request.lastModified, &headers_);
    }
    Set(CURLOPT_URL, request.url.c_str());
    Set(CURLOPT_HTTPHEADER, headers_.get());
    Set(CURLOPT_USERAGENT, "oxcache");
    Set(CURLOPT_PROTOCOLS_STR, kProtocols);
    Set(CURLOPT_REDIR_PROTOCOLS_STR, kProtocols);
    Set(CURLOPT_FOLLOWLOCATION, 1L);
    Set(CURLOPT_MAXREDIRS, kMaxRedirections);
    Set(CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    Set(CURLOPT_LOW_SPEED_TIME, kStallSeconds);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_ERRORBUFFER, reason_.data());
    Set(CURLOPT_HEADERFUNCTION, &TakeHeader);
    Set(CURLOPT_HEADERDATA, this);
    Set(CURLOPT_WRITEFUNCTION, &TakeBody);
    Set(CURLOPT_WRITEDATA, this);
    Set(CURLOPT_NOPROGRESS, 0L);
    Set(CURLOPT_XFERINFOFUNCTION, &TakeProgress);
    Set(CURLOPT_XFERINFODATA, this);
  }

  static std::size_t TakeHeader(char* data, std::size_t size, std::size_t count, void* self) {
    TakeHeaderLine(std::string_view(data, size * count),
                   &static_cast<Transfer*>(self)->result_->headers);
    return size * count;
  }

  static std::size_t TakeBody(char* data, std::size_t size, std::size_t count, void* context) {
    auto& self = *static_cast<Transfer*>(context);
    self.receiverError_ = self.receiver_.OnBody(self.result_->headers, data, size * count);
    return self.receiverError_ ? CURL_WRITEFUNC_ERROR : size * count;
  }

  static int TakeProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t /*upTotal*/,
                          curl_off_t /*upNow*/) {
    static_cast<Transfer*>(self)->receiver_.OnProgress(static_cast<std::uint64_t>(now),
                                                       static_cast<std::uint64_t>(total));
    return 0;
  }

  Error Explain(CURLcode code) const {
    // The same codes stand for a redirection to such a URL and for an answer that is not HTTP. Only
    // without a connection was it the URL itself.
    long connections = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &connections);
    const bool isUrl =
        connections == 0 && (code == CURLE_URL_MALFORMAT || code == CURLE_UNSUPPORTED_PROTOCOL);
    const std::string reason = reason_[0] != '\0' ? reason_.data() : curl_easy_strerror(code);
    return MakeError(isUrl ? ErrorKind::kInvalidArgument : ErrorKind::kInputOutput, reason);
  }

  DownloadReceiver& receiver_;
  DownloadResult* result_;
  Handle handle_;
  HeaderList headers_;
  Error receiverError_;
  std::array<char, CURL_ERROR_SIZE> reason_{};
};

}  // namespace

Error Download(const DownloadRequest& request, DownloadReceiver& receiver, DownloadResult* result) {
  *result = {};
  return Transfer(receiver, result).Run(request);
}

}  // namespace ox::tools
