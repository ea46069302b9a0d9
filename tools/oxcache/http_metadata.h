// What the headers of a response mean for a cache, and the text that is kept of them as an entry's
// metadata.
#ifndef OX_TOOLS_OXCACHE_HTTP_METADATA_H_
#define OX_TOOLS_OXCACHE_HTTP_METADATA_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace ox::tools {

struct ResponseHeaders {
  int status = 0;
  std::string etag;
  std::string lastModified;
  std::string contentType;
  std::string cacheControl;
  std::string expires;
  std::string date;
  std::string vary;
  std::uint64_t contentLength = 0;  // bytes, 0 when not told
  std::int64_t age = 0;             // seconds
};

// Takes one line as the server sent it. A status line starts over: of several responses in a row,
// as after a redirection, the last one counts.
void TakeHeaderLine(std::string_view line, ResponseHeaders* headers);

bool ForbidsStoring(const ResponseHeaders& headers);

// Until when (seconds since 1970) the response may be served without asking again; 0 when it may
// not be.
std::int64_t FreshUntil(const ResponseHeaders& headers, std::int64_t now);

// What is kept.
struct StoredResponse {
  std::string url;
  std::string etag;
  std::string lastModified;
  std::string contentType;
  std::int64_t freshUntil = 0;
};

// Fields that the headers have replace those that were there.
void TakeHeaders(const ResponseHeaders& headers, StoredResponse* stored);

// Lines "Name: value", below 1,024 bytes of ASCII; values that are too long are left out.
std::string ToMetadata(const StoredResponse& stored);
// Metadata of another form gives a response without validators that is not fresh.
StoredResponse FromMetadata(const std::string& metadata);

}  // namespace ox::tools

#endif
