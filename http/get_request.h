// One GET, and what the cache has of it.
#ifndef OX_HTTP_GET_REQUEST_H_
#define OX_HTTP_GET_REQUEST_H_

#include <optional>

#include "http/cache_control.h"
#include "http/client_state.h"
#include "http/deadline.h"
#include "http/freshness.h"
#include "http/stored_entry.h"
#include "http/url.h"

namespace ox::internal::http {

using Result = std::optional<ox::http::Answer>;

struct GetRequest {
  ClientState& state;
  const Url& url;
  const ox::http::RequestOptions& options;
  Deadline deadline;
  HeaderList headers;    // all that are sent
  CacheControl control;  // of these, and of the options
};

Error MakeGetRequest(GetRequest* request);

struct Candidate {
  std::optional<StoredEntry> stored;
  bool isThere = false;     // an entry of any kind
  bool isMatching = false;  // `stored` is of this variant
  Reuse reuse;              // of `stored`, when it matches
};

Candidate FindCandidate(const GetRequest& request);

// What there is of a body that broke off.
std::optional<StoredEntry> FindPart(const GetRequest& request);

// Null when the stored answer, as the server has just renewed it, may be written; otherwise why
// not. It is removed when the server now forbids to store it.
const char* WhyNotRenewed(const GetRequest& request, const StoredAnswer& renewed);

// An error when a server that answers so counts as one that gives no answer.
Error ServerFailure(int status);

// Whether the stored answer may stand in for a server that gives none.
bool MayReplaceServer(const GetRequest& request, const Candidate& candidate);

// The stored answer as the answer to this request: as it is, as 304 or as a part.
Result DeliverStored(const GetRequest& request, StoredEntry stored, ox::http::Outcome outcome,
                     Error reason, Error* error);

}  // namespace ox::internal::http

#endif
