// A client on a cache of its own, and short forms of what the tests do with one.
#ifndef OX_TESTS_HTTP_HTTP_RIG_H_
#define OX_TESTS_HTTP_HTTP_RIG_H_

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/http/raw_server.h"
#include "tests/support/session_rig.h"
#include <oxfilecache/http.h>

namespace ox::testing {

using http::Outcome;
using http::RequestOptions;

inline constexpr char kFresh[] = "Cache-Control: max-age=1000\r\n";
inline constexpr char kTagged[] = "ETag: \"1\"\r\nCache-Control: max-age=0\r\n";

inline std::string Whole(const std::string& headers, const std::string& body,
                         const char* status = "200 OK") {
  return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}
inline RawServer::Answer Always(const std::string& bytes) {
  return [bytes](const Connection& connection) { connection.Send(bytes); };
}

class HttpTest : public ::testing::Test {
 protected:
  HttpTest() { Reopen(); }

  void Reopen() {
    client_.reset();
    session_.reset();
    session_ = OpenSession(OptionsFor(directory_.Path()));
    client_ = http::Client::Open(*session_, {}, &error_);
  }
  // "OUTCOME STATUS BODY", or "error N".
  std::string Get(const std::string& url, const RequestOptions& options = {}) {
    answer_ = client_->Get(url, options, &error_);
    if (!answer_) return "error " + std::to_string(static_cast<int>(error_.kind));
    constexpr const char* kNames[] = {"hit",      "revalidated", "miss",
                                      "replaced", "uncached",    "stale"};
    std::string text = kNames[static_cast<int>(answer_->outcome)];
    text += " " + std::to_string(answer_->status);
    if (answer_->content.IsOpen())
      text +=
          " " + ReadAll(answer_->content.Get()).substr(0, static_cast<std::size_t>(answer_->size));
    return text;
  }
  static RequestOptions With(const std::string& name, const std::string& value) {
    RequestOptions options;
    options.headers = {{name, value}};
    return options;
  }
  std::string Metadata(const std::string& url) {
    auto entry = session_->Fetch(url, &error_);
    return entry ? entry->metadata : "";
  }

  CacheDirectory directory_{{1 << 20, 50, 200000}};
  std::unique_ptr<CacheSession> session_;
  std::unique_ptr<http::Client> client_;
  std::optional<http::Answer> answer_;
  Error error_;
};

}  // namespace ox::testing

#endif
