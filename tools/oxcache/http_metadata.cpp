#include "tools/oxcache/http_metadata.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ctime>
#include <limits>
#include <optional>

#include "tools/oxcache/text.h"

namespace ox::tools {
namespace {

// The longest values kept. With their names they stay below the 1,024 bytes of metadata.
constexpr std::size_t kMaxUrlBytes = 400;
constexpr std::size_t kMaxValueBytes = 160;
// Ten years, so that a sum with the time of today fits its type.
constexpr std::int64_t kMaxLifetime = 10LL * 365 * 86400;

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

template <typename Number>
std::optional<Number> ToNumber(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::result_out_of_range) return std::numeric_limits<Number>::max();
  if (error != std::errc() || end == text.data()) return std::nullopt;
  return number;
}

int StatusOf(std::string_view statusLine) {
  const std::size_t blank = statusLine.find(' ');
  if (blank == std::string_view::npos) return 0;
  return ToNumber<int>(statusLine.substr(blank + 1)).value_or(0);
}

struct CacheControl {
  bool noStore = false;
  bool noCache = false;
  std::optional<std::int64_t> maxAge;  // seconds
};

CacheControl ParseCacheControl(const std::string& value) {
  CacheControl control;
  std::string_view rest = value;
  while (!rest.empty()) {
    const std::size_t comma = std::min(rest.find(','), rest.size());
    const std::string_view directive = Trimmed(rest.substr(0, comma));
    rest.remove_prefix(std::min(comma + 1, rest.size()));
    const std::size_t equals = std::min(directive.find('='), directive.size());
    const std::string name = Lower(Trimmed(directive.substr(0, equals)));
    if (name == "no-store") control.noStore = true;
    if (name == "no-cache") control.noCache = true;
    if (name != "max-age") continue;
    std::string_view seconds = Trimmed(directive.substr(std::min(equals + 1, directive.size())));
    if (!seconds.empty() && seconds.front() == '"') seconds.remove_prefix(1);
    // A lifetime that cannot be read counts as 0.
    control.maxAge = ToNumber<std::int64_t>(seconds).value_or(0);
  }
  return control;
}

// Seconds from the response's date to its expiry.
std::int64_t LifetimeOfExpires(const ResponseHeaders& headers, std::int64_t now) {
  const std::time_t expires = curl_getdate(headers.expires.c_str(), nullptr);
  if (headers.expires.empty() || expires < 0) return 0;
  const std::time_t date = curl_getdate(headers.date.c_str(), nullptr);
  return expires - (headers.date.empty() || date < 0 ? now : date);
}

void AddLine(const char* name, const std::string& value, std::size_t maxBytes, std::string* text) {
  if (value.empty() || value.size() > maxBytes || !IsPlain(value)) return;
  *text += std::string(name) + ": " + value + "\n";
}

}  // namespace

void TakeHeaderLine(std::string_view line, ResponseHeaders* headers) {
  line = Trimmed(line);
  if (line.substr(0, 5) == "HTTP/") {
    *headers = {};
    headers->status = StatusOf(line);
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string name = Lower(line.substr(0, colon));
  const std::string value(Trimmed(line.substr(colon + 1)));
  if (name == "etag") headers->etag = value;
  if (name == "last-modified") headers->lastModified = value;
  if (name == "content-type") headers->contentType = value;
  if (name == "expires") headers->expires = value;
  if (name == "date") headers->date = value;
  if (name == "cache-control") headers->cacheControl += value + ",";
  if (name == "vary") headers->vary += value + ",";
  if (name == "age")
    headers->age = std::max<std::int64_t>(0, ToNumber<std::int64_t>(value).value_or(0));
  if (name == "content-length") {
    headers->contentLength = ToNumber<std::uint64_t>(value).value_or(0);
  }
}

bool ForbidsStoring(const ResponseHeaders& headers) {
  return ParseCacheControl(headers.cacheControl).noStore;
}

std::int64_t FreshUntil(const ResponseHeaders& headers, std::int64_t now) {
  const CacheControl control = ParseCacheControl(headers.cacheControl);
  if (control.noCache || headers.vary.find('*') != std::string::npos) return 0;
  const std::int64_t lifetime = control.maxAge ? *control.maxAge : LifetimeOfExpires(headers, now);
  const std::int64_t left = std::min(lifetime, kMaxLifetime) - std::min(headers.age, kMaxLifetime);
  return left > 0 ? now + left : 0;
}

void TakeHeaders(const ResponseHeaders& headers, StoredResponse* stored) {
  if (!headers.etag.empty()) stored->etag = headers.etag;
  if (!headers.lastModified.empty()) stored->lastModified = headers.lastModified;
  if (!headers.contentType.empty()) stored->contentType = headers.contentType;
}

std::string ToMetadata(const StoredResponse& stored) {
  std::string text;
  AddLine("URL", stored.url, kMaxUrlBytes, &text);
  text += "Fresh-Until: " + std::to_string(stored.freshUntil) + "\n";
  AddLine("ETag", stored.etag, kMaxValueBytes, &text);
  AddLine("Last-Modified", stored.lastModified, kMaxValueBytes, &text);
  AddLine("Content-Type", stored.contentType, kMaxValueBytes, &text);
  return text;
}

StoredResponse FromMetadata(const std::string& metadata) {
  StoredResponse stored;
  std::string_view rest = metadata;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos) continue;
    const std::string_view name = line.substr(0, colon);
    const std::string value(line.substr(colon + 2));
    if (name == "URL") stored.url = value;
    if (name == "ETag") stored.etag = value;
    if (name == "Last-Modified") stored.lastModified = value;
    if (name == "Content-Type") stored.contentType = value;
    if (name == "Fresh-Until") stored.freshUntil = ToNumber<std::int64_t>(value).value_or(0);
  }
  return stored;
}

}  // namespace ox::tools
