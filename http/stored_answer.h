// What is kept of an answer, and the text that an entry's metadata is:
//
//   URL: http://example/logo.png
//   HTTP: 1 200 1767268800 1767268801 4711 0
//   >Accept-Language: en
//   Vary: Accept-Language
//   Cache-Control: max-age=3600
//   Content-Type: image/png
//
// Two lines of fixed meaning, then headers. The numbers: version of this text, status, times of
// request and answer, bytes of the body, bytes of the whole body where a part of it is stored. ">"
// marks a header of the request; no name begins so. A byte that is no printable ASCII character
// stands as "%" and two digits, so that no value can look like a line of its own.
#ifndef OX_HTTP_STORED_ANSWER_H_
#define OX_HTTP_STORED_ANSWER_H_

#include <cstdint>
#include <optional>
#include <string>

#include "http/header_list.h"

namespace ox::internal::http {

struct StoredAnswer {
  int status = 0;
  std::int64_t requestTime = 0;   // seconds since 1970
  std::int64_t responseTime = 0;  // when the headers had arrived
  std::uint64_t bodyBytes = 0;    // stored
  std::uint64_t wholeBytes = 0;   // of a body stored in part; 0 when it is whole, or unknown
  HeaderList headers;
  HeaderList varied;  // what the request had of the headers that Vary names, normalised
};

// Nothing when what decides about reuse does not fit into an entry's metadata. Headers of less use
// are left out where there is no room.
std::optional<std::string> ToMetadata(const StoredAnswer& answer, const std::string& url);

// Nothing when the text is of another form or belongs to another URL, whose entry has the same
// name.
std::optional<StoredAnswer> FromMetadata(const std::string& metadata, const std::string& url);

}  // namespace ox::internal::http

#endif
