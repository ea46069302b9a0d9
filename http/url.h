// URLs as a cache needs them.
#ifndef OX_HTTP_URL_H_
#define OX_HTTP_URL_H_

#include <string>

#include <oxfilecache/error.h>

namespace ox::internal::http {

struct Url {
  std::string text;    // without user name, password and fragment: what is requested and stored
  std::string origin;  // scheme, host in small letters, and port
  std::string user;
  std::string password;
};

// kInvalidArgument unless it is an http or https URL.
Error ParseUrl(const std::string& text, Url* url);

// What a Location means that stood in an answer of `base`. kInputOutput unless it is http or https:
// the server is to blame.
Error ResolveLocation(const Url& base, const std::string& location, Url* url);

}  // namespace ox::internal::http

#endif
