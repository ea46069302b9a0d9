// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF, no NUL.
#ifndef OX_SESSION_UTF8_H_
#define OX_SESSION_UTF8_H_

#include <string>

namespace ox::internal {

bool IsStrictUtf8(const std::string& text);

// Only bytes 0x01 to 0x7F.
bool IsAsciiText(const std::string& text);

}  // namespace ox::internal

#endif
