// When the time for a request is over.
#ifndef OX_HTTP_DEADLINE_H_
#define OX_HTTP_DEADLINE_H_

#include <chrono>

#include <oxfilecache/error.h>
#include <oxfilecache/http.h>

namespace ox::internal::http {

// The point of time at which a request is given up. The largest value means that there is no limit.
using Deadline = std::chrono::steady_clock::time_point;

Deadline DeadlineOf(const ox::http::RequestOptions& options);
// kInputOutput when it has passed. `left` is 0 for no limit, as in RequestOptions.
Error TimeLeft(Deadline deadline, std::chrono::milliseconds* left);

}  // namespace ox::internal::http

#endif
