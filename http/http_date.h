// The dates of HTTP, read strictly: a date in any other form is none.
#ifndef OX_HTTP_HTTP_DATE_H_
#define OX_HTTP_HTTP_DATE_H_

#include <cstdint>
#include <optional>
#include <string_view>

namespace ox::internal::http {

// Seconds since 1970. The three forms of RFC 9110: "Sun, 06 Nov 1994 08:49:37 GMT",
// "Sunday, 06-Nov-94 08:49:37 GMT" and "Sun Nov  6 08:49:37 1994". A year of two digits is the one
// that is not more than 50 years after `now`.
std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now);

}  // namespace ox::internal::http

#endif
