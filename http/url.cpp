#include "http/url.h"

#include <curl/curl.h>

#include <memory>
#include <new>

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

}  // namespace

Error ParseUrl(const std::string& text, Url* url) {
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
