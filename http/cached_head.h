// HEAD of one URL: of a fresh stored answer to GET, otherwise of the server.
#ifndef OX_HTTP_CACHED_HEAD_H_
#define OX_HTTP_CACHED_HEAD_H_

#include "http/get_request.h"

namespace ox::internal::http {

Result CachedHead(ClientState& state, const Url& url, const ox::http::RequestOptions& options,
                  Deadline deadline, Error* error);

}  // namespace ox::internal::http

#endif
