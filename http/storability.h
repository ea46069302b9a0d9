// Whether an answer may be stored.
#ifndef OX_HTTP_STORABILITY_H_
#define OX_HTTP_STORABILITY_H_

#include "http/cache_control.h"

namespace ox::internal::http {

// Null when an answer to GET may be stored by a private cache, otherwise why not. `request` are the
// headers that were sent.
const char* WhyNotStored(int status, const HeaderList& answer, const HeaderList& request);

// What of an answer's headers is kept.
HeaderList KeptHeaders(HeaderList headers);

}  // namespace ox::internal::http

#endif
