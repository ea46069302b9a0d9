// The MD5 digest (RFC 1321) for programs that have no kernel: the module's own in md5/ moves memory
// through one, and bears the RFC's names, which a program may have already. It names files; it
// protects nothing.
#ifndef OX_SESSION_DIGEST_H_
#define OX_SESSION_DIGEST_H_

#include <array>
#include <string_view>

#include <oxfilecache/format.h>

namespace ox::internal {

std::array<unsigned char, format::kDigestBytes> Md5(std::string_view text);

}  // namespace ox::internal

#endif
