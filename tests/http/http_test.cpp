// The library against servers that are slow, broken or hostile, and what its callers rely on. What
// RFC 9111 asks of a cache, scripts/prove holds it to with the public suite.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>

#include "http/stored_answer.h"
#include "tests/http/raw_server.h"
#include "tests/support/session_rig.h"
#include <oxfilecache/http.h>

namespace ox::testing {
namespace {

using http::Outcome;
using http::RequestOptions;
using namespace std::chrono_literals;

constexpr char kFresh[] = "Cache-Control: max-age=1000\r\n";
constexpr char kTagged[] = "ETag: \"1\"\r\nCache-Control: max-age=0\r\n";

std::string Whole(const std::string& headers, const std::string& body,
                  const char* status = "200 OK") {
  return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}
RawServer::Answer Always(const std::string& bytes) {
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
      text += " " + ReadAll(answer_->content.Get()).substr(0, answer_->size);
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

TEST_F(HttpTest, ManyCallersShareOneDownload) {
  RawServer server([](const Connection& connection) {
    std::this_thread::sleep_for(300ms);
    connection.Send(Whole("Cache-Control: max-age=0\r\n", "body"));
  });
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 20; ++i) {
    threads.emplace_back([&] {
      Error error;
      const auto answer = client_->Get(server.Url("/"), {}, &error);
      if (answer && ReadAll(answer->content.Get()) == "body") ++good;
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, 20);
  EXPECT_EQ(server.Requests().size(), 1u);
}

// A first caller is on its way to the server, and a second one joins or goes alone.
TEST_F(HttpTest, NobodyGetsWhatIsTooOldOrLimitedForAnother) {
  RawServer server(Always(""));
  const auto slowly = [](const Connection& connection) {
    const std::string answer = Whole(kFresh, "old");
    connection.Send(answer.substr(0, answer.size() - 2));
    std::this_thread::sleep_for(500ms);
    connection.Send("ld");
  };
  const auto first = [&](const std::string& url, const RequestOptions& options) {
    server.SetAnswer(slowly);
    const std::size_t before = server.Requests().size();
    std::thread caller([this, url, options] {
      Error error;
      client_->Get(url, options, &error);
    });
    while (server.Requests().size() == before)
      std::this_thread::sleep_for(10ms);
    std::this_thread::sleep_for(100ms);
    server.SetAnswer(Always(Whole(kFresh, "new")));
    return caller;
  };
  RequestOptions limited;
  limited.totalTimeout = 300ms;
  std::thread caller = first(server.Url("/limit"), limited);
  EXPECT_EQ(Get(server.Url("/limit")), "miss 200 new");
  caller.join();
  caller = first(server.Url("/refresh"), {});
  RequestOptions refresh;
  refresh.refresh = true;
  EXPECT_EQ(Get(server.Url("/refresh"), refresh), "replaced 200 new");
  caller.join();
  for (const auto& options : {RequestOptions(), With("Cookie", "x")}) {
    const std::string url = server.Url("/" + std::to_string(options.headers.size()));
    caller = first(url, options);
    client_->Send("POST", url, "", {}, &error_);
    EXPECT_EQ(Get(url), "miss 200 new");
    caller.join();
    EXPECT_EQ(Get(url), "hit 200 new");
  }
  // A caller that would wait for itself.
  server.SetAnswer(slowly);
  RequestOptions nested;
  nested.onProgress = [&, isInner = false](const http::Progress&) mutable {
    Error error;
    if (!std::exchange(isInner, true)) client_->Get(server.Url("/nested"), {}, &error);
    return true;
  };
  Get(server.Url("/nested"), nested);
  EXPECT_EQ(Get(server.Url("/nested")), "hit 200 old");
}

TEST_F(HttpTest, ABodyThatBrokeOffIsResumedAfterARestart) {
  const std::string body = Bytes(1, 100000);
  const auto cut = [&body](const Connection& connection) {
    connection.Send(Whole(std::string(kFresh) + "ETag: \"1\"\r\n", body).substr(0, 60000));
  };
  const auto rest = [&body](const Connection& connection) {
    const std::size_t place = connection.request.find("Range: bytes=");
    if (place == std::string::npos || !connection.Has("If-Range: \"1\"\r\n")) return;
    const std::size_t from = std::stoul(connection.request.substr(place + 13));
    connection.Send(
        Whole("ETag: \"1\"\r\nContent-Range: bytes " + std::to_string(from) + "-99999/100000\r\n",
              body.substr(from), "206 Partial Content"));
  };
  RawServer server(cut);
  EXPECT_EQ(Get(server.Url("/")), "error 7");
  EXPECT_EQ(Metadata(server.Url("/")), "");
  EXPECT_NE(Metadata(server.Url("/#part")), "");
  Reopen();
  server.SetAnswer(rest);
  EXPECT_EQ(Get(server.Url("/")), "miss 200 " + body);
  EXPECT_EQ(Get(server.Url("/")), "hit 200 " + body);
  EXPECT_EQ(session_->Statistics().entries, 1u);
  // Another version is there by now, and another time a server that gives a wrong part.
  const std::string news = Bytes(2, 100000);
  const RawServer::Answer wrong = [&](const Connection& connection) {
    const bool isPart = connection.Has("Range:");
    connection.Send(isPart ? Whole("Content-Range: bytes 0-9/100000\r\n", body.substr(0, 10),
                                   "206 Partial Content")
                           : Whole(kFresh, news));
  };
  for (const RawServer::Answer& next : {Always(Whole(kFresh, news)), wrong}) {
    const std::string url = server.Url("/" + std::to_string(server.Requests().size()));
    server.SetAnswer(cut);
    EXPECT_EQ(Get(url), "error 7");
    server.SetAnswer(next);
    EXPECT_EQ(Get(url), "miss 200 " + news);
  }
  // All of it is smaller than allowed, although not with the part that is no use any more.
  server.SetAnswer(cut);
  const std::string url = server.Url("/limit");
  EXPECT_EQ(Get(url), "error 7");
  RequestOptions limit;
  limit.maxBodyBytes = 90000;
  server.SetAnswer(Always(Whole(kFresh, body.substr(0, 80000))));
  EXPECT_EQ(Get(url, limit), "miss 200 " + body.substr(0, 80000));
  server.SetAnswer(Always(Whole(std::string(kFresh) + "ETag: \"1\"\r\n", body)));
  EXPECT_EQ(Get(server.Url("/large"), limit), "error 7");
  EXPECT_EQ(Metadata(server.Url("/large#part")), "");
  // What is whole is not given up for a part.
  server.SetAnswer(cut);
  RequestOptions refresh;
  refresh.refresh = true;
  EXPECT_EQ(Get(server.Url("/"), refresh), "error 7");
  EXPECT_EQ(Get(server.Url("/")), "hit 200 " + body);
}

TEST_F(HttpTest, NotModifiedWritesMetadataAlone) {
  RawServer server(Always(Whole(kTagged, "body")));
  EXPECT_EQ(Get(server.Url("/")), "miss 200 body");
  const auto written =
      std::filesystem::last_write_time(session_->Fetch(server.Url("/"), &error_)->path);
  server.SetAnswer([](const Connection& connection) {
    if (connection.Has("If-None-Match: \"1\"\r\n")) {
      connection.Send("HTTP/1.1 304 Not Modified\r\nConnection: close\r\nX-New: 1\r\n" +
                      std::string(kFresh) + "\r\n");
    }
  });
  EXPECT_EQ(Get(server.Url("/")), "revalidated 200 body");
  EXPECT_EQ(Get(server.Url("/")), "hit 200 body");
  EXPECT_EQ(answer_->HeaderValue("X-New"), "1");
  EXPECT_EQ(std::filesystem::last_write_time(session_->Fetch(server.Url("/"), &error_)->path),
            written);
}

TEST_F(HttpTest, ConditionsAndRangesOfTheCaller) {
  RawServer server(Always(Whole(kFresh, "gone", "404 Not Found")));
  Get(server.Url("/gone"));
  EXPECT_EQ(Get(server.Url("/gone"), With("If-None-Match", "*")), "hit 404 gone");
  server.SetAnswer([](const Connection& connection) {
    const bool isAsIs = connection.Has("Accept-Encoding: identity\r\n");
    connection.Send(Whole(isAsIs ? "Content-Range: bytes 1-2/4\r\n" : "Content-Encoding: gzip\r\n",
                          "od", "206 Partial Content"));
  });
  EXPECT_EQ(Get(server.Url("/part"), With("Range", "bytes=1-2")), "uncached 206 od");
  EXPECT_EQ(answer_->HeaderValue("Content-Range"), "bytes 1-2/4");
}

#ifdef OX_EXAMPLE_PATH
TEST_F(HttpTest, TheExampleWritesTheBodyAndNoMore) {
  for (const std::string body : {"", "text"}) {
    RawServer server(Always(Whole(kFresh, body)));
    for (const char* times : {"once", "again"}) {
      const std::string output = directory_ / "output";
      const std::string command = OX_EXAMPLE_PATH " " + (directory_ / "example") + " " +
                                  server.Url("/") + " >" + output + " 2>/dev/null";
      EXPECT_EQ(std::system(command.c_str()), 0);
      EXPECT_EQ(ReadWhole(output), body) << times;
    }
  }
}
#endif

TEST_F(HttpTest, RenewsOnlyWhatMayBeStored) {
  const auto renewal = [](const std::string& headers) {
    return "HTTP/1.1 304 Not Modified\r\nConnection: close\r\nX-New: 1\r\n" + headers + "\r\n";
  };
  RawServer server(Always(Whole(kTagged, "body")));
  for (const char* path : {"/", "/head"})
    Get(server.Url(path));
  server.SetAnswer(Always(renewal(kFresh)));
  for (const auto& options : {With("Cache-Control", "no-store"), With("Authorization", "x")}) {
    EXPECT_EQ(Get(server.Url("/"), options), "revalidated 200 body");
    EXPECT_EQ(Metadata(server.Url("/")).find("X-New"), std::string::npos);
  }
  server.SetAnswer(Always(renewal("Cache-Control: no-store\r\n")));
  EXPECT_EQ(Get(server.Url("/")), "revalidated 200 body");
  EXPECT_EQ(Metadata(server.Url("/")), "");
  // While another request stores another body.
  server.SetAnswer(Always(Whole(kTagged, "body")));
  Get(server.Url("/other"));
  server.SetAnswer([&](const Connection& connection) {
    if (!connection.Has("Cookie")) return connection.Send(Whole("ETag: \"2\"\r\n", "next")), void();
    RequestOptions refresh;
    refresh.refresh = true;
    Error error;
    client_->Get(server.Url("/other"), refresh, &error);
    connection.Send(renewal(kFresh));
  });
  EXPECT_EQ(Get(server.Url("/other"), With("Cookie", "x")), "revalidated 200 body");
  EXPECT_EQ(Metadata(server.Url("/other")).find("X-New"), std::string::npos);
  EXPECT_NE(Metadata(server.Url("/other")).find("ETag: \"2\""), std::string::npos);
  server.SetAnswer(Always("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nCache-Control: no-store\r\n\r\n"));
  EXPECT_EQ(client_->Head(server.Url("/head"), {}, &error_)->outcome, Outcome::kUncached);
  EXPECT_EQ(Metadata(server.Url("/head")), "");
}

TEST_F(HttpTest, StandsInForAServerThatFails) {
  RawServer server(Always(Whole(kTagged, "old")));
  Get(server.Url("/"));
  server.SetAnswer(Always(Whole("Cache-Control: max-age=0, must-revalidate\r\n", "strict")));
  Get(server.Url("/strict"));
  RequestOptions options;
  options.staleIfError = true;
  for (const char* failure : {"", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx",
                              "HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n"}) {
    server.SetAnswer(Always(failure));
    EXPECT_EQ(Get(server.Url("/"), options), "stale 200 old") << failure;
    EXPECT_TRUE(answer_->reason) << failure;
    EXPECT_NE(Get(server.Url("/strict"), options), "stale 200 strict") << failure;
  }
  options.offline = true;
  const std::size_t asked = server.Requests().size();
  EXPECT_EQ(Get(server.Url("/"), options), "stale 200 old");
  EXPECT_EQ(Get(server.Url("/strict"), options), "error 2");
  EXPECT_EQ(server.Requests().size(), asked);
}

TEST_F(HttpTest, RefreshesInTheBackgroundWhatItServesStale) {
  RawServer server(
      Always(Whole("Cache-Control: max-age=0, stale-while-revalidate=100\r\n", "old")));
  Get(server.Url("/"));
  server.SetAnswer(Always(Whole(kFresh, "new")));
  EXPECT_EQ(Get(server.Url("/"), With("Range", "bytes=0-1")), "stale 206 ol");
  for (int tries = 0; tries < 200 && Get(server.Url("/")) != "hit 200 new"; ++tries)
    std::this_thread::sleep_for(20ms);
  EXPECT_EQ(Get(server.Url("/")), "hit 200 new");
}

TEST_F(HttpTest, VariantsAndMethods) {
  RawServer server([](const Connection& connection) {
    connection.Send(Whole(std::string(kFresh) + "Vary: Accept-Language\r\n",
                          connection.Has("Accept-Language: de") ? "deutsch" : "english"));
  });
  const std::string url = server.Url("/");
  EXPECT_EQ(Get(url, With("Accept-Language", "en, fr")), "miss 200 english");
  EXPECT_EQ(Get(url, With("accept-language", "FR,en")), "hit 200 english");
  EXPECT_EQ(Get(url, With("Accept-Language", "de")), "replaced 200 deutsch");
  EXPECT_EQ(client_->Head(url, With("Accept-Language", "de"), &error_)->outcome, Outcome::kHit);
  EXPECT_EQ(Get(url, With("Host", "x")), "error 1");
  server.SetAnswer(Always(Whole("", "", "400 Bad")));
  client_->Send("PUT", url, "text", {}, &error_);
  EXPECT_NE(Metadata(url), "");
  server.SetAnswer(Always(Whole("", "done")));
  EXPECT_EQ(client_->Send("DELETE", url, "", {}, &error_)->size, 4u);
  EXPECT_EQ(Metadata(url), "");
}

// Of unknown length, so that it is found too large only when a part of it is in the cache.
TEST_F(HttpTest, WhatTheCacheRefusesIsDeliveredNevertheless) {
  const std::string body = Bytes(3, 300000);
  RawServer server(Always("HTTP/1.1 200 OK\r\n" + std::string(kFresh) + "\r\n" + body));
  EXPECT_EQ(Get(server.Url("/")), "uncached 200 " + body);
  const std::string file = directory_ / "copy";
  EXPECT_EQ(client_->GetTo(server.Url("/"), file, {}, &error_)->outcome, Outcome::kUncached);
  EXPECT_EQ(ReadWhole(file), body);
  server.SetAnswer(Always(Whole("", "gone", "404 Not Found")));
  EXPECT_EQ(client_->GetTo(server.Url("/"), directory_ / "none", {}, &error_)->status, 404);
  EXPECT_EQ(ReadWhole(directory_ / "none"), "(missing)");
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
