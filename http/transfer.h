// One request to a server and its answer, taken piece by piece by the thread that wants it.
#ifndef OX_HTTP_TRANSFER_H_
#define OX_HTTP_TRANSFER_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "http/deadline.h"
#include "http/header_list.h"
#include "http/transfer_loop.h"
#include "http/url.h"

namespace ox::internal::http {

struct TransferRequest {
  std::string method = "GET";
  Url url;
  HeaderList headers;
  const std::string* body = nullptr;  // none for GET and HEAD
  bool decode = true;
  std::uint64_t offset = 0;  // bytes of the body that are there already
};

struct TransferHead {
  int status = 0;
  HeaderList headers;
  std::int64_t requestTime = 0;   // seconds since 1970
  std::int64_t responseTime = 0;  // when the headers had arrived
  std::uint64_t bodyBytes = 0;    // as promised; 0 when unknown
};

// Threads: one at a time.
class Transfer final : private LoopMember {
 public:
  // All must outlive this.
  Transfer(TransferLoop& loop, const ox::http::ClientOptions& client,
           const ox::http::RequestOptions& options, const TransferRequest& request);
  ~Transfer();

  // Sends the request and waits for the answer's headers. The error is kInputOutput when the server
  // is not reached or says nothing that is HTTP.
  Error Start(TransferHead* head);
  // The next piece of the body, decoded; empty at its end. An error when it breaks off.
  Error Read(std::string* piece);
  // True when the error was that the answer is larger than this request allows.
  bool HasExceededLimit();
  // True when the request would have failed with other limits of size and time too.
  bool HasServerFailed();

 private:
  CURL* Handle() override { return handle_.get(); }
  void OnDone(CURLcode code) override;

  void AddLine(const std::string& line);
  void SetUp();
  void SetUpSecurity();
  void SetUpLimits();
  void SetUpBody();
  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* self);
  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* self);
  std::size_t TakeBody(const char* data, std::size_t bytes);
  void TakeHead() OX_REQUIRES(mutex_);
  std::size_t Append(const char* data, std::size_t bytes) OX_REQUIRES(mutex_);
  bool IsTooLarge(std::uint64_t more) const OX_REQUIRES(mutex_);
  ox::http::Progress ProgressNow() const OX_REQUIRES(mutex_);
  Error Explain() const OX_REQUIRES(mutex_);
  template <typename Condition>
  Error WaitUntil(Condition isMet);
  Error Report(const ox::http::Progress& progress);
  template <typename Value>
  void Set(CURLoption option, Value value) {
    curl_easy_setopt(handle_.get(), option, value);
  }

  struct FreeHandle {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };
  struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  TransferLoop& loop_;
  const ox::http::ClientOptions& client_;
  const ox::http::RequestOptions& options_;
  const TransferRequest& request_;
  const std::unique_ptr<CURL, FreeHandle> handle_;
  std::unique_ptr<curl_slist, FreeList> headers_;
  std::array<char, CURL_ERROR_SIZE> message_{};
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point reported_;
  Deadline deadline_;
  std::size_t headerBytes_ = 0;  // of the loop's thread alone
  bool isAdded_ = false;

  Mutex mutex_;
  Condition changed_;
  TransferHead head_ OX_GUARDED_BY(mutex_);
  std::string buffer_ OX_GUARDED_BY(mutex_);
  std::uint64_t offset_ OX_GUARDED_BY(mutex_) = 0;  // of what the server sends
  std::uint64_t received_ OX_GUARDED_BY(mutex_) = 0;
  bool hasHead_ OX_GUARDED_BY(mutex_) = false;
  bool isPaused_ OX_GUARDED_BY(mutex_) = false;
  bool isDone_ OX_GUARDED_BY(mutex_) = false;
  const char* exceeded_ OX_GUARDED_BY(mutex_) = nullptr;  // which limit
  CURLcode code_ OX_GUARDED_BY(mutex_) = CURLE_OK;
};

// What Accept-Encoding says where bodies are decoded.
const std::string& AcceptedEncodings();

}  // namespace ox::internal::http

#endif
