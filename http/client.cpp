#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <utility>

#include "http/body_target.h"
#include "http/cached_get.h"
#include "http/cached_head.h"
#include "http/file_receiver.h"
#include "http/request_headers.h"
#include "http/transfer.h"
#include "session/without_exceptions.h"
#include <oxfilecache/http.h>

namespace ox::http {
namespace {

using internal::http::CachedGet;
using internal::http::CachedHead;
using internal::http::ClientState;
using internal::http::Deadline;
using internal::http::DeadlineOf;
using internal::http::Result;
using internal::http::Url;

using Method = Result (*)(ClientState&, const Url&, const RequestOptions&, Deadline, Error*);

// Runs a step that gives an answer or an error.
template <typename Step>
Result Guarded(Error* error, Step step) {
  Result answer;
  Error thrown = internal::WithoutExceptions([&]() -> Error {
    *error = {};
    answer = step();
    return {};
  });
  if (!thrown) return answer;
  *error = std::move(thrown);
  return std::nullopt;
}

bool IsRedirection(int status) {
  constexpr std::array<int, 5> kStatuses = {301, 302, 303, 307, 308};
  return std::find(kStatuses.begin(), kStatuses.end(), status) != kStatuses.end();
}

// The next request of a redirection. What is secret stays with the server that it was meant for.
Error Redirect(const std::string& location, Url* url, RequestOptions* options) {
  Url next;
  if (Error error = internal::http::ResolveLocation(*url, location, &next)) return error;
  if (next.origin != url->origin) {
    for (const char* name : {"Authorization", "Cookie", "Proxy-Authorization"})
      internal::http::Remove(&options->headers, name);
  } else if (next.user.empty() && next.password.empty()) {
    next.user = url->user;
    next.password = url->password;
  }
  *url = std::move(next);
  return {};
}

Result Follow(Method method, ClientState& state, const std::string& text,
              const RequestOptions& given, Error* error) {
  Url url;
  *error = internal::http::ParseUrl(text, &url);
  if (*error) return std::nullopt;
  const Deadline deadline = DeadlineOf(given);
  RequestOptions options = given;
  for (unsigned followed = 0;; ++followed) {
    Result answer = method(state, url, options, deadline, error);
    if (!answer) return answer;
    answer->redirections = followed;
    const std::string location = answer->HeaderValue("Location");
    if (given.maxRedirections == 0 || location.empty() || !IsRedirection(answer->status)) {
      return answer;
    }
    *error = followed < given.maxRedirections
                 ? Redirect(location, &url, &options)
                 : MakeError(ErrorKind::kInputOutput,
                             "more than " + std::to_string(followed) + " redirections");
    if (*error) return std::nullopt;
  }
}

bool IsSafe(const std::string& method) {
  constexpr std::array<const char*, 4> kMethods = {"GET", "HEAD", "OPTIONS", "TRACE"};
  return std::find(kMethods.begin(), kMethods.end(), method) != kMethods.end();
}

// First nothing that is under way may be stored any more, then what is stored goes.
void Forget(ClientState& state, const std::string& url) {
  state.running.Invalidate(url);
  state.downloads.Invalidate(url);
  state.session.Remove(url);
}

// The requested URL, and those that the answer names on the same server.
void Invalidate(ClientState& state, const Url& url, const Answer& answer) {
  Forget(state, url.text);
  for (const char* name : {"Location", "Content-Location"}) {
    Url other;
    const std::string location = answer.HeaderValue(name);
    if (location.empty() || internal::http::ResolveLocation(url, location, &other)) continue;
    if (other.origin == url.origin) Forget(state, other.text);
  }
}

Error CopyAnswer(internal::http::Transfer& transfer, internal::http::BodyTarget& target) {
  if (Error error = target.Begin()) return error;
  std::string piece;
  do {
    if (Error error = transfer.Read(&piece)) return error;
    if (Error error = target.Write(piece.data(), piece.size())) return error;
  } while (!piece.empty());
  return {};
}

Result SendTo(ClientState& state, const internal::http::TransferRequest& request,
              const RequestOptions& options, Error* error) {
  internal::http::Transfer transfer(*state.loop, state.options, options, request);
  internal::http::TransferHead head;
  *error = transfer.Start(&head);
  if (*error) return std::nullopt;
  internal::http::BodyTarget target(head.status / 100 == 2 ? options.receiver : nullptr,
                                    state.options.temporaryDirectory);
  Answer answer;
  answer.outcome = Outcome::kUncached;
  answer.status = head.status;
  answer.url = request.url.text;
  answer.headers = std::move(head.headers);
  answer.reason =
      MakeError(ErrorKind::kRefused, "answers to " + request.method + " are not stored");
  internal::http::RemoveConnectionHeaders(&answer.headers);
  // Before the body: the server has done it, whatever becomes of its answer.
  if (!IsSafe(request.method) && head.status < 400) Invalidate(state, request.url, answer);
  *error = CopyAnswer(transfer, target);
  if (*error) return std::nullopt;
  answer.size = target.Received();
  answer.content = target.TakeFile();
  return answer;
}

}  // namespace

std::string Answer::HeaderValue(const std::string& name) const {
  const Header* header = internal::http::Find(headers, name);
  return header != nullptr ? header->value : std::string();
}

Client::Client() = default;
Client::~Client() = default;

std::unique_ptr<Client> Client::Open(session::CacheSession& session, const ClientOptions& options,
                                     Error* error) {
  std::unique_ptr<Client> client;
  *error = internal::WithoutExceptions([&]() -> Error {
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
      return MakeError(ErrorKind::kInputOutput, "libcurl cannot be started");
    }
    client.reset(new Client);
    client->state_ = std::make_unique<ClientState>(session, options);
    ClientState& state = *client->state_;
    Error loopError;
    state.loop = internal::http::TransferLoop::Start(options.connectionsPerServer, &loopError);
    if (!options.refreshInBackground) return loopError;
    state.refresh = std::make_unique<internal::http::BackgroundRefresh>(
        [&state](const Url& url, const RequestOptions& request) {
          Error ignored;
          CachedGet(state, url, request, DeadlineOf(request), &ignored);
        });
    return loopError;
  });
  if (*error) client.reset();
  return client;
}

