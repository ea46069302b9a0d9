#include "http/server_exchange.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "http/byte_range.h"
#include "http/freshness.h"
#include "http/storability.h"
#include "http/unnamed_file.h"
#include "http/validation.h"
#include "http/vary.h"

namespace ox::internal::http {
namespace {

using ox::http::Answer;
using ox::http::Outcome;

constexpr int kMaxTries = 4;
constexpr char kChanged[] = "the resource was changed while it was on its way";
constexpr int kPartialContent = 206;
constexpr int kNotModified = 304;
constexpr int kRangeNotSatisfiable = 416;
constexpr int kFirstError = 400;

Error NotStored(std::string why) {
  return MakeError(ErrorKind::kRefused, std::move(why));
}

// True when the part that was sent is of another version: a server that does not know If-Range
// sends a part of whatever it has.
bool HasOtherValidator(const HeaderList& news, const StoredAnswer& stored) {
  for (const char* name : {"ETag", "Last-Modified"}) {
    const Header* now = Find(news, name);
    const Header* then = Find(stored.headers, name);
    if (now != nullptr && then != nullptr) return now->value != then->value;
  }
  return false;
}

// Whether a renewal has anything to tell that a later request could use. Flash wears.
bool IsWorthWriting(const StoredAnswer& before, const StoredAnswer& after, bool heuristic) {
  const CacheControl control = ParseCacheControl(after.headers);
  const Freshness freshness = FreshnessOf(after, after.responseTime, heuristic);
  const bool mayServe =
      freshness.lifetime > 0 || control.staleIfError || control.staleWhileRevalidate;
  if (mayServe && !freshness.isAgeUnknown) return true;
  const auto lasting = [](HeaderList headers) {
    for (const char* name : {"Age", "Date"})
      Remove(&headers, name);
    std::sort(headers.begin(), headers.end(), [](const Header& a, const Header& b) {
      return std::tie(a.name, a.value) < std::tie(b.name, b.value);
    });
    return headers;
  };
  const HeaderList old = lasting(before.headers);
  const HeaderList now = lasting(after.headers);
  return !std::equal(old.begin(), old.end(), now.begin(), now.end(),
                     [](const Header& a, const Header& b) {
                       return SameName(a.name, b.name) && a.value == b.value;
                     });
}

// Others may allow more than this request did, so a limit of its own tells them nothing.
DownloadEnd::Kind EndOf(Transfer& transfer) {
  return transfer.HasServerFailed() ? DownloadEnd::Kind::kFailed : DownloadEnd::Kind::kNotUsed;
}

}  // namespace

ServerExchange::ServerExchange(const GetRequest& request, Candidate candidate)
    : request_(request),
      state_(request.state),
      candidate_(std::move(candidate)),
      mark_(request.state.running, request.url.text) {}

Result ServerExchange::Run(Error* error) {
  for (int tries = 0; tries < kMaxTries; ++tries) {
    isAgain_ = false;
    *error = {};
    Result result = Try(error);
    if (!isAgain_) return result;
  }
  *error = MakeError(ErrorKind::kInputOutput, "the server's answers contradict each other");
  return std::nullopt;
}

Result ServerExchange::Again() {
  isAgain_ = true;
  return std::nullopt;
}

// What is kept of the body is of no use: neither now nor next time.
Result ServerExchange::WithoutPart() {
  state_.session.Remove(PartUrl(request_.url.text));
  mayResume_ = false;
  return Again();
}

Result ServerExchange::Try(Error* error) {
  ox::http::RequestOptions options = request_.options;
  *error = TimeLeft(request_.deadline, &options.totalTimeout);
  if (*error) return WithoutServer(*error, Kind::kNotUsed, error);
  const TransferRequest toSend = BuildRequest();
  Transfer transfer(*state_.loop, state_.options, options, toSend);
  TransferHead head;
  *error = transfer.Start(&head);
  if (*error) return WithoutServer(*error, EndOf(transfer), error);
  end_.answered = std::chrono::steady_clock::now();
  return TakeAnswer(transfer, head, error);
}

TransferRequest ServerExchange::BuildRequest() {
  TransferRequest toSend;
  toSend.url = request_.url;
  toSend.headers = request_.headers;
  toSend.decode = state_.options.decode;
  isConditional_ = candidate_.stored && AddConditions(candidate_.stored->answer,
                                                      !candidate_.isMatching, &toSend.headers);
  // A request for a part cannot ask whether the whole answer has changed.
  if (isConditional_) Remove(&toSend.headers, "Range");
  offset_ = 0;
  const bool isForPart = Find(toSend.headers, "Range") != nullptr;
  if (isForPart && toSend.decode) {
    // A part of a compressed body cannot be unpacked.
    toSend.decode = false;
    if (Find(request_.options.headers, "Accept-Encoding") == nullptr) {
      Set(&toSend.headers, "Accept-Encoding", "identity");
    }
  }
  const bool isPlain = !HasConditions(toSend.headers) && !isForPart;
  part_ = mayResume_ && isPlain ? FindPart(request_) : std::nullopt;
  if (!part_) return toSend;
  offset_ = part_->answer.bodyBytes;
  toSend.offset = offset_;
  Set(&toSend.headers, "Range", "bytes=" + std::to_string(offset_) + "-");
  Set(&toSend.headers, "If-Range", StrongValidator(part_->answer));
  // The stored part came uncompressed, so the rest must too.
  if (toSend.decode) Set(&toSend.headers, "Accept-Encoding", "identity");
  return toSend;
}

Result ServerExchange::TakeAnswer(Transfer& transfer, const TransferHead& head, Error* error) {
  if (head.status == kNotModified && isConditional_) return TakeNotModified(head, error);
  if (Error failure = ServerFailure(head.status);
      failure && MayReplaceServer(request_, candidate_)) {
    return WithoutServer(std::move(failure), Kind::kNotUsed, error);
  }
  if (offset_ > 0 && (head.status == kPartialContent || head.status == kRangeNotSatisfiable) &&
      !TakeUpPart(head)) {
    return WithoutPart();
  }
  if (head.status != kPartialContent) offset_ = 0;
  return TakeBody(transfer, head, error);
}

Result ServerExchange::TakeNotModified(const TransferHead& head, Error* error) {
  // The request had the tag of the stored answer alone, so the 304 is about that one, whatever tag
  // it bears.
  StoredAnswer& stored = candidate_.stored->answer;
  const StoredAnswer before = stored;
  Freshen(head.headers, head.requestTime, head.responseTime, &stored);
  stored.varied = VariedHeaders(stored.headers, request_.headers);
  end_.kind = Kind::kNotUsed;
  Error reason;
  const auto metadata = ToMetadata(stored, request_.url.text);
  const char* why = WhyNotRenewed(request_, stored);
  if (why != nullptr) {
    reason = NotStored(why);
  } else if (!metadata) {
    reason = NotStored("its new headers do not fit into an entry");
  } else if (!candidate_.isMatching ||
             IsWorthWriting(before, stored, state_.options.heuristicFreshness)) {
    reason =
        state_.session.SetMetadata(request_.url.text, candidate_.stored->entry.metadata, *metadata);
  }
  if (!reason) end_.kind = Kind::kStored;
  return DeliverStored(request_, std::move(*candidate_.stored), Outcome::kRevalidated,
                       std::move(reason), error);
}

// Whether the answer is the rest of the stored part.
bool ServerExchange::TakeUpPart(const TransferHead& head) {
  StoredAnswer& part = part_->answer;
  const auto range = ParseContentRange(Single(head.headers, "Content-Range").value_or(""));
  const bool isRest = head.status == kPartialContent && range && range->first == offset_ &&
                      range->first + range->bytes == part.wholeBytes &&
                      (range->total == 0 || range->total == part.wholeBytes) &&
                      !HasOtherValidator(head.headers, part);
  if (isRest) Freshen(head.headers, head.requestTime, head.responseTime, &part);
  return isRest;
}

Result ServerExchange::TakeBody(Transfer& transfer, const TransferHead& head, Error* error) {
  StoredAnswer answer;
  HeaderList shown;
  if (offset_ > 0) {
    answer = part_->answer;
    shown = answer.headers;
  } else {
    answer.status = head.status;
    answer.headers = KeptHeaders(head.headers);
    answer.requestTime = head.requestTime;
    answer.responseTime = head.responseTime;
    shown = head.headers;
    RemoveConnectionHeaders(&shown);
  }
  const std::uint64_t wholeBytes = offset_ > 0 ? answer.wholeBytes : head.bodyBytes;
  answer.wholeBytes = 0;
  answer.varied = VariedHeaders(answer.headers, request_.headers);
  const bool isSuccess = answer.status / 100 == 2;
  BodyTarget target(isSuccess ? request_.options.receiver : nullptr,
                    state_.options.temporaryDirectory);
  if (Error why = WhyNotKept(answer, wholeBytes)) {
    target.GiveUpEntry(std::move(why));
  } else {
    target.OpenEntry(state_.session, request_.url.text);
  }
  // Where a whole answer is stored, which can be renewed, a part is not kept.
  PartKeeper part(request_.url.text, answer, candidate_.isThere ? 0 : wholeBytes, offset_);
  *error = CopyBody(transfer, target, part);
  if (target.IsLost()) {
    whyNotStored_ = target.WhyNotStored();
    return Again();
  }
  if (transferError_) {
    // A body that is too large is not kept: the next request would resume it and fail again.
    if (!transfer.HasExceededLimit()) part.Keep(target);
    return WithoutServer(std::exchange(transferError_, {}), EndOf(transfer), error);
  }
  if (*error) return std::nullopt;
  // Where the end of the connection ends the body, only the length shows that it was cut.
  if (offset_ > 0 && target.Received() != wholeBytes) return WithoutPart();
  answer.bodyBytes = target.Received();
  if (target.IsStored()) Commit(answer, target);
  if (target.IsLost()) {
    whyNotStored_ = target.WhyNotStored();
    return Again();
  }
  return Received(answer, std::move(shown), target);
}

Error ServerExchange::WhyNotKept(const StoredAnswer& answer, std::uint64_t bodyBytes) const {
  if (whyNotStored_) return whyNotStored_;
  const char* why = WhyNotStored(request_.url, answer, request_.headers);
  if (why != nullptr) return NotStored(why);
  if (state_.options.decode && Find(answer.headers, "Content-Encoding") != nullptr) {
    return NotStored("it was asked for as a part, and came packed");
  }
  const std::uint32_t limit = state_.session.Limits().maxEntrySize;
  if (bodyBytes > limit) {
    return NotStored(std::to_string(bodyBytes) + " bytes are above the limit of one entry, " +
                     std::to_string(limit));
  }
  const Freshness freshness =
      FreshnessOf(answer, answer.responseTime, state_.options.heuristicFreshness);
  const bool isFresh = !freshness.isAgeUnknown && freshness.lifetime > freshness.age;
  if (answer.status >= kFirstError && !isFresh) {
    return NotStored("an error that is not fresh is not kept");
  }
  StoredAnswer longest = answer;
  longest.bodyBytes = limit;
  if (!ToMetadata(longest, request_.url.text)) {
    return NotStored("its headers do not fit into an entry");
  }
  return {};
}

// What ends the transfer itself goes to `transferError_`.
Error ServerExchange::CopyBody(Transfer& transfer, BodyTarget& target, PartKeeper& part) {
  const auto write = [&target](const char* data, std::size_t bytes) {
    return target.Write(data, bytes);
  };
  if (Error error = target.Begin()) return error;
  if (offset_ > 0) {
    Error unwritten;
    const auto copy = [&](const char* data, std::size_t bytes) {
      return unwritten = write(data, bytes);
    };
    // Where a piece cannot be read, the length of the whole shows later that one is missing.
    if (ReadAll(part_->entry.content.Get(), offset_, copy)) return unwritten;
  }
  std::string piece;
  do {
    transferError_ = transfer.Read(&piece);
    if (transferError_) return {};
    if (Error error = write(piece.data(), piece.size())) return error;
    part.NotePiece(target);
  } while (!piece.empty());
  return {};
}

void ServerExchange::Commit(const StoredAnswer& answer, BodyTarget& target) {
  const auto metadata = ToMetadata(answer, request_.url.text);
  if (!metadata) return target.GiveUpEntry(NotStored("its headers do not fit into an entry"));
  if (mark_.IsOutdated()) return target.GiveUpEntry(NotStored(kChanged));
  target.Commit(*metadata);
}

Result ServerExchange::Received(const StoredAnswer& answer, HeaderList shown, BodyTarget& target) {
  Answer result;
  result.status = answer.status;
  result.url = request_.url.text;
  result.headers = std::move(shown);
  result.size = answer.bodyBytes;
  if (!target.IsStored()) {
    ForgetOutdated(answer.status);
    end_.kind = Kind::kNotUsed;
    result.outcome = Outcome::kUncached;
    result.reason = target.WhyNotStored();
    result.content = target.TakeFile();
    return result;
  }
  end_.kind = Kind::kStored;
  if (part_) state_.session.Remove(PartUrl(request_.url.text));
  result.outcome = candidate_.isThere ? Outcome::kReplaced : Outcome::kMiss;
  Error gone;
  auto entry = state_.session.Fetch(request_.url.text, &gone);
  if (mark_.IsOutdated()) {
    // It was changed while this was stored.
    state_.session.Remove(request_.url.text);
    end_.kind = Kind::kGivenUp;
    result.outcome = Outcome::kUncached;
    result.reason = NotStored(kChanged);
  }
  // Another request that goes alone may have stored another answer meanwhile.
  const bool isOurs = entry && entry->metadata == ToMetadata(answer, request_.url.text);
  if (isOurs) {
    result.content = std::move(entry->content);
  } else if (request_.options.receiver == nullptr) {
    // The entry was evicted or replaced at once, which may happen again as long as others ask.
    whyNotStored_ = entry ? NotStored("another answer took its place at once") : gone;
    // The entry that is there now is newer than this answer, so it stays.
    candidate_.isThere = false;
    return Again();
  }
  return result;
}

// An answer that was not stored has made the stored one outdated. After an error, or when the
// request forbade storing, what is stored stays.
void ServerExchange::ForgetOutdated(int status) {
  const bool isNews = status < kFirstError && status != kNotModified && status != kPartialContent;
  if (candidate_.isThere && isNews && !request_.control.noStore) {
    state_.session.Remove(request_.url.text);
  }
}

Result ServerExchange::WithoutServer(Error why, Kind end, Error* error) {
  const bool isServers = why.kind == ErrorKind::kInputOutput;
  end_.kind = isServers ? end : Kind::kGivenUp;
  end_.error = why;
  if (!isServers || !MayReplaceServer(request_, candidate_)) {
    *error = std::move(why);
    return std::nullopt;
  }
  *error = {};
  return DeliverStored(request_, std::move(*candidate_.stored), Outcome::kStale, std::move(why),
                       error);
}

}  // namespace ox::internal::http
