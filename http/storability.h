// Whether an answer may be stored.
#ifndef OX_HTTP_STORABILITY_H_
#define OX_HTTP_STORABILITY_H_

#include "http/stored_answer.h"
#include "http/url.h"

namespace ox::internal::http {

// Null when an answer to GET may be stored by a private cache, otherwise why not. `request` are the
// headers that were sent.
const char* WhyNotStored(const Url& url, const StoredAnswer& answer, const HeaderList& request);

// What of an answer's headers is kept: none that bears a URL with a user name or a password.
HeaderList KeptHeaders(HeaderList headers);

}  // namespace ox::internal::http

#endif