std::optional<Answer> Client::Get(const std::string& url, const RequestOptions& options,
                                  Error* error) {
  return Guarded(error, [&] { return Follow(&CachedGet, *state_, url, options, error); });
}

std::optional<Answer> Client::GetTo(const std::string& url, const std::string& path,
                                    const RequestOptions& options, Error* error) {
  return Guarded(error, [&]() -> Result {
    internal::http::FileReceiver receiver(path);
    RequestOptions withReceiver = options;
    withReceiver.receiver = &receiver;
    Result answer = Follow(&CachedGet, *state_, url, withReceiver, error);
    if (!answer || answer->status / 100 != 2) return answer;
    *error = receiver.PutInPlace();
    return *error ? std::nullopt : std::move(answer);
  });
}

std::optional<Answer> Client::Head(const std::string& url, const RequestOptions& options,
                                   Error* error) {
  return Guarded(error, [&]() -> Result {
    RequestOptions withoutReceiver = options;
    withoutReceiver.receiver = nullptr;
    return Follow(&CachedHead, *state_, url, withoutReceiver, error);
  });
}

std::optional<Answer> Client::Send(const std::string& method, const std::string& url,
                                   const std::string& body, const RequestOptions& options,
                                   Error* error) {
  return Guarded(error, [&]() -> Result {
    internal::http::TransferRequest request;
    request.method = method;
    request.body = &body;
    request.decode = state_->options.decode;
    if (!internal::http::IsToken(method)) {
      *error = MakeError(ErrorKind::kInvalidArgument, "this is no method");
    } else if (options.offline) {
      *error = MakeError(ErrorKind::kNotFound, "the server is not to be asked");
    } else {
      *error = internal::http::ParseUrl(url, &request.url);
    }
    if (!*error) {
      *error = internal::http::MakeRequestHeaders(state_->options, request.url, options.headers,
                                                  &request.headers);
    }
    return *error ? std::nullopt : SendTo(*state_, request, options, error);
  });
}

}  // namespace ox::http
