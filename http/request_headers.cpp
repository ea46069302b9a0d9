#include "http/request_headers.h"

#include <algorithm>
#include <array>

#include "http/transfer.h"

namespace ox::internal::http {
namespace {

// They follow from the URL, the body and the connection.
constexpr std::array<std::string_view, 7> kNotGiven = {
    "Connection", "Content-Length", "Host", "Keep-Alive", "TE", "Transfer-Encoding", "Upgrade"};

std::string Base64(std::string_view text) {
  constexpr std::string_view kLetters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    const std::string_view group = text.substr(i, 3);
    unsigned bits = 0;
    for (std::size_t k = 0; k < 3; ++k)
      bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0U);
    for (std::size_t k = 0; k < 4; ++k)
      encoded += k <= group.size() ? kLetters[bits >> (18 - 6 * k) & 63] : '=';
  }
  return encoded;
}

Error CheckGiven(const Header& header) {
  const bool isOurs =
      std::any_of(kNotGiven.begin(), kNotGiven.end(),
                  [&header](std::string_view name) { return SameName(name, header.name); });
  if (isOurs || !IsToken(header.name) || !IsFieldValue(header.value)) {
    return MakeError(ErrorKind::kInvalidArgument,
                     "this header cannot be sent: \"" +
                         (IsToken(header.name) ? header.name : std::string("?")) + "\"");
  }
  return {};
}

}  // namespace

Error MakeRequestHeaders(const ox::http::ClientOptions& client, const Url& url,
                         const HeaderList& given, HeaderList* headers) {
  for (const Header& header : given) {
    if (Error error = CheckGiven(header)) return error;
  }
  *headers = given;
  const auto add = [headers](const char* name, const std::string& value) {
    if (!value.empty() && Find(*headers, name) == nullptr) headers->push_back({name, value});
  };
  if (Error error = CheckGiven({"User-Agent", client.userAgent})) return error;
  add("User-Agent", client.userAgent);
  if (client.decode) add("Accept-Encoding", AcceptedEncodings());
  if (!url.user.empty() || !url.password.empty()) {
    add("Authorization", "Basic " + Base64(url.user + ":" + url.password));
  }
  return {};
}

}  // namespace ox::internal::http
