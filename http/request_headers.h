// The headers of a request, apart from those that the connection needs.
#ifndef OX_HTTP_REQUEST_HEADERS_H_
#define OX_HTTP_REQUEST_HEADERS_H_

#include "http/header_list.h"
#include "http/url.h"

namespace ox::internal::http {

// Those given by the caller, with those that stand in every request. kInvalidArgument when one
// cannot be sent.
Error MakeRequestHeaders(const ox::http::ClientOptions& client, const Url& url,
                         const HeaderList& given, HeaderList* headers);

}  // namespace ox::internal::http

#endif
