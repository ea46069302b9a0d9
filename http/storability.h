// Whether an answer may be stored.
#ifndef OX_HTTP_STORABILITY_H_
#define OX_HTTP_STORABILITY_H_

#include "http/stored_answer.h"
#include "http/url.h"

namespace ox::internal::http {

// Null when a private cache may store this answer to a GET; otherwise the reason why not.
// `request`: the headers that were sent.
const char* WhyNotStored(const Url& url, const StoredAnswer& answer, const HeaderList& request);

// The headers of an answer that are stored. Left out are headers of the connection, headers that
// Cache-Control names, and headers with a URL that has a user name. Location and Content-Location
// stay: where one of them has a user name or a password, WhyNotStored forbids to store the answer.
HeaderList KeptHeaders(HeaderList headers);

}  // namespace ox::internal::http

#endif
