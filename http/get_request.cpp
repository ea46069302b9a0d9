#include "http/get_request.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "http/byte_range.h"
#include "http/request_headers.h"
#include "http/storability.h"
#include "http/unnamed_file.h"
#include "http/validation.h"
#include "http/vary.h"

namespace ox::internal::http {
namespace {

using ox::http::Answer;

constexpr int kOk = 200;
constexpr int kPartialContent = 206;
constexpr int kNotModified = 304;

std::optional<ByteRange> AskedRange(const HeaderList& asked, const StoredAnswer& answer) {
  const Header* range = Find(asked, "Range");
  if (range == nullptr || answer.status != kOk) return std::nullopt;
  const Header* ifRange = Find(asked, "If-Range");
  if (ifRange != nullptr && ifRange->value != StrongValidator(answer)) return std::nullopt;
  return ParseRange(range->value, answer.bodyBytes);
}

Answer AnswerOf(const GetRequest& request, StoredEntry stored) {
  Answer answer;
  const std::optional<std::int64_t> age = AgeOf(stored.answer, std::time(nullptr));
  answer.status = stored.answer.status;
  answer.url = request.url.text;
  answer.size = stored.answer.bodyBytes;
  answer.headers = std::move(stored.answer.headers);
  if (age) Set(&answer.headers, "Age", std::to_string(*age));
  answer.content = std::move(stored.entry.content);
  return answer;
}

Error GiveToReceiver(const GetRequest& request, const Answer& answer) {
  ox::http::BodyReceiver& receiver = *request.options.receiver;
  if (Error error = receiver.OnBegin()) return error;
  Error refused;
  const auto give = [&](const char* data, std::size_t bytes) {
    return refused = receiver.OnData(data, bytes);
  };
  Error error = ReadAll(answer.content.Get(), answer.size, give);
  // What cannot be read is no use to the next request either, which now asks the server.
  if (error && !refused) request.state.session.Remove(request.url.text);
  return error;
}

}  // namespace

Error MakeGetRequest(GetRequest* request) {
  Error error = MakeRequestHeaders(request->state.options, request->url, request->options.headers,
                                   &request->headers);
  request->control = ParseCacheControl(request->headers);
  if (request->options.refresh) request->control.noCache = true;
  return error;
}

Candidate FindCandidate(const GetRequest& request) {
  Candidate candidate;
  auto found = FindStored(request.state.session, request.url.text, &candidate.isThere);
  if (!found || found->IsPart()) return candidate;
  candidate.isMatching = MatchesVary(found->answer, request.headers);
  if (candidate.isMatching) {
    candidate.reuse = JudgeReuse(found->answer, request.control, std::time(nullptr),
                                 request.state.options.heuristicFreshness);
  }
  candidate.stored = std::move(found);
  return candidate;
}

std::optional<StoredEntry> FindPart(const GetRequest& request) {
  bool isThere = false;
  auto part = FindStored(request.state.session, PartUrl(request.url.text), &isThere);
  const bool isUsable = part && part->IsPart() && MatchesVary(part->answer, request.headers);
  return isUsable ? std::move(part) : std::nullopt;
}

const char* WhyNotRenewed(const GetRequest& request, const StoredAnswer& renewed) {
  const char* why = WhyNotStored(request.url, renewed, request.headers);
  if (why != nullptr && ParseCacheControl(renewed.headers).noStore) {
    request.state.session.Remove(request.url.text);
  }
  return why;
}

Error ServerFailure(int status) {
  constexpr std::array<int, 4> kStatuses = {500, 502, 503, 504};
  if (std::find(kStatuses.begin(), kStatuses.end(), status) == kStatuses.end()) return {};
  return MakeError(ErrorKind::kInputOutput, "the server answered " + std::to_string(status));
}

bool MayReplaceServer(const GetRequest& request, const Candidate& candidate) {
  const Reuse& reuse = candidate.reuse;
  return candidate.stored && candidate.isMatching &&
         (reuse.onError || (request.options.staleIfError && reuse.mayBeStale));
}

Result DeliverStored(const GetRequest& request, StoredEntry stored, ox::http::Outcome outcome,
                     Error reason, Error* error) {
  const HeaderList& asked = request.options.headers;
  // Of a redirection or an error the caller has no copy to go on using.
  const bool isNotModified =
      stored.answer.status == kOk && HasConditions(asked) && IsNotModified(stored.answer, asked);
  const auto range = AskedRange(asked, stored.answer);
  Answer answer = AnswerOf(request, std::move(stored));
  answer.outcome = outcome;
  answer.reason = std::move(reason);
  if (isNotModified) {
    answer.status = kNotModified;
    answer.size = 0;
    answer.content.Reset();
    return answer;
  }
  if (range) {
    answer.status = kPartialContent;
    answer.size = range->bytes;
    Set(&answer.headers, "Content-Range", ContentRange(*range));
    if (Find(answer.headers, "Content-Length") != nullptr) {
      Set(&answer.headers, "Content-Length", std::to_string(range->bytes));
    }
    lseek(answer.content.Get(), static_cast<off_t>(range->first), SEEK_SET);
  }
  if (request.options.receiver != nullptr && answer.status / 100 == 2) {
    *error = GiveToReceiver(request, answer);
    if (*error) return std::nullopt;
  }
  return answer;
}

}  // namespace ox::internal::http
