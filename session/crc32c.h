// CRC-32C (Castagnoli, the polynomial of iSCSI, RFC 3720): tells content that was cut or changed by
// accident from what was committed. It is no protection against intent.
//
// Uses the processor's instruction where there is one: SSE 4.2 and the optional CRC instructions of
// ARMv8. Elsewhere a table of 1 KiB.
#ifndef OX_SESSION_CRC32C_H_
#define OX_SESSION_CRC32C_H_

#include <cstddef>
#include <cstdint>

namespace ox::internal {

// The sum of what `crc` was the sum of, followed by these bytes; 0 is the sum of nothing.
std::uint32_t ExtendCrc32c(std::uint32_t crc, const void* data, std::size_t bytes);

// The same by the table alone, for tests to compare with.
std::uint32_t ExtendCrc32cByTable(std::uint32_t crc, const void* data, std::size_t bytes);

}  // namespace ox::internal

#endif
