#include "session/crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#elif defined(__aarch64__)
#include <arm_acle.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace ox::internal {
namespace {

// Of a byte, and of a byte that one, two or three zeros follow: four bytes in one step. ("Slicing
// by 4", M. Kounavis and F. Berry, A Systematic Approach to Building High Performance
// Software-based CRC Generators, 2005.)
using Tables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr Tables MakeTables() {
  constexpr std::uint32_t kReversedPolynomial = 0x82f63b78;
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (auto& table : tables) {
      for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 1) != 0 ? (crc >> 1) ^ kReversedPolynomial : crc >> 1;
      table[byte] = crc;
    }
  }
  return tables;
}

std::uint32_t WordAt(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

#if defined(__x86_64__)
bool HasInstruction() {
  return __builtin_cpu_supports("sse4.2") != 0;
}

__attribute__((target("sse4.2"))) std::uint32_t Extend(std::uint32_t crc, const unsigned char* next,
                                                       std::size_t bytes) {
  std::uint64_t state = crc;
  for (; bytes >= 8; bytes -= 8, next += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof word);
    state = _mm_crc32_u64(state, word);
  }
  auto last = static_cast<std::uint32_t>(state);
  for (; bytes > 0; --bytes, ++next)
    last = _mm_crc32_u8(last, *next);
  return last;
}
#elif defined(__aarch64__)
bool HasInstruction() {
  return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
}

__attribute__((target("+crc"))) std::uint32_t Extend(std::uint32_t crc, const unsigned char* next,
                                                     std::size_t bytes) {
  for (; bytes >= 8; bytes -= 8, next += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof word);
    crc = __crc32cd(crc, word);
  }
  for (; bytes > 0; --bytes, ++next)
    crc = __crc32cb(crc, *next);
  return crc;
}
#else
bool HasInstruction() {
  return false;
}

std::uint32_t Extend(std::uint32_t crc, const unsigned char* /*next*/, std::size_t /*bytes*/) {
  return crc;
}
#endif

}  // namespace

std::uint32_t ExtendCrc32cByTable(std::uint32_t crc, const void* data, std::size_t bytes) {
  static constexpr Tables kTables = MakeTables();
  const auto* next = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (; bytes >= 4; bytes -= 4, next += 4) {
    crc ^= WordAt(next);
    crc = kTables[3][crc & 0xff] ^ kTables[2][crc >> 8 & 0xff] ^ kTables[1][crc >> 16 & 0xff] ^
          kTables[0][crc >> 24];
  }
  for (; bytes > 0; --bytes, ++next)
    crc = kTables[0][(crc ^ *next) & 0xff] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t ExtendCrc32c(std::uint32_t crc, const void* data, std::size_t bytes) {
  static const bool hasInstruction = HasInstruction();
  if (!hasInstruction) return ExtendCrc32cByTable(crc, data, bytes);
  return ~Extend(~crc, static_cast<const unsigned char*>(data), bytes);
}

}  // namespace ox::internal
