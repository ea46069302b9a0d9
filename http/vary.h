// Which request headers an answer depends on.
#ifndef OX_HTTP_VARY_H_
#define OX_HTTP_VARY_H_

#include "http/stored_answer.h"

namespace ox::internal::http {

// Of the headers sent those that Vary of the answer names, each normalised.
HeaderList VariedHeaders(const HeaderList& answer, const HeaderList& request);

// Whether the stored answer is one to this request too.
bool MatchesVary(const StoredAnswer& answer, const HeaderList& request);

// Whether Vary names a header with a secret that was sent. Such a value is not to be stored.
bool VariesBySecret(const HeaderList& answer, const HeaderList& request);

}  // namespace ox::internal::http

#endif
