#include "http/cached_head.h"

#include <utility>

#include "http/transfer.h"
#include "http/validation.h"
#include "http/vary.h"

namespace ox::internal::http {
namespace {

using ox::http::Outcome;

constexpr int kOk = 200;

// Renews the stored answer by what the server says now, or removes it where it is outdated.
void UpdateStored(const GetRequest& request, const TransferHead& head, const StoredEntry& entry) {
  session::CacheSession& session = request.state.session;
  const std::string& url = request.url.text;
  StoredAnswer stored = entry.answer;
  if (stored.status == kOk && IsSameRepresentation(head.headers, stored)) {
    Freshen(head.headers, head.requestTime, head.responseTime, &stored);
    stored.varied = VariedHeaders(stored.headers, request.headers);
    if (WhyNotRenewed(request, stored) != nullptr) return;
    const auto metadata = ToMetadata(stored, url);
    const Error error =
        metadata ? session.SetMetadata(url, entry.entry.metadata, *metadata) : Error{};
    // kNotFound: another answer has taken its place, which stays.
    if (metadata && (!error || error.kind == ErrorKind::kNotFound)) return;
  }
  session.Remove(url);
}

Result AskServer(const GetRequest& request, const Candidate& candidate, Error* error) {
  ox::http::RequestOptions options = request.options;
  *error = TimeLeft(request.deadline, &options.totalTimeout);
  if (*error) return std::nullopt;
  TransferRequest toSend;
  toSend.method = "HEAD";
  toSend.url = request.url;
  toSend.headers = request.headers;
  toSend.decode = request.state.options.decode;
  Transfer transfer(*request.state.loop, request.state.options, options, toSend);
  TransferHead head;
  *error = transfer.Start(&head);
  if (!*error && MayReplaceServer(request, candidate)) *error = ServerFailure(head.status);
  if (*error) return std::nullopt;
  if (head.status == kOk && candidate.stored && candidate.isMatching) {
    UpdateStored(request, head, *candidate.stored);
  }
  ox::http::Answer answer;
  answer.outcome = Outcome::kUncached;
  answer.status = head.status;
  answer.url = request.url.text;
  answer.headers = head.headers;
  RemoveConnectionHeaders(&answer.headers);
  answer.size = head.bodyBytes;
  answer.reason = MakeError(ErrorKind::kRefused, "answers to HEAD are not stored");
  return answer;
}

Result WithoutBody(const GetRequest& request, StoredEntry stored, Outcome outcome, Error reason,
                   Error* error) {
  Result answer = DeliverStored(request, std::move(stored), outcome, std::move(reason), error);
  if (answer) answer->content.Reset();
  return answer;
}

}  // namespace

Result CachedHead(ClientState& state, const Url& url, const ox::http::RequestOptions& options,
                  Deadline deadline, Error* error) {
  GetRequest request{state, url, options, deadline, {}, {}};
  *error = MakeGetRequest(&request);
  if (*error) return std::nullopt;
  Candidate candidate = FindCandidate(request);
  const Reuse& reuse = candidate.reuse;
  if (reuse.isFresh) {
    return WithoutBody(request, std::move(*candidate.stored), Outcome::kHit, {}, error);
  }
  if (!options.offline && !request.control.onlyIfCached) {
    Result answer = AskServer(request, candidate, error);
    const bool isServers = !answer && error->kind == ErrorKind::kInputOutput;
    if (!isServers || !MayReplaceServer(request, candidate)) return answer;
  } else if (!candidate.isMatching || !options.offline || !reuse.mayBeStale) {
    *error = MakeError(ErrorKind::kNotFound, "not stored, and the server is not to be asked");
    return std::nullopt;
  }
  Error reason = std::exchange(*error, {});
  if (!reason) reason = MakeError(ErrorKind::kRefused, "offline");
  return WithoutBody(request, std::move(*candidate.stored), Outcome::kStale, std::move(reason),
                     error);
}

}  // namespace ox::internal::http
