#include "http/cached_get.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "http/server_exchange.h"
#include "http/validation.h"

namespace ox::internal::http {
namespace {

using ox::http::Outcome;

constexpr std::chrono::milliseconds kTick{100};

Error Because(const char* why) {
  return MakeError(ErrorKind::kRefused, why);
}

class Getter {
 public:
  explicit Getter(const GetRequest& request)
      : request_(request), options_(request.options), state_(request.state) {}

  Result Run(Error* error) {
    candidate_ = FindCandidate(request_);
    if (Result answer = FromCache(error); answer || *error) return answer;
    if (options_.offline || request_.control.onlyIfCached) {
      *error = NotStored();
      return std::nullopt;
    }
    return IsShareable() ? Share(error) : AskServer(error).answer;
  }

 private:
  struct Asked {
    Result answer;
    DownloadEnd end;
  };

  // Nothing, without an error, when the server has to be asked.
  Result FromCache(Error* error) {
    if (!candidate_.stored || !candidate_.isMatching) return std::nullopt;
    const Reuse& reuse = candidate_.reuse;
    if (reuse.isFresh) return Deliver(Outcome::kHit, {}, error);
    if (reuse.isStaleAccepted) {
      return Deliver(Outcome::kStale, Because("the request accepts it stale"), error);
    }
    if (options_.offline) {
      if (!reuse.mayBeStale) return std::nullopt;
      return Deliver(Outcome::kStale, Because("offline"), error);
    }
    if (!reuse.whileRevalidating || state_.refresh == nullptr) return std::nullopt;
    state_.refresh->Add(request_.url, options_);
    return Deliver(Outcome::kStale, Because("it is being refreshed"), error);
  }

  Result Deliver(Outcome outcome, Error reason, Error* error) {
    return DeliverStored(request_, std::move(*candidate_.stored), outcome, std::move(reason),
                         error);
  }

  Error NotStored() const {
    const bool isKept = candidate_.stored && candidate_.isMatching;
    return MakeError(ErrorKind::kNotFound,
                     isKept ? "what is stored may not be served without asking the server"
                            : "not stored, and the server is not to be asked");
  }

  // Whether this caller and others may share one answer.
  bool IsShareable() const {
    const HeaderList& headers = request_.headers;
    return !HasConditions(headers) && !request_.control.noStore &&
           Find(headers, "Range") == nullptr && Find(headers, "Authorization") == nullptr &&
           Find(headers, "Cookie") == nullptr;
  }

  Asked AskServer(Error* error) {
    ServerExchange exchange(request_, std::move(candidate_));
    Asked asked;
    asked.answer = exchange.Run(error);
    asked.end = exchange.End();
    return asked;
  }

  Result Share(Error* error) {
    const std::string& url = request_.url.text;
    for (;;) {
      bool isLeader = false;
      const auto download = state_.downloads.Join(url, &isLeader);
      if (isLeader) return Lead(*download, error);
      // A receiver or onProgress has called the client: it would wait for itself.
      if (download->leader == std::this_thread::get_id()) return AskServer(error).answer;
      DownloadEnd end;
      *error = Await(*download, &end);
      if (*error) return InPlaceOfServer(error);
      if (end.kind == DownloadEnd::Kind::kGivenUp) continue;
      if (end.kind == DownloadEnd::Kind::kNotUsed) return AskServer(error).answer;
      Result answer = Follow(end, error);
      if (answer || *error) return answer;
    }
  }

  Result Lead(SharedDownloads::Download& download, Error* error) {
    // Whoever waits must be told, whatever happens here.
    struct Ending {
      ~Ending() { downloads.End(url, download, std::move(end)); }
      SharedDownloads& downloads;
      const std::string& url;
      SharedDownloads::Download& download;
      DownloadEnd end;
    } ending{state_.downloads, request_.url.text, download, {}};
    // Another download may have ended just before this one was begun.
    candidate_ = FindCandidate(request_);
    ending.end.kind = DownloadEnd::Kind::kStored;
    if (Result answer = FromCache(error); answer || *error) return answer;
    ending.end.kind = DownloadEnd::Kind::kGivenUp;
    Asked asked = AskServer(error);
    ending.end = std::move(asked.end);
    return std::move(asked.answer);
  }

  Error Await(SharedDownloads::Download& download, DownloadEnd* end) {
    std::chrono::milliseconds left;
    do {
      if (Error error = TimeLeft(request_.deadline, &left)) return error;
      const bool isGoing = !options_.onProgress || options_.onProgress({});
      if (!isGoing) return MakeError(ErrorKind::kCancelled, "cancelled");
      left = left.count() > 0 ? std::min(left, kTick) : kTick;
    } while (!state_.downloads.WaitFor(download, left, end));
    return {};
  }

  // Nothing, without an error, when what was stored does not serve this request.
  Result Follow(const DownloadEnd& end, Error* error) {
    candidate_ = FindCandidate(request_);
    const bool isUsable = candidate_.stored && candidate_.isMatching;
    if (end.kind == DownloadEnd::Kind::kFailed) {
      *error = end.error;
      return InPlaceOfServer(error);
    }
    // An answer that came after this call began serves whatever its age, and whatever age this
    // request asks for.
    const bool isNew = end.answered >= begun_;
    const bool isForAll = isUsable && !ParseCacheControl(candidate_.stored->answer.headers).noCache;
    if (isNew && isForAll) return Deliver(Outcome::kHit, {}, error);
    if (isNew) return AskServer(error).answer;
    return FromCache(error);
  }

  // Serves the stored answer where the server failed or the time was over. Other errors stay.
  Result InPlaceOfServer(Error* error) {
    const bool isServers = error->kind == ErrorKind::kInputOutput;
    if (!isServers || !MayReplaceServer(request_, candidate_)) return std::nullopt;
    return Deliver(Outcome::kStale, std::exchange(*error, {}), error);
  }

  const GetRequest& request_;
  const ox::http::RequestOptions& options_;
  ClientState& state_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  Candidate candidate_;
};

}  // namespace

Result CachedGet(ClientState& state, const Url& url, const ox::http::RequestOptions& options,
                 Deadline deadline, Error* error) {
  GetRequest request{state, url, options, deadline, {}, {}};
  *error = MakeGetRequest(&request);
  if (*error) return std::nullopt;
  return Getter(request).Run(error);
}

}  // namespace ox::internal::http
