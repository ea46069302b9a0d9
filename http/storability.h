// Whether an answer may be stored.
#ifndef OX_HTTP_STORABILITY_H_
#define OX_HTTP_STORABILITY_H_

#include "http/cache_control.h"
#include "http/url.h"

namespace ox::internal::http {

// Null when an answer to GET may be stored by a private cache, otherwise why not. `request` are the
// headers that were sent.
const char* WhyNotStored(int status, const HeaderList& answer, const HeaderList& request);

// Whether the answer names a URL with a user name or a password as its place or as the next one.
// Without that header it would be another answer, and with it the password would be on the disk.
bool LeadsToSecret(const Url& url, const HeaderList& answer);

// What of an answer's headers is kept: none that bears a URL with a user name or a password.
HeaderList KeptHeaders(HeaderList headers);

}  // namespace ox::internal::http

#endif
