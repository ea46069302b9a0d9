// HTTP through the cache, in three lines:
//
//   auto client = ox::http::Client::Open(*session, {}, &error);
//   auto answer = client->Get("http://example/logo.png", {}, &error);
//   if (answer) Serve(answer->status, answer->content.Get(), answer->size);
//
// What is fresh is served without asking, what may have changed is asked for with its validators,
// and what the server answers is stored as RFC 9111 allows a private cache to; docs/http.md has
// each decision. Two programs that share a cache directory over time share what is in it.
//
// Errors are values (error.h): no function throws and none prints. Functions with an `Error*` clear
// it first; it may not be null. Any answer of a server is an answer here, also 404 and 500.
//
//   kInvalidArgument  the URL is no http or https URL, or a header cannot be sent
//   kNotFound         offline, and no usable copy is stored
//   kInputOutput      the server was not reached, broke off, or exceeded a limit of RequestOptions;
//                     or the disk refused
//   kCancelled        onProgress said no
//   kOutOfMemory
//
// Threads: every function of a Client from any thread, but for the destructor. Calls block until
// they have their answer. Several calls for one URL share one download. A Client has one thread of
// its own for all connections, and a second one while it refreshes what was served stale.
#ifndef OXFILECACHE_HTTP_H_
#define OXFILECACHE_HTTP_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>
#include <oxfilecache/session.h>

namespace ox::internal::http {
struct ClientState;
}  // namespace ox::internal::http

namespace ox::http {

// One header line. Names compare without regard to case.
struct Header {
  std::string name;   // without the colon
  std::string value;  // without blanks around it
};

// Where an answer comes from.
enum class Outcome {
  kHit,          // from the cache, without asking the server for it
  kRevalidated,  // from the cache; the server said that it has not changed
  kMiss,         // from the server, and stored
  kReplaced,     // from the server, and stored in place of an older answer
  kUncached,     // from the server and not stored: Answer::reason tells why
  kStale,        // from the cache though no longer fresh: Answer::reason tells why
};

// What holds for all requests of a client.
struct ClientOptions {
  // Sent as User-Agent, unless the request has one. Empty: none is sent.
  std::string userAgent = "oxfilecache";
  // A PEM file with the certificate authorities that are trusted. Empty: those of the system. This
  // and the next two files are read at each connection.
  std::string caFile;
  // A PEM file with the certificate that is shown to servers. Empty: none.
  std::string certificateFile;
  std::string keyFile;  // a PEM file with its private key; empty: in certificateFile
  // As in "http://proxy:3128"; empty: as the environment says (http_proxy, https_proxy, no_proxy).
  std::string proxy;
  // Where a body goes that is not stored and has no receiver, in a file without a name. Empty:
  // $TMPDIR, otherwise /tmp.
  std::string temporaryDirectory;
  // Connections to one server at a time; more requests wait.
  unsigned connectionsPerServer = 8;
  // Without a stated lifetime, an answer is fresh for a tenth of its age since Last-Modified, at
  // most a day. Off: it is asked for each time.
  bool heuristicFreshness = true;
  // Compressed bodies are asked for, and stored decoded. Off: bodies stay as the server sent them
  // and Content-Encoding is kept, which suits a proxy.
  bool decode = true;
  // Answers with stale-while-revalidate are served stale within that time and refreshed by a
  // thread of the client. Off: they are revalidated before they are served.
  bool refreshInBackground = true;
};

// How far a download is, in bytes of the decoded body.
struct Progress {
  std::uint64_t received = 0;  // also what an earlier download had, where that is resumed
  std::uint64_t total = 0;     // 0 while unknown
};

// Takes a body while it arrives, on the thread that called the client. It may not call the client.
// An error of either function ends the request and is its error.
class BodyReceiver {
 public:
  // Before the first byte. Again when the body has to start over, since the server went away and
  // another copy follows: what was received so far does not count.
  virtual Error OnBegin() = 0;
  // The next bytes of the body, in its order. `data` is valid during the call only.
  virtual Error OnData(const void* data, std::size_t bytes) = 0;

