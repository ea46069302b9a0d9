// What a URL has to be, and the name of its content file, without the module.
#ifndef OX_SESSION_ENTRY_NAME_H_
#define OX_SESSION_ENTRY_NAME_H_

#include <string>

#include <oxfilecache/error.h>

namespace ox::internal {

// kInvalidArgument unless the URL is valid UTF-8, not empty and without NUL.
Error CheckUrl(const std::string& url);
// kNotFound.
Error NoEntry();

// The name that the module gives the content of this URL, without the directory. The URL must pass
// the check: the module changes others on their way through UTF-16.
std::string ContentName(const std::string& url);

}  // namespace ox::internal

#endif
