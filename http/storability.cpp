#include "http/storability.h"

#include <algorithm>
#include <array>

#include "http/freshness.h"
#include "http/vary.h"

namespace ox::internal::http {
namespace {

// Those whose meaning for a cache this one knows.
bool IsUnderstood(int status) {
  constexpr std::array<int, 16> kStatuses = {200, 203, 204, 300, 301, 302, 303, 307,
                                             308, 404, 405, 410, 414, 500, 501, 503};
  return std::find(kStatuses.begin(), kStatuses.end(), status) != kStatuses.end();
}

bool MayBeStoredByItself(int status, const CacheControl& control, const HeaderList& answer) {
  return control.isPublic || control.isPrivate || control.maxAge ||
         Find(answer, "Expires") != nullptr || IsHeuristicallyCacheable(status);
}

// A cache of one user may keep such answers, but several people may use a device.
bool MayBeStoredWithAuthorization(const CacheControl& control) {
  return control.isPublic || control.mustRevalidate || control.hasSharedMaxAge;
}

// Whether there is "@" in what a URL in the text has for its server. libcurl takes one slash too.
bool HasUserName(std::string_view text) {
  for (std::size_t i = 0; (i = text.find('/', i)) != text.npos;) {
    const bool isBeforeServer = text.substr(i, 2) == "//" || (i > 0 && text[i - 1] == ':');
    i = std::min(text.find_first_not_of('/', i), text.size());
    const std::string_view part = text.substr(i, text.find_first_of("/?#", i) - i);
    if (isBeforeServer && part.find('@') != part.npos) return true;
  }
  return false;
}

// Without that header it would be another answer, and with it the password would be on the disk.
bool LeadsToSecret(const Url& url, const HeaderList& answer) {
  return std::any_of(answer.begin(), answer.end(), [&url](const Header& header) {
    if (!SameName(header.name, "Location") && !SameName(header.name, "Content-Location")) {
      return false;
    }
    Url other;
    if (ResolveLocation(url, header.value, &other)) return HasUserName(header.value);
    return !other.user.empty() || !other.password.empty();
  });
}

}  // namespace

const char* WhyNotStored(const Url& url, const StoredAnswer& answer, const HeaderList& request) {
  const int status = answer.status;
  const CacheControl control = ParseCacheControl(answer.headers);
  if (ParseCacheControl(request).noStore) return "the request forbids storing it";
  if (status == 206 || status == 304) return "it is a part of an answer";
  if (control.mustUnderstand && !IsUnderstood(status)) return "its status is not understood";
  if (control.noStore && !control.mustUnderstand) return "the server forbids storing it";
  if (!MayBeStoredByItself(status, control, answer.headers)) {
    return "answers of its status are stored only with a lifetime";
  }
  if (Find(request, "Authorization") != nullptr && !MayBeStoredWithAuthorization(control)) {
    return "it was given to an authorized user";
  }
  if (VariesBySecret(answer.headers, request)) return "it varies by a password or a cookie";
  if (LeadsToSecret(url, answer.headers)) return "it names a URL with a password";
  return nullptr;
}

HeaderList KeptHeaders(HeaderList headers) {
  RemoveConnectionHeaders(&headers);
  for (const std::string& name : ParseCacheControl(headers).unkeptNames)
    Remove(&headers, name);
  headers.erase(std::remove_if(headers.begin(), headers.end(),
                               [](const Header& header) {
                                 return !SameName(header.name, "Location") &&
                                        !SameName(header.name, "Content-Location") &&
                                        HasUserName(header.value);
                               }),
                headers.end());
  return headers;
}

}  // namespace ox::internal::http
