// Text that crosses between the session and the module. Both functions throw std::bad_alloc where
// memory runs out: a text that lacks a piece would name another entry.
#ifndef OX_SESSION_MODULE_TEXT_H_
#define OX_SESSION_MODULE_TEXT_H_

#include <string>

#include <oxfilecache/string.h>
#include <oxfilecache/value.h>

namespace ox::internal {

OxString ToOxString(const std::string& text);

// The path of the content file.
std::string ContentPath(core::cache::CacheValue& value);

}  // namespace ox::internal

#endif
