#include "http/url.h"

#include <arpa/inet.h>
#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>

#include "http/header_list.h"

namespace ox::internal::http {
namespace {

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Handle = std::unique_ptr<CURLU, FreeUrl>;

Handle NewHandle() {
  Handle handle(curl_url());
  if (handle == nullptr) throw std::bad_alloc();
  return handle;
}

// Empty when there is no such part.
std::string Part(const Handle& handle, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(handle.get(), part, &text, flags) != CURLUE_OK) return {};
  std::string copy(text);
  curl_free(text);
  return copy;
}

bool TakeParts(const Handle& handle, const std::string& asIs, Url* url) {
  const std::string scheme = Lower(Part(handle, CURLUPART_SCHEME));
  const std::string host = Lower(Part(handle, CURLUPART_HOST));
  if ((scheme != "http" && scheme != "https") || host.empty()) return false;
  url->origin = scheme + "://" + host + ":" + Part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  url->user = Part(handle, CURLUPART_USER, CURLU_URLDECODE);
  url->password = Part(handle, CURLUPART_PASSWORD, CURLU_URLDECODE);
  url->text = asIs;
  // "@" in a path has this done for nothing, which is harmless.
  if (asIs.empty() || asIs.find_first_of("@#") != std::string::npos) {
    for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_FRAGMENT})
      curl_url_set(handle.get(), part, nullptr, 0);
    url->text = Part(handle, CURLUPART_URL);
  }
  return !url->text.empty();
}

bool IsAmong(char c, std::string_view letters) {
  return c != '\0' && letters.find(c) != std::string_view::npos;
}

// Four decimal numbers: the one form of an address that nothing else is written in.
bool IsPlainAddress(const std::string& host) {
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

// libcurl takes longer for a URL than a hit in the cache takes without it. So those that have
// nothing to normalise are taken here: a name in small letters or a plain address, perhaps a port,
// perhaps a path.
bool TakePlain(const std::string& text, Url* url) {
  constexpr std::string_view kHostLetters = "abcdefghijklmnopqrstuvwxyz0123456789-.";
  constexpr std::string_view kPathLetters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/?&=+,;:!";
  const bool isTls = text.compare(0, 8, "https://") == 0;
  if (!isTls && text.compare(0, 7, "http://") != 0) return false;
  const std::size_t host = isTls ? 8 : 7;
  const std::size_t end = std::min(text.find_first_not_of(kHostLetters, host), text.size());
  const std::size_t label = text.find_last_of("./", end > host ? end - 1 : host) + 1;
  // A last label of digits makes an address of it, which has many forms.
  if (end == host || text[host] == '.') return false;
  if (!IsAmong(text[label], kHostLetters.substr(0, 26)) &&
      !IsPlainAddress(text.substr(host, end - host))) {
    return false;
  }
  std::size_t path = end;
  if (path < text.size() && text[path] == ':') {
    path = std::min(text.find_first_not_of("0123456789", end + 1), text.size());
    if (path == end + 1 || path > end + 5 || text[end + 1] == '0') return false;
  }
  const bool hasPath = path < text.size();
  if (hasPath && (text[path] != '/' || text.find_first_not_of(kPathLetters, path) != text.npos)) {
    return false;
  }
  url->text = text;
  url->origin = text.substr(0, path);
  if (path == end) url->origin += isTls ? ":443" : ":80";
  return true;
}

}  // namespace

Error ParseUrl(const std::string& text, Url* url) {
  if (TakePlain(text, url)) return {};
  const Handle handle = NewHandle();
  const CURLUcode code = text.find('\0') == std::string::npos
                             ? curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), 0)
                             : CURLUE_MALFORMED_INPUT;
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code == CURLUE_OK && TakeParts(handle, text, url)) return {};
  return MakeError(ErrorKind::kInvalidArgument, "this is no http or https URL");
}

Error ResolveLocation(const Url& base, const std::string& location, Url* url) {
  const Handle handle = NewHandle();
  const bool isUrl =
      curl_url_set(handle.get(), CURLUPART_URL, base.text.c_str(), 0) == CURLUE_OK &&
      curl_url_set(handle.get(), CURLUPART_URL, location.c_str(), CURLU_URLENCODE) == CURLUE_OK;
  if (isUrl && TakeParts(handle, {}, url)) return {};
  return MakeError(ErrorKind::kInputOutput,
                   "a redirection leads to something that is no http or https URL");
}

}  // namespace ox::internal::http