 protected:
  ~BodyReceiver() = default;
};

// What holds for one request. The pointers must stay valid during the call.
struct RequestOptions {
  // Sent as they are. Cache-Control among them (no-cache, no-store, max-age, min-fresh, max-stale,
  // only-if-cached) is obeyed too. If-None-Match and If-Modified-Since may give an answer of status
  // 304, Range one of status 206. Authorization and Cookie are not sent on to another server that a
  // redirection leads to, and no value of theirs is stored.
  std::vector<Header> headers;
  // Never touches the network. What is stored is served even if it is stale, unless the server
  // forbade that (must-revalidate, no-cache).
  bool offline = false;
  // Asks the server even for what is fresh.
  bool refresh = false;
  // When the server is not reached, breaks off, exceeds a limit or answers 500, 502, 503 or 504,
  // serves the stored copy however old it is, unless the server forbade that. Without this, only as
  // long as stale-if-error of the stored answer allows.
  bool staleIfError = false;
  // Redirections followed, each through the cache. 0: the redirection is the answer. One too many
  // is an error.
  unsigned maxRedirections = 10;
  // For finding the server's address and connecting to it, TLS included; for each request that is
  // sent. 0: libcurl's own limit, 300 seconds.
  std::chrono::milliseconds connectTimeout{30000};
  // A server that sends less than minimumSpeed for so long is given up. 0: never.
  std::chrono::seconds silenceTimeout{60};
  std::uint32_t minimumSpeed = 16;  // bytes a second; 0: any speed will do
  // Of one call: all redirections and the body; 0: no limit.
  std::chrono::milliseconds totalTimeout{0};
  // A body that is larger, once it is decoded, is an error (kInputOutput).
  std::uint64_t maxBodyBytes = 1ULL << 30;
  // A status line and headers that are longer together are an error (kInputOutput).
  std::size_t maxHeaderBytes = 64 * 1024;
  // Called on the calling thread about ten times a second while it waits. False: cancels. It may
  // not call the client.
  std::function<bool(const Progress&)> onProgress;
  // Gets the body of a successful answer (2xx), wherever it comes from. Other bodies, and all of
  // them without a receiver, are in Answer::content alone.
  BodyReceiver* receiver = nullptr;
};

// One answer. It owns its open file and depends on nothing else.
struct Answer {
  Outcome outcome = Outcome::kMiss;  // where it comes from
  int status = 0;                    // of HTTP, as 200
  std::string url;              // that gave it, after redirections; without user name and password
  std::vector<Header> headers;  // those kept; of a stored answer with the Age of now
  // The body: `size` bytes from the file's position on. Not open when a receiver got a body that
  // was not stored, after HEAD, and for status 304.
  UniqueFd content;
  // Bytes of the body. After HEAD the length that the server or the stored answer states; 0 where
  // it is not known.
  std::uint64_t size = 0;
  // Why it is stale or not stored; why a renewed lifetime could not be noted (kRevalidated).
  Error reason;
  unsigned redirections = 0;  // followed

  // The first header of that name, empty when there is none.
  std::string HeaderValue(const std::string& name) const;
};

// Asks servers through the cache of one session. It does not own the session.
//
// Threads: every function from any thread, but for the destructor.
class Client {
 public:
  // The session must outlive the client. Null and an error when there is no memory or no thread.
  static std::unique_ptr<Client> Open(session::CacheSession& session, const ClientOptions& options,
                                      Error* error);
  // No call may be under way. A refresh in the background is broken off.
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // The resource of that URL. A user name and a password in the URL are sent as basic
  // authorization and are stored nowhere. A fragment is cut off.
  std::optional<Answer> Get(const std::string& url, const RequestOptions& options, Error* error);

  // The same into a file, which appears whole or not at all, and only for a successful answer
  // (2xx). It also gets what the cache has no room for. `options.receiver` must be null.
  std::optional<Answer> GetTo(const std::string& url, const std::string& path,
                              const RequestOptions& options, Error* error);

  // Headers alone: of a fresh stored answer to Get, otherwise of the server. They renew or
  // invalidate what is stored.
  std::optional<Answer> Head(const std::string& url, const RequestOptions& options, Error* error);

  // Any other method, never from the cache and never stored. Unless the answer is an error (400 and
  // up) what is stored of the URL, and of Location and Content-Location on the same server, is
  // invalid from then on. Redirections are not followed.
  std::optional<Answer> Send(const std::string& method, const std::string& url,
                             const std::string& body, const RequestOptions& options, Error* error);

 private:
  Client();
  std::unique_ptr<internal::http::ClientState> state_;
};

}  // namespace ox::http

#endif
