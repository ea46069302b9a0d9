// What programs rely on: shared downloads, resumed bodies, renewals, variants. What RFC 9111 asks
// of a cache, scripts/prove holds it to with the public suite.
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/http/http_rig.h"

namespace ox::testing {
namespace {

using namespace std::chrono_literals;

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
  // Another variant, of which the answer tells only while the second caller waits for it.
  const std::size_t before = server.Requests().size();
  server.SetAnswer([&](const Connection& connection) {
    server.SetAnswer(Always(Whole(kFresh, "new")));
    std::this_thread::sleep_for(500ms);
    connection.Send(Whole(std::string(kFresh) + "Vary: X-Who\r\n", "old"));
  });
  caller = std::thread([&] {
    Error error;
    client_->Get(server.Url("/variant"), With("X-Who", "a"), &error);
  });
  while (server.Requests().size() == before)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(Get(server.Url("/variant"), With("X-Who", "b")), "replaced 200 new");
  caller.join();
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
  const auto restFor = [&body](const Connection& connection) -> std::string {
    const std::size_t place = connection.request.find("Range: bytes=");
    if (place == std::string::npos || !connection.Has("If-Range: \"1\"\r\n")) return "";
    const std::size_t from = std::stoul(connection.request.substr(place + 13));
    return Whole(
        "ETag: \"1\"\r\nContent-Range: bytes " + std::to_string(from) + "-99999/100000\r\n",
        body.substr(from), "206 Partial Content");
  };
  RawServer server(cut);
  EXPECT_EQ(Get(server.Url("/")), "error 7");
  EXPECT_EQ(Metadata(server.Url("/")), "");
  EXPECT_NE(Metadata(server.Url("/#part")), "");
  Reopen();
  server.SetAnswer([&](const Connection& connection) { connection.Send(restFor(connection)); });
  RequestOptions watched;
  watched.onProgress = [](const http::Progress& now) {
    EXPECT_TRUE(now.total == 0 || now.total == 100000) << now.total;
    return true;
  };
  EXPECT_EQ(Get(server.Url("/"), watched), "miss 200 " + body);
  EXPECT_EQ(Get(server.Url("/")), "hit 200 " + body);
  EXPECT_EQ(session_->Statistics().entries, 1u);
  // Another version is there by now; the server gives a wrong part; it gives the rest without its
  // length, and not all of it; what was kept can no longer be read.
  const std::string news = Bytes(2, 100000);
  for (const std::string problem : {"new", "wrong", "cut", "unreadable"}) {
    const std::string url = server.Url("/" + problem);
    server.SetAnswer(cut);
    EXPECT_EQ(Get(url), "error 7");
    server.SetAnswer([&](const Connection& connection) {
      std::string part = restFor(connection);
      if (problem == "new" || part.empty()) return connection.Send(Whole(kFresh, news)), void();
      if (problem == "wrong") part.replace(part.find("bytes "), 7, "bytes 1");
      if (problem == "cut") part.replace(part.find("Content-Length"), 7, "Without").pop_back();
      Error error;
      const auto kept = session_->Fetch(url + "#part", &error);
      if (problem == "unreadable") std::filesystem::resize_file(kept->path, 10);
      connection.Send(part);
    });
    const std::string copy = directory_ / "copy";
    answer_ = client_->GetTo(url, copy, {}, &error_);
    EXPECT_TRUE(answer_ && answer_->outcome == Outcome::kMiss) << problem;
    EXPECT_EQ(ReadWhole(copy), news) << problem;
    EXPECT_EQ(Get(url), "hit 200 " + news) << problem;
    EXPECT_EQ(Metadata(url + "#part"), "") << problem;
  }
  // A server that does not know If-Range has another version.
  const auto dated = [](const char* hour) {
    return std::string(kFresh) +
           "Date: Sun, 06 Nov 1994 10:00:00 GMT\r\nLast-Modified: Sun, 06 Nov 1994 " + hour +
           ":00:00 GMT\r\n";
  };
  server.SetAnswer(Always(Whole(dated("08"), body).substr(0, 60000)));
  EXPECT_EQ(Get(server.Url("/dated")), "error 7");
  server.SetAnswer([&](const Connection& connection) {
    const std::size_t place = connection.request.find("Range: bytes=");
    if (place == std::string::npos) return connection.Send(Whole(kFresh, news)), void();
    const std::string from = std::to_string(std::stoul(connection.request.substr(place + 13)));
    connection.Send(Whole(dated("09") + "Content-Range: bytes " + from + "-99999/100000\r\n",
                          news.substr(std::stoul(from)), "206 Partial Content"));
  });
  EXPECT_EQ(Get(server.Url("/dated")), "miss 200 " + news);
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
  // Where nothing is unpacked, the part may be of a packed body, and so must be the rest.
  client_.reset();
  http::ClientOptions packed;
  packed.decode = false;
  client_ = http::Client::Open(*session_, packed, &error_);
  EXPECT_EQ(Get(server.Url("/packed"), With("Accept-Encoding", "gzip")), "error 7");
  server.SetAnswer([&](const Connection& connection) {
    if (connection.Has("Accept-Encoding: gzip\r\n")) connection.Send(restFor(connection));
  });
  EXPECT_EQ(Get(server.Url("/packed"), With("Accept-Encoding", "gzip")), "miss 200 " + body);
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
  // Nor even that, where a later age would change nothing.
  RequestOptions refresh;
  refresh.refresh = true;
  for (const std::string use : {"", ", stale-if-error=9", ", stale-while-revalidate=9"}) {
    const std::string url = server.Url("/" + std::to_string(use.size()));
    const std::string headers = "Cache-Control: max-age=0" + use + "\r\n";
    server.SetAnswer(Always(Whole("ETag: \"1\"\r\n" + headers, "body")));
    Get(url);
    server.SetAnswer(Always("HTTP/1.1 304 Same\r\nAge: 7\r\n" + headers + "\r\n"));
    EXPECT_EQ(Get(url, refresh), "revalidated 200 body");
    EXPECT_EQ(Metadata(url).find("Age: 7") != std::string::npos, !use.empty());
  }
}

TEST_F(HttpTest, WhatTheRequestAllows) {
  RawServer server(Always(Whole(kTagged, "old")));
  Get(server.Url("/"));
  const RequestOptions onlyCached = With("Cache-Control", "only-if-cached");
  EXPECT_EQ(Get(server.Url("/"), With("Cache-Control", "max-stale")), "stale 200 old");
  EXPECT_EQ(answer_->reason.kind, ErrorKind::kRefused);
  EXPECT_EQ(Get(server.Url("/"), onlyCached), "error 2");
  EXPECT_FALSE(client_->Head(server.Url("/"), onlyCached, &error_));
  EXPECT_EQ(error_.kind, ErrorKind::kNotFound);
  RequestOptions offline;
  offline.offline = true;
  EXPECT_EQ(client_->Head(server.Url("/"), offline, &error_)->outcome, Outcome::kStale);
  EXPECT_FALSE(client_->Head(server.Url("/none"), offline, &error_));
  EXPECT_EQ(error_.kind, ErrorKind::kNotFound);
  EXPECT_FALSE(client_->Send("POST", server.Url("/"), "", offline, &error_));
  EXPECT_EQ(error_.kind, ErrorKind::kNotFound);
  EXPECT_FALSE(client_->Send("NO METHOD", server.Url("/"), "", {}, &error_));
  EXPECT_EQ(error_.kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(server.Requests().size(), 1u);
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
  // A server that packs it all the same.
  server.SetAnswer(Always(Whole(kFresh + std::string("Content-Encoding: br\r\n"), "packed")));
  EXPECT_EQ(Get(server.Url("/packed"), With("Range", "bytes=1-2")), "uncached 200 packed");
  server.SetAnswer(Always(Whole(kFresh + std::string("ETag: \"1\"\r\n"), "body")));
  Get(server.Url("/"));
  EXPECT_EQ(Get(server.Url("/"), With("If-None-Match", "\"1\"")), "hit 304");
  EXPECT_EQ(answer_->size, 0u);
  EXPECT_EQ(Get(server.Url("/"), With("If-None-Match", "\"2\"")), "hit 200 body");
  EXPECT_EQ(Get(server.Url("/"), With("Range", "bytes=1-2")), "hit 206 od");
  EXPECT_EQ(answer_->HeaderValue("Content-Range"), "bytes 1-2/4");
}

TEST_F(HttpTest, LongUrlsAndStatusesThatMustBeUnderstood) {
  RawServer server(Always(Whole(kFresh, "body")));
  const std::string url = server.Url("/" + std::string(400, 'a'));
  EXPECT_EQ(Get(url), "miss 200 body");
  EXPECT_EQ(Get(url), "hit 200 body");
  const std::string understood = "Cache-Control: no-store, must-understand, max-age=9\r\n";
  server.SetAnswer(Always(Whole(understood, "known")));
  EXPECT_EQ(Get(server.Url("/known")), "miss 200 known");
  server.SetAnswer(Always(Whole(understood, "odd", "299 Odd")));
  EXPECT_EQ(Get(server.Url("/odd")), "uncached 299 odd");
}

TEST_F(HttpTest, FilesThatCannotBeWrittenAndTheirModes) {
  RawServer server(Always(Whole(kFresh, "body")));
  const std::string taken = directory_ / "taken";
  std::filesystem::create_directory(taken);
  for (const std::string& path : {directory_ / "none/file", taken}) {
    EXPECT_FALSE(client_->GetTo(server.Url("/"), path, {}, &error_));
    EXPECT_EQ(error_.kind, ErrorKind::kInputOutput);
    EXPECT_EQ(error_.path, path);
  }
  using std::filesystem::perms;
  const std::string secret = directory_ / "secret";
  std::ofstream(secret) << "old";
  std::filesystem::permissions(secret, perms::owner_read | perms::owner_write);
  EXPECT_TRUE(client_->GetTo(server.Url("/"), secret, {}, &error_));
  EXPECT_EQ(ReadWhole(secret), "body");
  EXPECT_EQ(std::filesystem::status(secret).permissions(), perms::owner_read | perms::owner_write);
}

TEST_F(HttpTest, WhatComesPackedIsStoredUnpacked) {
  const std::string packed(
      "\x1F\x8B\x08\0\0\0\0\0\x02\x03\x4B\xCA\x4F\xA9\x04\0\xB2\x0B\xA8\xDB\x04\0\0\0", 24);
  RawServer server(Always(Whole(kFresh + std::string("Content-Encoding: gzip\r\n"), packed)));
  for (const char* text : {"miss 200 body", "hit 200 body"}) {
    EXPECT_EQ(Get(server.Url("/")), text);
    EXPECT_EQ(answer_->HeaderValue("Content-Encoding"), "");
  }
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
  server.SetAnswer(Always(Whole(kTagged, "body")));
  Get(server.Url("/long"));
  server.SetAnswer(Always(renewal(kFresh + ("Vary: " + std::string(1100, 'x')) + "\r\n")));
  EXPECT_EQ(Get(server.Url("/long")), "revalidated 200 body");
  EXPECT_EQ(answer_->reason.kind, ErrorKind::kRefused);
  EXPECT_EQ(Metadata(server.Url("/long")).find("X-New"), std::string::npos);
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
  // By a clock that is behind it stays stale all the same.
  const std::string ahead = std::string(kFresh) + "Date: Fri, 31 Dec 9999 23:59:59 GMT\r\n";
  server.SetAnswer(Always(Whole("ETag: \"1\"\r\n" + ahead, "body")));
  Get(server.Url("/ahead"));
  server.SetAnswer(Always("HTTP/1.1 304 Same\r\n" + ahead + "\r\n"));
  const std::uint64_t renewals = session_->Statistics().renewals;
  EXPECT_EQ(Get(server.Url("/ahead")), "revalidated 200 body");
  EXPECT_EQ(session_->Statistics().renewals, renewals);
  server.SetAnswer(Always(Whole(ahead, "gone", "404 Not Found")));
  Get(server.Url("/ahead"));
  EXPECT_NE(Metadata(server.Url("/ahead")), "");
  EXPECT_EQ(answer_->outcome, Outcome::kUncached);
  server.SetAnswer(Always("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nCache-Control: no-store\r\n\r\n"));
  EXPECT_EQ(client_->Head(server.Url("/head"), {}, &error_)->outcome, Outcome::kUncached);
  EXPECT_EQ(Metadata(server.Url("/head")), "");
  server.SetAnswer(Always(Whole(kFresh, "gone", "404 Not Found")));
  Get(server.Url("/gone"));
  RequestOptions refresh;
  refresh.refresh = true;
  server.SetAnswer(Always("HTTP/1.1 200 OK\r\nCache-Control: max-age=1000\r\n\r\n"));
  client_->Head(server.Url("/gone"), refresh, &error_);
  EXPECT_EQ(Metadata(server.Url("/gone")), "");
}

TEST_F(HttpTest, AnAnswerThatTookThePlaceOfAnotherStays) {
  RawServer server(Always(Whole("Cache-Control: max-age=0\r\n", "old")));
  const std::string url = server.Url("/");
  client_.reset();
  session_.reset();
  session::SessionOptions options = OptionsFor(directory_.Path());
  bool isReplaced = false;
  options.onEviction = [&](const session::Eviction&) {
    if (std::exchange(isReplaced, true)) return;
    EXPECT_FALSE(Store(*session_, url, "b", "another's"));
  };
  session_ = OpenSession(options);
  client_ = http::Client::Open(*session_, {}, &error_);
  for (int i = 0; i < 9; ++i)
    ASSERT_FALSE(Store(*session_, std::to_string(i), std::string(110000, 'x'), "m"));
  Get(url);
  const std::string news(150000, 'n');
  server.SetAnswer(Always(Whole(kFresh, news)));
  EXPECT_EQ(Get(url), "uncached 200 " + news);
  EXPECT_EQ(Metadata(url), "another's");
}

TEST_F(HttpTest, WhatVariesOnlySinceItWasRenewedIsStillOfOneVariant) {
  RawServer server(Always(""));
  const RequestOptions english = With("Accept-Language", "en");
  for (const bool isHead : {false, true}) {
    const std::string url = server.Url(isHead ? "/head" : "/get");
    server.SetAnswer(Always(Whole(kTagged, "english")));
    Get(url, english);
    server.SetAnswer(Always(std::string("HTTP/1.1 ") + (isHead ? "200 OK" : "304 Same") +
                            "\r\nVary: Accept-Language\r\n" + kFresh + "\r\n"));
    isHead ? client_->Head(url, english, &error_) : client_->Get(url, english, &error_);
    EXPECT_EQ(Get(url, english), "hit 200 english");
    server.SetAnswer(Always(Whole("", "any")));
    EXPECT_EQ(Get(url), "replaced 200 any");
  }
}

TEST_F(HttpTest, RefreshesInTheBackgroundWhatItServesStale) {
  RawServer server(
      Always(Whole("Cache-Control: max-age=0, stale-while-revalidate=100\r\n", "old")));
  Get(server.Url("/"));
  server.SetAnswer(Always(Whole(kFresh, "new")));
  struct : http::BodyReceiver {
    Error OnBegin() override { return {}; }
    Error OnData(const void* data, std::size_t bytes) override {
      text.append(static_cast<const char*>(data), bytes);
      return {};
    }
    std::string text;
  } receiver;
  RequestOptions options = With("Range", "bytes=0-1");
  options.receiver = &receiver;
  EXPECT_EQ(Get(server.Url("/"), options), "stale 206 ol");
  EXPECT_EQ(answer_->HeaderValue("Content-Length"), "2");
  for (int tries = 0; tries < 200 && Get(server.Url("/")) != "hit 200 new"; ++tries)
    std::this_thread::sleep_for(20ms);
  EXPECT_EQ(Get(server.Url("/")), "hit 200 new");
  EXPECT_EQ(receiver.text, "ol");
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
  EXPECT_EQ(client_->Head(url, With("Accept-Language", "en"), &error_)->status, 200);
  EXPECT_EQ(Get(url, With("Accept-Language", "de")), "hit 200 deutsch");
  EXPECT_EQ(Get(url, With("Host", "x")), "error 1");
  Get(server.Url("/list"));
  server.SetAnswer(Always(Whole("", "", "400 Bad")));
  client_->Send("PUT", url, "text", {}, &error_);
  EXPECT_NE(Metadata(url), "");
  server.SetAnswer(Always(Whole("Content-Location: list\r\n", "done")));
  EXPECT_EQ(client_->Send("DELETE", url, "", {}, &error_)->size, 4u);
  EXPECT_EQ(Metadata(url) + Metadata(server.Url("/list")), "");
}

TEST_F(HttpTest, WhatIsChangedAtTheMomentItIsStoredIsNotKept) {
  RawServer server(Always(Whole(kFresh, "body")));
  const std::string url = server.Url("/");
  client_.reset();
  session_.reset();
  SessionOptions options = OptionsFor(directory_.Path());
  options.onEviction = [&](const session::Eviction&) {
    Error error;
    client_->Send("POST", url, "", {}, &error);
  };
  session_ = OpenSession(options);
  client_ = http::Client::Open(*session_, {}, &error_);
  for (int i = 0; i < 50; ++i)
    Store(*session_, std::to_string(i), "content", "metadata");
  answer_ = client_->GetTo(url, directory_ / "copy", {}, &error_);
  EXPECT_EQ(server.Requests().size(), 2u);
  EXPECT_EQ(answer_->outcome, Outcome::kUncached);
  EXPECT_EQ(answer_->reason.kind, ErrorKind::kRefused);
  EXPECT_EQ(ReadWhole(directory_ / "copy") + Metadata(url), "body");
}

TEST_F(HttpTest, AStoredBodyThatCannotBeReadIsAskedForAnew) {
  RawServer server(Always(Whole(kFresh, "body")));
  Get(server.Url("/"));
  struct : http::BodyReceiver {
    Error OnBegin() override {
      std::filesystem::resize_file(path, bytes);
      return {};
    }
    Error OnData(const void*, std::size_t) override { return own; }
    std::string path;
    std::size_t bytes = 4;
    Error own = MakeError(ErrorKind::kCancelled, "enough");
  } receiver;
  receiver.path = session_->Fetch(server.Url("/"), &error_)->path;
  RequestOptions options;
  options.receiver = &receiver;
  EXPECT_EQ(Get(server.Url("/"), options), "error 11");
  EXPECT_EQ(ReadWhole(receiver.path), "body");
  receiver.own = {};
  receiver.bytes = 1;
  EXPECT_EQ(Get(server.Url("/"), options), "error 7");
  EXPECT_EQ(ReadWhole(receiver.path), "(missing)");
  EXPECT_EQ(Get(server.Url("/")), "miss 200 body");
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
  // Nor is there room for it elsewhere.
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit nothing{0, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &nothing);
  EXPECT_EQ(Get(server.Url("/")), "error 7");
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_TRUE(std::filesystem::is_directory(error_.path)) << error_.Message();
}

}  // namespace
}  // namespace ox::testing
