// GET of one URL through the cache, without redirections.
#ifndef OX_HTTP_CACHED_GET_H_
#define OX_HTTP_CACHED_GET_H_

#include "http/get_request.h"

namespace ox::internal::http {

Result CachedGet(ClientState& state, const Url& url, const ox::http::RequestOptions& options,
                 Deadline deadline, Error* error);

}  // namespace ox::internal::http

#endif
