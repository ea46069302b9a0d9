// The library against servers that are slow, broken or hostile.
#include <chrono>

#include "tests/http/http_rig.h"

namespace ox::testing {
namespace {

using namespace std::chrono_literals;

TEST_F(HttpTest, HostileServersAreErrorsInBoundedTimeAndLeaveNothing) {
  const std::string head = "HTTP/1.1 200 OK\r\n";
  const auto endlessly = [](const std::string& first, const std::string& more,
                            std::chrono::milliseconds pause = 0ms) {
    return [=](const Connection& connection) {
      for (bool isThere = connection.Send(first); isThere; isThere = connection.Send(more))
        std::this_thread::sleep_for(pause);
    };
  };
  FILE* gzip = popen("head -c 50000000 /dev/zero | gzip -9", "r");
  std::string bomb(100000, '\0');
  bomb.resize(fread(bomb.data(), 1, bomb.size(), gzip));
  pclose(gzip);
  const struct {
    const char* name;
    RawServer::Answer answer;
    const char* says;
  } cases[] = {
      {"cookies", endlessly(head, "Set-Cookie: " + std::string(8000, 'x') + "\r\n"), "headers"},
      {"one header", endlessly(head + "X: ", std::string(8000, 'x')), "header"},
      {"body", endlessly(head + "\r\n", std::string(8000, 'x')), "larger"},
      {"promise", Always(head + "Content-Length: 9223372036854775807\r\n\r\nx"), "larger"},
      {"bomb", Always(Whole("Content-Encoding: gzip\r\n", bomb)), "larger"},
      {"drops of headers", endlessly(head, "X: 1\r\n", 300ms), "slow"},
      {"drops of a body", endlessly(head + "\r\n", "x", 300ms), "slow"},
      {"silence", [](const Connection& connection) { connection.BeSilent(); }, "slow"},
      {"too short", Always(head + "Content-Length: 100\r\n\r\nx"), ""},
      {"cut chunk", Always(head + "Transfer-Encoding: chunked\r\n\r\n64\r\nx"), ""},
      {"two lengths", Always(head + "Content-Length: 1\r\nContent-Length: 5\r\n\r\nabcde"), ""},
      {"bad packing", Always(Whole("Content-Encoding: gzip\r\n", "no gzip")), ""},
      {"no HTTP", Always("220 mail ESMTP\r\n"), ""},
      {"nothing", Always(""), ""},
      {"loop", Always(Whole("Location: /\r\n", "", "302 Found")), "more than 10"},
      {"to a file", Always(Whole("Location: file:///etc/passwd\r\n", "", "302 Found")), "no http"},
      {"to ftp", Always(Whole("Location: ftp://127.0.0.1/\r\n", "", "302 Found")), "no http"},
  };
  RequestOptions options;
  options.maxBodyBytes = 1000000;
  options.silenceTimeout = 1s;
  options.totalTimeout = 20s;
  for (const auto& c : cases) {
    RawServer server(c.answer);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(Get(server.Url("/"), options), "error 7") << c.name;
    EXPECT_NE(error_.detail.find(c.says), std::string::npos) << c.name << ": " << error_.detail;
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 15s) << c.name;
    EXPECT_EQ(Metadata(server.Url("/")), "") << c.name;
    if (std::string(c.name) == "two lengths") {
      EXPECT_FALSE(client_->Head(server.Url("/"), options, &error_));
    }
  }
  EXPECT_EQ(session_->Statistics().entries, 0u);
}

TEST_F(HttpTest, WhatAServerSaysCannotForgeMetadata) {
  const std::string odd = "a\rHTTP: 1 200 9 9 1 0\rb";
  RawServer server(Always(
      Whole(kFresh + ("Plain: 100% \xC3\xA9\r\nOdd: " + odd) + "\r\n>Range: x\r\nHTTP: forged\r\n",
            "body")));
  EXPECT_EQ(Get(server.Url("/")), "miss 200 body");
  EXPECT_EQ(Get(server.Url("/")), "hit 200 body");
  EXPECT_EQ(answer_->HeaderValue("Plain"), "100% \xC3\xA9");
  EXPECT_EQ(Metadata(server.Url("/")).find('\r'), std::string::npos);
}

// Other programs may write metadata too.
TEST_F(HttpTest, MetadataThatCannotBeIsNotTaken) {
  RawServer server(Always(Whole("", "new")));
  const std::string line = "URL: " + server.Url("/") + "\nHTTP: 1 200 ";
  for (const char* rest :
       {"0 -9223372036854775807 3 0\n", "9223372036854775807 0 3 0\n", "0 0 3 9\n"}) {
    auto writer = session_->Store(server.Url("/"), &error_);
    writer->Write("old", 3);
    writer->Commit(line + rest + "Cache-Control: max-age=99999999999\n");
    EXPECT_EQ(Get(server.Url("/")), "replaced 200 new") << rest;
  }
}

TEST_F(HttpTest, WhatDoesNotFitIntoMetadataIsLeftOutOrKeepsTheAnswerOut) {
  const std::string one(700, 'x');
  RawServer server(Always(Whole(kFresh + ("X-A: " + one) + "\r\nX-B: " + one + "\r\n", "body")));
  EXPECT_EQ(Get(server.Url("/")), "miss 200 body");
  EXPECT_EQ(Get(server.Url("/")), "hit 200 body");
  EXPECT_EQ(answer_->HeaderValue("X-A") + answer_->HeaderValue("X-B"), one);
  server.SetAnswer(Always(Whole(kFresh + ("Vary: " + one + one) + "\r\n", "body")));
  EXPECT_EQ(Get(server.Url("/vary")), "uncached 200 body");
  server.SetAnswer(Always(
      "HTTP/1.1 200 OK\r\nConnection: close, cache-control\r\nCache-Control: no-store\r\n\r\nx"));
  EXPECT_EQ(Get(server.Url("/connection")), "uncached 200 x");
}

TEST_F(HttpTest, SecretsReachNoFileAndNoMessage) {
  RawServer server(Always(Whole(kFresh, "secret")));
  std::string url = server.Url("/page");
  const std::string withPassword = "http://user:pass@" + url.substr(7);
  EXPECT_EQ(Get(withPassword), "uncached 200 secret");
  EXPECT_NE(server.Requests()[0].find("Authorization: Basic dXNlcjpwYXNz\r\n"), std::string::npos);
  server.SetAnswer(
      Always(Whole("Cache-Control: public, max-age=9\r\nVary: Authorization\r\n", "x")));
  EXPECT_EQ(Get(withPassword), "uncached 200 x");
  server.SetAnswer(Always(Whole("Cache-Control: public, max-age=9\r\n", "x")));
  EXPECT_EQ(Get(withPassword), "miss 200 x");
  EXPECT_EQ(answer_->url, url);
  EXPECT_EQ(Metadata(url).find("pass"), std::string::npos);
  const std::string away = "//user:pass@" + url.substr(7);
  for (const std::string& header : {"Location: http:" + away, "Content-Location: " + away,
                                    std::string("Location: ftp://user:pass@h/")}) {
    server.SetAnswer(Always(Whole(kFresh + header + "\r\n", "", "301 Moved")));
    RequestOptions options;
    options.maxRedirections = 0;
    EXPECT_EQ(Get(server.Url("/secret"), options), "uncached 301 ") << header;
  }
  server.SetAnswer(Always(Whole(kFresh + ("Link: <http:" + away + ">\r\n"), "x")));
  EXPECT_EQ(Get(server.Url("/link")), "miss 200 x");
  EXPECT_EQ(Metadata(server.Url("/link")).find("pass"), std::string::npos);
  // On the way to another server, which gets neither.
  RawServer other(Always(Whole(kFresh, "other")));
  server.SetAnswer(Always(Whole("Location: " + other.Url("/") + "\r\n", "", "302 Found")));
  RequestOptions cookie = With("Cookie", "id=1");
  EXPECT_EQ(Get("http://user:pass@" + server.Url("/away").substr(7), cookie), "miss 200 other");
  EXPECT_EQ(other.Requests()[0].find("Authorization"), std::string::npos);
  EXPECT_EQ(other.Requests()[0].find("Cookie"), std::string::npos);
  server.SetAnswer(Always(""));
  Get("http://user:pass@" + server.Url("/gone").substr(7));
  EXPECT_EQ(error_.Message().find("pass"), std::string::npos);
}

TEST_F(HttpTest, StandsInForAServerThatFails) {
  RawServer server(Always(Whole(kTagged, "old")));
  Get(server.Url("/"));
  server.SetAnswer(Always(Whole("Cache-Control: max-age=0, must-revalidate\r\n", "strict")));
  Get(server.Url("/strict"));
  RequestOptions options;
  options.staleIfError = true;
  for (const char* failure : {"", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx",
                              "HTTP/1.1 500 Error\r\nContent-Length: 0\r\n\r\n",
                              "HTTP/1.1 502 Gateway\r\nContent-Length: 0\r\n\r\n",
                              "HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n",
                              "HTTP/1.1 504 Late\r\nContent-Length: 0\r\n\r\n"}) {
    server.SetAnswer(Always(failure));
    EXPECT_EQ(Get(server.Url("/"), options), "stale 200 old") << failure;
    EXPECT_TRUE(answer_->reason) << failure;
    EXPECT_NE(Get(server.Url("/strict"), options), "stale 200 strict") << failure;
  }
  EXPECT_EQ(client_->Head(server.Url("/"), options, &error_)->outcome, Outcome::kStale);
  server.SetAnswer([](const Connection& connection) { connection.BeSilent(); });
  RequestOptions cancelled = options;
  cancelled.onProgress = [](const http::Progress&) { return false; };
  EXPECT_FALSE(client_->Head(server.Url("/"), cancelled, &error_));
  EXPECT_EQ(error_.kind, ErrorKind::kCancelled);
  // Also when the time is over while another caller's download is waited for.
  const std::size_t before = server.Requests().size();
  std::thread other([this, &server] {
    Error error;
    RequestOptions second;
    second.totalTimeout = 1s;
    client_->Get(server.Url("/"), second, &error);
  });
  while (server.Requests().size() == before)
    std::this_thread::sleep_for(10ms);
  options.totalTimeout = 300ms;
  EXPECT_EQ(Get(server.Url("/"), options), "stale 200 old");
  other.join();
  options.offline = true;
  const std::size_t asked = server.Requests().size();
  EXPECT_EQ(Get(server.Url("/"), options), "stale 200 old");
  EXPECT_EQ(Get(server.Url("/strict"), options), "error 2");
  EXPECT_EQ(server.Requests().size(), asked);
}

TEST_F(HttpTest, CallersCancelAndLimitTheTime) {
  RawServer server([](const Connection& connection) {
    if (connection.Has("/head")) return connection.BeSilent();
    connection.Send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.Send("x"))
      std::this_thread::sleep_for(50ms);
  });
  RequestOptions options;
  int calls = 0;
  options.onProgress = [&calls](const http::Progress&) { return ++calls < 3; };
  for (const char* path : {"/head", "/body"}) {
    calls = 0;
    EXPECT_EQ(Get(server.Url(path), options), "error 11") << path;
  }
  options.onProgress = nullptr;
  options.totalTimeout = 300ms;
  EXPECT_EQ(Get(server.Url("/body"), options), "error 7");
  options.totalTimeout = std::chrono::milliseconds::max();
  options.onProgress = [](const http::Progress& now) { return now.received == 0; };
  EXPECT_EQ(Get(server.Url("/body"), options), "error 11");
  options.onProgress = nullptr;
  // Also while all connections are taken.
  client_.reset();
  http::ClientOptions one;
  one.connectionsPerServer = 1;
  client_ = http::Client::Open(*session_, one, &error_);
  std::thread other([this, &server] {
    Error error;
    RequestOptions seconds;
    seconds.totalTimeout = 3s;
    client_->Get(server.Url("/head"), seconds, &error);
  });
  while (server.Requests().back().find("/head") == std::string::npos)
    std::this_thread::sleep_for(10ms);
  const auto begun = std::chrono::steady_clock::now();
  options.totalTimeout = 300ms;
  EXPECT_EQ(Get(server.Url("/body"), options), "error 7");
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
  other.join();
}

}  // namespace
}  // namespace ox::testing
