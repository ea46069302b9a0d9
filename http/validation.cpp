#include "http/validation.h"

#include <algorithm>
#include <array>

#include "http/http_date.h"
#include "http/storability.h"

namespace ox::internal::http {
namespace {

constexpr std::array<std::string_view, 5> kConditions = {
    "If-None-Match", "If-Modified-Since", "If-Match", "If-Unmodified-Since", "If-Range"};
// What belongs to the stored body, and so stays as it is.
constexpr std::array<std::string_view, 5> kOfTheBody = {"Content-Encoding", "Content-Length",
                                                        "Content-MD5", "Content-Range", "ETag"};
// A second server may change the file within the second of Last-Modified.
constexpr std::int64_t kSecondsOfStrongDate = 60;

std::string_view Opaque(std::string_view tag) {
  return tag.substr(0, 2) == "W/" ? tag.substr(2) : tag;
}

bool TagMatches(const std::string& list, const std::string& tag) {
  const auto tags = Members(list);
  return std::any_of(tags.begin(), tags.end(), [&tag](std::string_view one) {
    return one == "*" || (!tag.empty() && Opaque(one) == Opaque(tag));
  });
}

std::optional<std::int64_t> DateIn(const HeaderList& headers, std::string_view name,
                                   std::int64_t now) {
  return ParseHttpDate(Single(headers, name).value_or(""), now);
}

}  // namespace

bool HasConditions(const HeaderList& request) {
  return std::any_of(kConditions.begin(), kConditions.end(),
                     [&](std::string_view name) { return Find(request, name) != nullptr; });
}

void RemoveConditions(HeaderList* request) {
  for (const std::string_view name : kConditions)
    Remove(request, name);
}

bool AddConditions(const StoredAnswer& stored, bool byTagAlone, HeaderList* request) {
  const Header* tag = Find(stored.headers, "ETag");
  const Header* modified = byTagAlone ? nullptr : Find(stored.headers, "Last-Modified");
  if (tag == nullptr && modified == nullptr) return false;
  RemoveConditions(request);
  if (tag != nullptr) Set(request, "If-None-Match", tag->value);
  if (modified != nullptr) Set(request, "If-Modified-Since", modified->value);
  return true;
}

bool IsNotModified(const StoredAnswer& stored, const HeaderList& request) {
  if (Find(request, "If-None-Match") != nullptr) {
    const Header* tag = Find(stored.headers, "ETag");
    return TagMatches(Combined(request, "If-None-Match"), tag != nullptr ? tag->value : "");
  }
  const std::int64_t now = stored.responseTime;
  const auto since = DateIn(request, "If-Modified-Since", now);
  if (!since) return false;
  auto modified = DateIn(stored.headers, "Last-Modified", now);
  if (!modified) modified = DateIn(stored.headers, "Date", now);
  return modified.value_or(now) <= *since;
}

std::string StrongValidator(const StoredAnswer& stored) {
  const Header* tag = Find(stored.headers, "ETag");
  if (tag != nullptr) return tag->value.substr(0, 1) == "\"" ? tag->value : "";
  const std::int64_t now = stored.responseTime;
  const auto modified = DateIn(stored.headers, "Last-Modified", now);
  const auto date = DateIn(stored.headers, "Date", now);
  const bool isStrong = modified && date && *date - *modified >= kSecondsOfStrongDate;
  return isStrong ? Find(stored.headers, "Last-Modified")->value : "";
}

void Freshen(const HeaderList& news, std::int64_t requestTime, std::int64_t responseTime,
             StoredAnswer* stored) {
  const HeaderList kept = KeptHeaders(news);
  const auto isOfTheBody = [](const Header& header) {
    return std::any_of(kOfTheBody.begin(), kOfTheBody.end(),
                       [&](std::string_view name) { return SameName(name, header.name); });
  };
  // What the server no longer says would go on counting against the new time.
  for (const std::string_view name : {"Age", "Date"})
    Remove(&stored->headers, name);
  for (const Header& header : kept)
    if (!isOfTheBody(header)) Remove(&stored->headers, header.name);
  for (const Header& header : kept)
    if (!isOfTheBody(header)) stored->headers.push_back(header);
  stored->requestTime = requestTime;
  stored->responseTime = responseTime;
}

bool IsSameRepresentation(const HeaderList& news, const StoredAnswer& stored) {
  constexpr std::array<std::string_view, 2> kValidators = {"ETag", "Last-Modified"};
  for (const std::string_view name : kValidators) {
    const Header* now = Find(news, name);
    const Header* then = Find(stored.headers, name);
    if (now != nullptr && (then == nullptr || now->value != then->value)) return false;
  }
  const auto length = ParseSeconds(Single(news, "Content-Length").value_or(""));
  return !length || Find(news, "Content-Encoding") != nullptr ||
         static_cast<std::uint64_t>(*length) == stored.bodyBytes;
}

}  // namespace ox::internal::http
